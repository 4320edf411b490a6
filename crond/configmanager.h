#pragma once

#include <json/json.h>

#include <memory>
#include <string>

#include "base/export.h"

namespace VUKO {
namespace VUKOCrond {

/// What stands behind a ConfigManager; use that.
class VUKO_API ConfigManagerPrivate {
public:
    ConfigManagerPrivate(const std::string& strJobName, bool blPkg);

    bool Exist();
    bool Save(const Json::Value& jsJob);
    bool Load(Json::Value& jsJob);
    bool Remove();
    static void ReplacePkgUserName(Json::Value& jsJobs, const std::string& strUserName);

    std::string strName; ///< the job's name
    std::string strPath; ///< its definition file
};

/// The definition file of one job that belongs to the system, or to a package that runs as root.
///
/// The file is FOLDER/NAME.conf, with the name exactly as passed: whoever takes names from strangers checks them first
/// (a "/" in a name leads out of the folder). Messages go to syslog, source "configmanager". Nothing is locked: of two
/// writers the last one wins, and a reader sees the old file or the new one, whole.
class VUKO_API ConfigManager {
public:
    /// @param strName  the job's name.
    /// @param blPkg    true: a package's job, in SZF_CRON_FOLDER_PKG; false: in SZF_CRON_FOLDER_BUILT_IN_DYN.
    ///
    /// Never fails. Makes the folder, mode 0750, when it is missing. Logged: "you're not root, bye." (the folder is
    /// then left alone and the handle may still be used), "mkdir (...) failed".
    ConfigManager(const std::string& strName, bool blPkg);
    ~ConfigManager();
    ConfigManager(const ConfigManager&) = delete;
    ConfigManager& operator=(const ConfigManager&) = delete;

    /// @return true when the file exists.
    bool Exist();

    /// Validates the definition (or array of them), writes it durably and asks for a reload of the service.
    ///
    /// @return false when it is no good ("job[...] format error.") or cannot be written ("job[...] save error."): the
    ///         old file is then as it was, and no reload is asked for. A reload that failed ("failed to reload service
    ///         ...") or was skipped because the system is shutting down (LOG_DEBUG) does not count.
    bool Save(const Json::Value& jsJob);

    /// Reads the file.
    ///
    /// @return false when there is none ("job[...] not exist.") or it cannot be read ("job[...] load error."): `jsJob`
    ///         is then untouched.
    bool Load(Json::Value& jsJob);

    /// Deletes the file, and asks for a reload of the service when there was one.
    ///
    /// @return true when it is gone; false, with "job[...] unlink failed.", when it is still there.
    bool Remove();

    /// Sets "package_username" in each definition whose "user" is exactly "package".
    ///
    /// A launch takes every "user" that contains "package" for a package's; this takes the whole word only, so that a
    /// definition with another one is refused at its launch instead of running as an account it did not ask for.
    ///
    /// @param jsJobs  a definition or an array of them; anything else is left alone.
    /// Throws nothing: an element that is no object is left alone, too.
    static void ReplacePkgUserName(Json::Value& jsJobs, const std::string& strUserName);

private:
    std::unique_ptr<ConfigManagerPrivate> _pPrivate;
};

} // namespace VUKOCrond
} // namespace VUKO
