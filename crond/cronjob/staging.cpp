#include "crond/cronjob.h"

#include <sys/stat.h>
#include <unistd.h>

#include "base/syslog_line.h"
#include "crond/cronjob/jobuser.h"
#include "crond/cronjob/logsource.h"
#include "platform/vlibc.h"

namespace VUKO::VUKOCrond {

namespace {

/// The copy keeps the owner of its source, so most often there is nothing to do.
bool ChownIfIncorrect(const std::string& strTarget, const Json::Value& jsConf) {
    const std::optional<JobUser> user = GetJobUser(jsConf);
    if (!user) {
        VUKO_LOG(LOG_ERR, 120, "Unable to get user group info");
        return false;
    }
    struct stat stTarget = {};
    if (stat(strTarget.c_str(), &stTarget) != 0) {
        VUKO_LOG(LOG_ERR, 127, "Failed to stat [%s][%m]", strTarget.c_str());
        return false;
    }
    if (stTarget.st_uid == user->uid && stTarget.st_gid == user->gid) {
        return true;
    }
    if (chown(strTarget.c_str(), user->uid, user->gid) != 0) {
        VUKO_LOG(LOG_ERR, 133, "Failed to chown [%s][%s][%m]", strTarget.c_str(), user->strName.c_str());
        return false;
    }
    return true;
}

} // namespace

bool CronJob::Init() {
    return MoveBinaryToTmp();
}

bool CronJob::MoveBinaryToTmp() {
    const std::string strName = _jsJob["config"]["name"].asString();
    const std::string strTarget = std::string(SZF_TMP_BIN_FOLDER) + "/" + strName;
    const std::string strSource = _jsJob["cmd_list"][0U].asString();
    if (VLIBCFileExist(strSource.c_str()) == 0) {
        VUKO_LOG(LOG_ERR, 213, "missing binary %s", strSource.c_str());
        return false;
    }
    // By cp and not by hand: it keeps times, attributes and links, and replaces a copy that is being run.
    if (VLIBCExec("/usr/bin/cp", "-af", strSource.c_str(), strTarget.c_str(), nullptr) != 0) {
        const int iErrno = errno; // asking for the details may touch it, and the message's form depends on it
        const unsigned uCode = VLIBCErrGet();
        const char* const szFile = VLIBCErrorGetFile();
        const int iLine = VLIBCErrorGetLine();
        errno = iErrno;
        VUKO_LOG(LOG_ERR, 219, "Failed to cp [%s][%s][0x%04X %s:%d]", strSource.c_str(), strTarget.c_str(), uCode,
                 szFile, iLine);
        return false;
    }
    _jsJob["cmd_list"][0U] = strTarget;
    if (!ChownIfIncorrect(strTarget, _jsJob["config"])) {
        VUKO_LOG(LOG_ERR, 226, "Failed to chown if permissions are incorrect [%s]", strTarget.c_str());
        return false;
    }
    if (chmod(strTarget.c_str(), 0700) != 0) {
        VUKO_LOG(LOG_ERR, 231, "Failed to chmod [%s][%m]", strTarget.c_str());
        return false;
    }
    return true;
}

} // namespace VUKO::VUKOCrond
