#pragma once

#include "platform/launchhooks.h"

namespace VUKO::PLATFORM {

/// The hooks that are set; every member is null where there are none.
const VLIBCLaunchHooks& LaunchHooks();

/// Calls a hook if it is set.
template <typename... Parameters, typename... Arguments>
void CallHook(const VLIBCLaunchHooks& hooks, void (*VLIBCLaunchHooks::*pHook)(void*, Parameters...),
              Arguments... arguments) {
    if (hooks.*pHook != nullptr) {
        (hooks.*pHook)(hooks.context, arguments...);
    }
}

} // namespace VUKO::PLATFORM
