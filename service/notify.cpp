#include "service/notify.h"

#include <systemd/sd-daemon.h>

#include <cinttypes>

#include "service/clocks.h"
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
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%" PRId64, MonotonicUsec());
}

void Stopping() {
    sd_notify(0, "STOPPING=1");
}

void Status(const std::string& strStatus) {
    sd_notify(0, StatusLine(strStatus).c_str());
}

} // namespace VUKO::VUKOCrond::Service::Notify
