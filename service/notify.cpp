#include "service/notify.h"

#include <systemd/sd-daemon.h>

#include <cinttypes>
#include <ctime>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service::Notify {

namespace {

/// A newline in a status would begin an assignment of its own.
std::string StatusLine(const std::string& strStatus) {
    return "STATUS=" + Escaped(strStatus);
}

} // namespace

void Ready(const std::string& strStatus) {
    sd_notify(0, ("READY=1\n" + StatusLine(strStatus)).c_str());
}

/// The stamp tells the service manager this reloading from one that it knows of.
void Reloading() {
    timespec tsNow = {};
    clock_gettime(CLOCK_MONOTONIC, &tsNow);
    const auto uUsec =
        static_cast<std::uint64_t>(tsNow.tv_sec) * 1000000 + static_cast<std::uint64_t>(tsNow.tv_nsec) / 1000;
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%" PRIu64, uUsec);
}

void Stopping() {
    sd_notify(0, "STOPPING=1");
}

void Status(const std::string& strStatus) {
    sd_notify(0, StatusLine(strStatus).c_str());
}

void Watchdog() {
    sd_notify(0, "WATCHDOG=1");
}

std::uint64_t WatchdogIntervalUsec() {
    std::uint64_t uUsec = 0;
    return sd_watchdog_enabled(0, &uUsec) > 0 ? uUsec / 2 : 0;
}

} // namespace VUKO::VUKOCrond::Service::Notify
