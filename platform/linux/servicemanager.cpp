#include "platform/vukosystemd.h"

#include <systemd/sd-daemon.h>

#include <csignal>

#include "platform/linux/bus.h"
#include "platform/linux/lasterror.h"
#include "platform/linux/pidfile.h"

namespace VUKO::PLATFORM {

namespace {

/// @return 0, or the errno value of the failure.
int ReloadUnit(const std::string& strUnit) {
    Bus bus;
    int iResult = bus.OpenManager();
    if (iResult >= 0) {
        iResult = bus.CallWithTexts(MANAGER, "ReloadUnit", strUnit.c_str(), "replace");
    }
    return -iResult;
}

int Reload(const std::string& strService) {
    // The name becomes part of a path, and of texts that end at a NUL.
    if (strService.empty() || strService.find_first_of(std::string("/\0", 2)) != std::string::npos) {
        return EINVAL;
    }
    return sd_booted() > 0 ? ReloadUnit(strService + ".service") : SignalHolderOfPidFile(strService, SIGHUP);
}

} // namespace

} // namespace VUKO::PLATFORM

bool VUKOSystemdReload(const std::string& service) {
    VUKO::PLATFORM::ErrnoKeeper keeper;
    if (const int iCode = VUKO::PLATFORM::Reload(service); iCode != 0) {
        VUKO_SET_ERROR(iCode);
        keeper.LetGo();
        return false;
    }
    return true;
}
