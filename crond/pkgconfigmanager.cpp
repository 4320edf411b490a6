#include "crond/pkgconfigmanager.h"

#include "base/syslog_line.h"
#include "crond/cronjob.h"
#include "crond/jobfile.h"
#include "platform/vlibc.h"

namespace VUKO::VUKOCrond {

namespace {

constexpr const char* szLogSource = "pkgconfigmanager";

constexpr JobFileMessages MESSAGES = {szLogSource, 68, 72, 85, 89, 107};

} // namespace

PkgConfigManagerPrivate::PkgConfigManagerPrivate(const std::string& strPackage, const std::string& strJobName)
    : strPkg(strPackage), strName(strJobName) {
    const std::string strFolder = std::string(SZF_CRON_FOLDER_PKG_NONROOT) + "/" + strPkg;
    strPath = strFolder + "/" + strName + ".conf";
    if (VLIBCFileCheckDir(strFolder.c_str()) == 0) {
        VUKO_LOG(LOG_ERR, 49, "config folder not exist: %s", strFolder.c_str());
    }
}

bool PkgConfigManagerPrivate::Exist() {
    return ExistJobFile(strPath);
}

bool PkgConfigManagerPrivate::Save(const Json::Value& jsJob) {
    return SaveJobFile(MESSAGES, strName, strPath, jsJob);
}

bool PkgConfigManagerPrivate::Load(Json::Value& jsJob) {
    return LoadJobFile(MESSAGES, strName, strPath, jsJob);
}

bool PkgConfigManagerPrivate::Remove() {
    return RemoveJobFile(MESSAGES, strName, strPath) != JobFileRemoval::Failed;
}

PkgConfigManager::PkgConfigManager(const std::string& strPkg, const std::string& strName)
    : _pPrivate(std::make_unique<PkgConfigManagerPrivate>(strPkg, strName)) {}

PkgConfigManager::~PkgConfigManager() = default;

bool PkgConfigManager::Exist() {
    return _pPrivate->Exist();
}

bool PkgConfigManager::Save(const Json::Value& jsJob) {
    return _pPrivate->Save(jsJob);
}

bool PkgConfigManager::Load(Json::Value& jsJob) {
    return _pPrivate->Load(jsJob);
}

bool PkgConfigManager::Remove() {
    return _pPrivate->Remove();
}

} // namespace VUKO::VUKOCrond
