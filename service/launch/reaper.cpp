#include "service/launch/reaper.h"

#include <sys/wait.h>

#include <cerrno>

#include "base/syslog_line.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "reaper";

void LogEnd(pid_t pid, int iStatus) {
    if (WIFSIGNALED(iStatus)) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 1, "child %d was ended by signal %d", static_cast<int>(pid), WTERMSIG(iStatus));
    } else if (WEXITSTATUS(iStatus) != 0) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 2, "child %d ended with status %d", static_cast<int>(pid), WEXITSTATUS(iStatus));
    }
}

} // namespace

std::size_t ReapChildren() {
    std::size_t uReaped = 0;
    for (;;) {
        int iStatus = 0;
        const pid_t pid = waitpid(-1, &iStatus, WNOHANG);
        if (pid == -1 && errno == EINTR) {
            continue;
        }
        if (pid <= 0) {
            return uReaped;
        }
        ++uReaped;
        LogEnd(pid, iStatus);
    }
}

} // namespace VUKO::VUKOCrond::Service
