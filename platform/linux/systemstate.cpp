#include "platform/vukosdk.h"

#include <systemd/sd-daemon.h>

#include <cstring>

#include "platform/linux/bus.h"
#include "platform/linux/lasterror.h"

namespace VUKO::PLATFORM {

namespace {

constexpr int BOOT_STEP_BOOTING = 1;
constexpr int BOOT_STEP_RUNNING = 3;
constexpr int BOOT_STEP_SHUTTING_DOWN = 5;

constexpr int SELECTOR_HIBERNATION = 1;
constexpr int STATUS_AWAKE = 1;
constexpr int STATUS_HIBERNATING = 2;

constexpr BusObject LOGIN{"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager"};

int BootStepOf(const char* szSystemState) {
    if (std::strcmp(szSystemState, "stopping") == 0) {
        return BOOT_STEP_SHUTTING_DOWN;
    }
    if (std::strcmp(szSystemState, "initializing") == 0 || std::strcmp(szSystemState, "starting") == 0) {
        return BOOT_STEP_BOOTING;
    }
    return BOOT_STEP_RUNNING;
}

int AskBootStep() {
    Bus bus;
    MessagePtr reply;
    const char* szSystemState = nullptr;
    int iResult = bus.OpenManager();
    if (iResult >= 0) {
        iResult = bus.GetProperty(MANAGER, "SystemState", SD_BUS_TYPE_STRING, &szSystemState, reply);
    }
    if (iResult < 0) {
        VUKO_SET_ERROR(-iResult);
        return BOOT_STEP_RUNNING;
    }
    return BootStepOf(szSystemState);
}

/// @return 0 with an answer, or the negative errno value.
int AskHibernation(int& iStatus) {
    Bus bus;
    MessagePtr reply;
    int iPreparing = 0;
    int iResult = bus.OpenSystem();
    if (Bus::IsNoBus(iResult)) {
        iStatus = STATUS_AWAKE;
        return 0;
    }
    if (iResult >= 0) {
        iResult = bus.GetProperty(LOGIN, "PreparingForSleep", SD_BUS_TYPE_BOOLEAN, &iPreparing, reply);
    }
    if (iResult < 0 && !Bus::IsNobody(iResult)) {
        return iResult;
    }
    iStatus = iPreparing != 0 ? STATUS_HIBERNATING : STATUS_AWAKE;
    return 0;
}

/// @return 0, or the errno value of the failure.
int AskStatus(int iWhat, int* pStatus) {
    if (pStatus == nullptr) {
        return EFAULT;
    }
    return iWhat == SELECTOR_HIBERNATION ? -AskHibernation(*pStatus) : EINVAL;
}

} // namespace

} // namespace VUKO::PLATFORM

int VUKOEvmgrStatusGet(int what, int* status) {
    VUKO::PLATFORM::ErrnoKeeper keeper;
    if (const int iCode = VUKO::PLATFORM::AskStatus(what, status); iCode != 0) {
        VUKO_SET_ERROR(iCode);
        keeper.LetGo();
        return -1;
    }
    return 0;
}

int VUKOSystemGetBootStep(void) {
    const VUKO::PLATFORM::ErrnoKeeper keeper;
    return sd_booted() > 0 ? VUKO::PLATFORM::AskBootStep() : VUKO::PLATFORM::BOOT_STEP_RUNNING;
}
