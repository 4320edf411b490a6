#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "crond/cronjob.h"
#include "tests/platform/run_folder.h"
#include "tests/support/scoped_value.h"
#include "tests/support/temp_dir.h"

namespace store {

/// The real stores on folders of the test's own, beside an empty /run, where no service can be reached. Needs root.
class RealStores : public support::RunFolder {
protected:
    RealStores()
        : _strSystemFolder(_dir / "system"), _strPackageFolder(_dir / "package"),
          _system(VUKO::VUKOCrond::SZF_CRON_FOLDER_BUILT_IN_DYN, _strSystemFolder.c_str()),
          _package(VUKO::VUKOCrond::SZF_CRON_FOLDER_PKG_NONROOT, _strPackageFolder.c_str()) {
        std::filesystem::create_directories(_strSystemFolder);
        std::filesystem::create_directories(_strPackageFolder + "/pkgA");
    }

    /// What a system's store says of a reload where no service runs.
    static constexpr const char* NO_RELOAD =
        "<3>configmanager:52 failed to reload service vukocrond\\. \\[0x[0-9A-F]{4} [a-z]+\\.cpp:[0-9]+\\]";

    const support::TempDir _dir;
    const std::string _strSystemFolder;
    const std::string _strPackageFolder;
    const support::ScopedValue<const char*> _system;
    const support::ScopedValue<const char*> _package;
};

} // namespace store
