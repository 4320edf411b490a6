#pragma once

#include <json/json.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>

namespace fake {

/// A file of the fake file system: a document, or a program where the document is null.
struct StoredFile {
    Json::Value jsContent;
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t mode = 0600;
};

/// Files, folders and the system's state as the job stores and the staging see them. A test sets what it needs; every
/// other call succeeds.
struct StorePlatformState {
    std::map<std::string, StoredFile> mapFiles;
    std::set<std::string> setFolders;
    uid_t uidEffective = 0;

    /// Calls that fail, by the first word of their record ("toFile", "unlink", "exec", ...), with the errno value that
    /// they leave behind; 0: they leave errno alone.
    std::map<std::string, int> mapFailing;

    std::optional<int> iFileExistResult; ///< VLIBCFileExist() answers this, whatever there is
    int iExecFailure = 1;                ///< what a failing VLIBCExec() returns

    int iBootStep = 3;
    int iStatusResult = 0;             ///< what VUKOEvmgrStatusGet() returns
    std::optional<int> iStatusWritten; ///< and writes, before it returns

    unsigned uErrCode = 0; ///< the last platform error
    std::string strErrFile;
    int iErrLine = 0;
};

StorePlatformState& StorePlatform();

/// Replaces these calls while it lives, by a fresh state; without one they are the real ones:
/// VLIBCFileExist, VLIBCFileCheckDir, VLIBCExec (it knows cp only), VLIBCErrGet, VLIBCErrorGetFile, VLIBCErrorGetLine,
/// VUKOFSMkdirP, VUKOSystemGetBootStep, VUKOSystemdReload, VUKOEvmgrStatusGet, VUKOUtils::StringExplode,
/// JSON::fromFile, JSON::toFile, geteuid, unlink, stat, chown, chmod. Each notes itself with RecordCall(), except
/// StringExplode() and those that read the last platform error.
///
/// The calls are real only where the C library has them: a program without a ScopedStorePlatform must not call the
/// platform's.
class ScopedStorePlatform {
public:
    ScopedStorePlatform();
    ~ScopedStorePlatform();
    ScopedStorePlatform(const ScopedStorePlatform&) = delete;
    ScopedStorePlatform& operator=(const ScopedStorePlatform&) = delete;
};

} // namespace fake
