#include "service/launch/reaper.h"

#include <sys/wait.h>

#include <cerrno>

#include "base/syslog_line.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "reaper";

} // namespace

std::vector<ReapedChild> ReapChildren() {
    std::vector<ReapedChild> vecReaped;
    for (;;) {
        ReapedChild child;
        child.pid = waitpid(-1, &child.iStatus, WNOHANG);
        if (child.pid == -1 && errno == EINTR) {
            continue;
        }
        if (child.pid <= 0) {
            return vecReaped;
        }
        vecReaped.push_back(child);
    }
}

void LogEnd(const ReapedChild& child, const std::string& strJob) {
    const int iPid = static_cast<int>(child.pid);
    const std::string strOf = strJob.empty() ? "" : " of job " + strJob;
    if (WIFSIGNALED(child.iStatus)) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 1, "child %d%s was ended by signal %d", iPid, strOf.c_str(),
                       WTERMSIG(child.iStatus));
    } else if (WEXITSTATUS(child.iStatus) != 0) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 2, "child %d%s ended with status %d", iPid, strOf.c_str(),
                       WEXITSTATUS(child.iStatus));
    }
}

} // namespace VUKO::VUKOCrond::Service
