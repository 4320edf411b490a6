#include "crond/jobfile.h"

#include <unistd.h>

#include "base/syslog_line.h"
#include "crond/utils.h"
#include "platform/vlibc.h"
#include "platform/vukojson.h"

namespace VUKO::VUKOCrond {

bool ExistJobFile(const std::string& strPath) {
    return VLIBCFileExist(strPath.c_str()) == 1;
}

bool SaveJobFile(const JobFileMessages& messages, const std::string& strName, const std::string& strPath,
                 const Json::Value& jsJob) {
    const char* const szLogSource = messages.szSource;
    if (!checkJobFormat(jsJob)) {
        VUKO_LOG(LOG_ERR, messages.iFormatError, "job[%s] format error.", strName.c_str());
        return false;
    }
    if (!JSON::toFile(jsJob, strPath, true)) {
        VUKO_LOG(LOG_ERR, messages.iSaveError, "job[%s] save error.", strName.c_str());
        return false;
    }
    return true;
}

bool LoadJobFile(const JobFileMessages& messages, const std::string& strName, const std::string& strPath,
                 Json::Value& jsJob) {
    const char* const szLogSource = messages.szSource;
    if (!ExistJobFile(strPath)) {
        VUKO_LOG(LOG_ERR, messages.iNotExist, "job[%s] not exist.", strName.c_str());
        return false;
    }
    if (!JSON::fromFile(jsJob, strPath)) {
        VUKO_LOG(LOG_ERR, messages.iLoadError, "job[%s] load error.", strName.c_str());
        return false;
    }
    return true;
}

JobFileRemoval RemoveJobFile(const JobFileMessages& messages, const std::string& strName, const std::string& strPath) {
    const char* const szLogSource = messages.szSource;
    if (!ExistJobFile(strPath)) {
        return JobFileRemoval::Missing;
    }
    if (unlink(strPath.c_str()) != 0) {
        VUKO_LOG(LOG_ERR, messages.iUnlinkFailed, "job[%s] unlink failed.", strName.c_str());
        return JobFileRemoval::Failed;
    }
    return JobFileRemoval::Deleted;
}

} // namespace VUKO::VUKOCrond
