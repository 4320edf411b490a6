#include "service/launch/oldlaunch.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>

#include "base/syslog_line.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "launcher";

} // namespace

bool Launch(ScheduledJob& job) {
    const pid_t pidService = getpid();
    errno = 0; // the library's messages take their form by it
    try {
        job.job.Run(0, job.strReadyLabel);
    } catch (const std::exception& exception) {
        VUKO_LOG_PLAIN(LOG_ERR, 1, "a job of %s could not be started: %s", Escaped(job.strFile).c_str(),
                       Escaped(exception.what()).c_str());
    } catch (...) {
        VUKO_LOG_PLAIN(LOG_ERR, 2, "a job of %s could not be started", Escaped(job.strFile).c_str());
    }
    if (getpid() != pidService) {
        // Here Run() came back in the child, which is a second service by now: its descriptors and handlers are the
        // service's, so not even exit() may run.
        _exit(EXIT_FAILURE);
    }
    return !job.IsReady();
}

} // namespace VUKO::VUKOCrond::Service
