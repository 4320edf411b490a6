#pragma once

#include <json/json.h>

#include <memory>
#include <string>

#include "base/export.h"

namespace VUKO {
namespace VUKOCrond {

/// What stands behind a PkgConfigManager; use that.
class VUKO_API PkgConfigManagerPrivate {
public:
    PkgConfigManagerPrivate(const std::string& strPackage, const std::string& strJobName);

    bool Exist();
    bool Save(const Json::Value& jsJob);
    bool Load(Json::Value& jsJob);
    bool Remove();

    std::string strPkg;  ///< the package's name
    std::string strName; ///< the job's name
    std::string strPath; ///< its definition file
};

/// The definition file of one job of a package that runs as its own account:
/// SZF_CRON_FOLDER_PKG_NONROOT/PACKAGE/NAME.conf, with both names exactly as passed.
///
/// As ConfigManager, with three differences, all meant: it needs no root rights, never makes its folder (whoever
/// installs the package does, and gives it to the package's account), and never asks for a reload (an account that is
/// not root may not; the service finds these files on its own). Messages go to syslog, source "pkgconfigmanager".
class VUKO_API PkgConfigManager {
public:
    /// Never fails. Logged: "config folder not exist: ...", when the package has no folder; the handle may still be
    /// used, and Save() then fails.
    PkgConfigManager(const std::string& strPkg, const std::string& strName);
    ~PkgConfigManager();
    PkgConfigManager(const PkgConfigManager&) = delete;
    PkgConfigManager& operator=(const PkgConfigManager&) = delete;

    /// @return true when the file exists.
    bool Exist();

    /// Validates the definition (or array of them) and writes it durably.
    ///
    /// @return false when it is no good ("job[...] format error.") or cannot be written ("job[...] save error."): the
    ///         old file is then as it was.
    bool Save(const Json::Value& jsJob);

    /// Reads the file.
    ///
    /// @return false when there is none ("job[...] not exist.") or it cannot be read ("job[...] load error."): `jsJob`
    ///         is then untouched.
    bool Load(Json::Value& jsJob);

    /// Deletes the file.
    ///
    /// @return true when it is gone; false, with "job[...] unlink failed.", when it is still there.
    bool Remove();

private:
    std::unique_ptr<PkgConfigManagerPrivate> _pPrivate;
};

} // namespace VUKOCrond
} // namespace VUKO
