#include "crond/configmanager.h"

#include <unistd.h>

#include "base/syslog_line.h"
#include "crond/cronjob.h"
#include "crond/jobfile.h"
#include "platform/vlibc.h"
#include "platform/vukosdk.h"
#include "platform/vukosystemd.h"

namespace VUKO::VUKOCrond {

namespace {

constexpr const char* szLogSource = "configmanager";

constexpr JobFileMessages MESSAGES = {szLogSource, 90, 94, 109, 113, 131};

constexpr int BOOT_STEP_SHUTTING_DOWN = 5;

/// Only asks; what the service makes of it, and when, is not this caller's to wait for.
void ReloadService() {
    if (VUKOSystemGetBootStep() == BOOT_STEP_SHUTTING_DOWN) {
        VUKO_LOG_PLAIN(LOG_DEBUG, 47, "system is shutting down, skip reload");
        return;
    }
    if (!VUKOSystemdReload(SZK_SERVICE_NAME)) {
        VUKO_LOG_PLAIN(LOG_ERR, 52, "failed to reload service %s. [0x%04X %s:%d]", SZK_SERVICE_NAME, VLIBCErrGet(),
                       VLIBCErrorGetFile(), VLIBCErrorGetLine());
    }
}

void ReplaceInDefinition(Json::Value& jsJob, const std::string& strUserName) {
    if (jsJob.isObject() && jsJob.isMember("user") && jsJob["user"].isString() &&
        jsJob["user"].asString() == "package") {
        jsJob["package_username"] = strUserName;
    }
}

} // namespace

ConfigManagerPrivate::ConfigManagerPrivate(const std::string& strJobName, bool blPkg) : strName(strJobName) {
    const std::string strFolder = blPkg ? SZF_CRON_FOLDER_PKG : SZF_CRON_FOLDER_BUILT_IN_DYN;
    strPath = strFolder + "/" + strName + ".conf";
    if (geteuid() != 0) {
        VUKO_LOG(LOG_ERR, 65, "you're not root, bye.");
        return;
    }
    if (VLIBCFileCheckDir(strFolder.c_str()) == 0 && VUKOFSMkdirP(strFolder.c_str(), 0, 1, 0, 0, 0750) != 0) {
        VUKO_LOG(LOG_ERR, 70, "mkdir (%s) failed", strFolder.c_str());
    }
}

bool ConfigManagerPrivate::Exist() {
    return ExistJobFile(strPath);
}

bool ConfigManagerPrivate::Save(const Json::Value& jsJob) {
    if (!SaveJobFile(MESSAGES, strName, strPath, jsJob)) {
        return false;
    }
    ReloadService();
    return true;
}

bool ConfigManagerPrivate::Load(Json::Value& jsJob) {
    return LoadJobFile(MESSAGES, strName, strPath, jsJob);
}

bool ConfigManagerPrivate::Remove() {
    const JobFileRemoval eRemoval = RemoveJobFile(MESSAGES, strName, strPath);
    if (eRemoval == JobFileRemoval::Deleted) {
        ReloadService();
    }
    return eRemoval != JobFileRemoval::Failed;
}

void ConfigManagerPrivate::ReplacePkgUserName(Json::Value& jsJobs, const std::string& strUserName) {
    if (jsJobs.isArray()) {
        for (Json::Value& jsJob : jsJobs) {
            ReplaceInDefinition(jsJob, strUserName);
        }
    } else {
        ReplaceInDefinition(jsJobs, strUserName);
    }
}

ConfigManager::ConfigManager(const std::string& strName, bool blPkg)
    : _pPrivate(std::make_unique<ConfigManagerPrivate>(strName, blPkg)) {}

ConfigManager::~ConfigManager() = default;

bool ConfigManager::Exist() {
    return _pPrivate->Exist();
}

bool ConfigManager::Save(const Json::Value& jsJob) {
    return _pPrivate->Save(jsJob);
}

bool ConfigManager::Load(Json::Value& jsJob) {
    return _pPrivate->Load(jsJob);
}

bool ConfigManager::Remove() {
    return _pPrivate->Remove();
}

void ConfigManager::ReplacePkgUserName(Json::Value& jsJobs, const std::string& strUserName) {
    ConfigManagerPrivate::ReplacePkgUserName(jsJobs, strUserName);
}

} // namespace VUKO::VUKOCrond
