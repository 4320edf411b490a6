#include "service/rootdir.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "crond/cronjob.h"
#include "platform/vukosdk.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr mode_t FOLDER_MODE = 0755;
constexpr mode_t TMP_FOLDER_MODE = 01777;

std::vector<const char**> PathConstants() {
    return {&SZF_CRON_FOLDER_BUILT_IN,
            &SZF_CRON_FOLDER_BUILT_IN_DYN,
            &SZF_CRON_FOLDER_PKG,
            &SZF_CRON_FOLDER_PKG_NONROOT,
            &SZF_CRON_RUNTIME_CONFIG,
            &SZF_CRON_RUNTIME_CONFIG_MIRROR,
            &SZF_CRON_SCHEDULE_TEMPLATE_CONFIG,
            &SZF_CRON_SCHEDULE_TEMPLATE_CONFIG_MIRROR,
            &SZF_PIDPATH,
            &SZF_CRON_MEMLOG,
            &SZF_CRON_LOG_EXEC,
            &SZF_TMP_BIN_FOLDER};
}

std::string FolderOf(const char* szPath) {
    return std::filesystem::path(szPath).parent_path().string();
}

} // namespace

RootDir::RootDir(const std::string& strRoot) {
    if (strRoot.empty()) {
        return;
    }
    _strRoot = std::filesystem::canonical(strRoot).string();
    _FormerLogPaths = {CronJob::gLogger._strLogPath, CronJob::gLogger._strMemLogPath};
    _strPrefix = _strRoot == "/" ? std::string() : _strRoot;
    for (const char** const pConstant : PathConstants()) {
        _vecMoved.push_back({pConstant, *pConstant, _strPrefix + *pConstant});
    }
    for (const Moved& moved : _vecMoved) { // not before: the strings move while the vector grows
        *moved.pConstant = moved.strPath.c_str();
    }
    CronJob::gLogger._strLogPath = SZF_CRON_LOG_EXEC;
    CronJob::gLogger._strMemLogPath = SZF_CRON_MEMLOG;
}

RootDir::~RootDir() {
    if (_strRoot.empty()) {
        return;
    }
    for (const Moved& moved : _vecMoved) {
        *moved.pConstant = moved.szFormer;
    }
    CronJob::gLogger._strLogPath = _FormerLogPaths.first;
    CronJob::gLogger._strMemLogPath = _FormerLogPaths.second;
}

std::string RootDir::MakeFolders() const {
    if (_strRoot.empty()) {
        return std::string();
    }
    const std::pair<std::string, mode_t> aFolders[] = {
        {SZF_CRON_FOLDER_BUILT_IN, FOLDER_MODE},      {SZF_CRON_FOLDER_BUILT_IN_DYN, FOLDER_MODE},
        {SZF_CRON_FOLDER_PKG, FOLDER_MODE},           {SZF_CRON_FOLDER_PKG_NONROOT, FOLDER_MODE},
        {FolderOf(SZF_PIDPATH), FOLDER_MODE},         {FolderOf(SZF_CRON_LOG_EXEC), FOLDER_MODE},
        {FolderOf(SZF_CRON_MEMLOG), TMP_FOLDER_MODE}, {FolderOf(SZF_CRON_RUNTIME_CONFIG), FOLDER_MODE},
    };
    for (const auto& [strFolder, mode] : aFolders) {
        if (VUKOFSMkdirP(strFolder.c_str(), 0, 1, geteuid(), getegid(), mode) != 0) {
            return Escaped(strFolder) + " cannot be made: " + strerror(errno);
        }
    }
    return std::string();
}

} // namespace VUKO::VUKOCrond::Service
