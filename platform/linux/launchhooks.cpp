#include "platform/linux/launchhooks.h"

namespace VUKO::PLATFORM {

namespace {

VLIBCLaunchHooks& Hooks() {
    static VLIBCLaunchHooks hooks = {};
    return hooks;
}

} // namespace

const VLIBCLaunchHooks& LaunchHooks() {
    return Hooks();
}

} // namespace VUKO::PLATFORM

void VLIBCLaunchHooksSet(const VLIBCLaunchHooks* hooks) {
    VUKO::PLATFORM::Hooks() = hooks != nullptr ? *hooks : VLIBCLaunchHooks{};
}
