#include "crond/cronjob.h"

#include <grp.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "base/syslog_line.h"
#include "crond/cronjob/jobuser.h"
#include "crond/cronjob/logsource.h"
#include "platform/vlibc.h"

namespace VUKO::VUKOCrond {

namespace {

/// The child set-up that the appliance's fork is asked for.
constexpr int FORK_FLAGS = 0x47;

/// Writes one line to the execution log and out to its file at once: the child may be replaced, killed or ended right
/// after it.
template <typename... Pieces>
void LogExecution(const Pieces&... pieces) {
    MemoryLogger& logger = CronJob::gLogger;
    logger._ssLog << logger.GetNewLine();
    (logger._ssLog << ... << pieces) << "\n";
    logger.FlushAll();
}

/// The three texts have no blank after "for"; that is the form that they are searched by.
void LogIdentityFailure(const char* szWhat, const std::string& strName, const JobUser& user) {
    const int iErrno = errno; // the log's own work must not replace the reason
    LogExecution(szWhat, strName, " for user ", user.strName, "[", strerror(iErrno), "]");
}

/// Supplementary groups first, then the group, then the user: without root's id the other two could not change any
/// more. None of the failures stops the job: a service without root's rights runs all jobs as itself.
void TakeIdentity(const std::string& strName, const JobUser& user) {
    if (initgroups(user.strName.c_str(), user.gid) != 0) {
        LogIdentityFailure("Failed to initgroups for", strName, user);
    }
    if (setgid(user.gid) != 0) {
        LogIdentityFailure("Failed to setgid for", strName, user);
    }
    if (setuid(user.uid) != 0) {
        LogIdentityFailure("Failed to setuid for", strName, user);
    }
}

} // namespace

void CronJob::Run(int iDelaySec, std::string strArg) {
    _jsJob["lastExecution"] = static_cast<Json::Int64>(time(nullptr));
    _jsJob["expireTime"] = 0;
    const pid_t pid = VLIBCProcForkEx(FORK_FLAGS);
    if (pid == -1) {
        VUKO_LOG(LOG_ERR, 501, "Failed to fork()");
        return;
    }
    if (pid == 0) {
        if (iDelaySec > 0) {
            sleep(static_cast<unsigned>(iDelaySec));
        }
        RunChild(strArg);
    }
    _strReadyCrontab.clear();
}

void CronJob::RunChild(const std::string& strArg) {
    const Json::Value& jsConf = _jsJob["config"];
    const Json::Value jsCmdList = _jsJob["cmd_list"];
    const std::unique_ptr<char*[]> pszCmd(new (std::nothrow) char*[jsCmdList.size() + std::size_t{1}]);
    if (!pszCmd) {
        VUKO_LOG(LOG_ERR, 594, "new pszCmd failed");
        return;
    }
    // A service that ignores SIGCHLD would have its children reaped by the kernel, and there would be nothing to wait
    // for below.
    signal(SIGCHLD, SIG_DFL);
    const std::string strName = jsConf["name"].asString();
    const std::optional<JobUser> user = GetJobUser(jsConf);
    if (!user) {
        VUKO_LOG(LOG_ERR, 604, "Failed to get user group info for job [%s]", strName.c_str());
        return;
    }
    Json::ArrayIndex uCount = 0;
    for (const Json::Value& jsArgument : jsCmdList) {
        pszCmd[uCount++] = const_cast<char*>(jsArgument.asCString()); // execve() takes them so and leaves them alone
    }
    pszCmd[uCount] = nullptr;

    const std::string strCmd = _jsJob["cmd_str"].asString();
    const std::string strLabel = strArg.empty() ? std::string() : " (" + strArg + ")";
    LogExecution("running job: ", strName, " with command: ", strCmd, " as user ", user->strName, strLabel);
    TakeIdentity(strName, *user);
    const int iRet = VLIBCExecv(pszCmd[0], pszCmd.get(), 1);
    if (iRet < 0) {
        const int iErrno = errno; // the log's own work must not replace the reason
        LogExecution("running job: ", strName, " with command: ", strCmd,
                     " failed, return code: ", std::to_string(iRet), ", error: ", strerror(iErrno));
    }
    // Not exit(): the handlers and buffers of the service are the service's, and this is only its copy.
    _exit(0);
}

void CronJob::FlushLog() {
    gLogger.FlushAll();
}

} // namespace VUKO::VUKOCrond
