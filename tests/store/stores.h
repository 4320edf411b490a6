#pragma once

#include <optional>
#include <string>
#include <vector>

#include "crond/configmanager.h"
#include "crond/pkgconfigmanager.h"

namespace store {

/// What tells one store from the others. Each opens a handle on its job "backup".
struct SystemJobs {
    using Store = VUKO::VUKOCrond::ConfigManager;
    static Store Open() { return Store("backup", false); }
    static constexpr const char* FOLDER = "/usr/vuko/etc/vukocron.d";
    static constexpr const char* SOURCE = "configmanager";
    static constexpr int FORMAT_ERROR = 90;
    static constexpr int SAVE_ERROR = 94;
    static constexpr int NOT_EXIST = 109;
    static constexpr int LOAD_ERROR = 113;
    static constexpr int UNLINK_FAILED = 131;
    static constexpr bool RELOADS = true;
};

struct RootPackageJobs : SystemJobs {
    static Store Open() { return Store("backup", true); }
    static constexpr const char* FOLDER = "/usr/local/etc/vukocron.d";
};

struct PackageJobs {
    using Store = VUKO::VUKOCrond::PkgConfigManager;
    static Store Open() { return Store("pkgA", "backup"); }
    static constexpr const char* FOLDER = "/usr/local/etc/vukocron_nonroot.d/pkgA";
    static constexpr const char* SOURCE = "pkgconfigmanager";
    static constexpr int FORMAT_ERROR = 68;
    static constexpr int SAVE_ERROR = 72;
    static constexpr int NOT_EXIST = 85;
    static constexpr int LOAD_ERROR = 89;
    static constexpr int UNLINK_FAILED = 107;
    static constexpr bool RELOADS = false;
};

} // namespace store
