#include "platform/vukosystemd.h"

#include <systemd/sd-daemon.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/linux/bus.h"
#include "platform/linux/lasterror.h"
#include "platform/linux/pidfile.h"

namespace VUKO::PLATFORM {

namespace {

struct TextReleaser {
    void operator()(char* szText) const { std::free(szText); }
};

/// Whether there is somebody to reload. systemd takes the request for any unit; it tells that the unit does not run
/// only by the result of the job, which nobody waits for here, and while the unit is still starting, the request is
/// lost.
int CheckRuns(Bus& bus, const std::string& strUnit) {
    char* szEncoded = nullptr;
    int iResult = sd_bus_path_encode("/org/freedesktop/systemd1/unit", strUnit.c_str(), &szEncoded);
    if (iResult < 0) {
        return iResult;
    }
    const std::unique_ptr<char, TextReleaser> path(szEncoded);
    const BusObject unit{MANAGER.szService, path.get(), "org.freedesktop.systemd1.Unit"};
    MessagePtr reply;
    const char* szState = nullptr;
    iResult = bus.GetProperty(unit, "ActiveState", SD_BUS_TYPE_STRING, &szState, reply);
    if (iResult < 0) {
        return iResult;
    }
    return std::strcmp(szState, "active") == 0 || std::strcmp(szState, "reloading") == 0 ? 0 : -ESRCH;
}

/// @return 0, or the errno value of the failure.
int ReloadUnit(const std::string& strUnit) {
    Bus bus;
    int iResult = bus.OpenManager();
    if (iResult >= 0) {
        iResult = CheckRuns(bus, strUnit);
    }
    if (iResult >= 0) {
        // "replace" would cancel a stop that somebody else has asked for and waits for.
        iResult = bus.CallWithTexts(MANAGER, "ReloadUnit", strUnit.c_str(), "fail");
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
