#include "service/rootdir.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

std::vector<std::string> Paths() {
    return {SZF_CRON_FOLDER_BUILT_IN,
            SZF_CRON_FOLDER_BUILT_IN_DYN,
            SZF_CRON_FOLDER_PKG,
            SZF_CRON_FOLDER_PKG_NONROOT,
            SZF_CRON_RUNTIME_CONFIG,
            SZF_CRON_RUNTIME_CONFIG_MIRROR,
            SZF_CRON_SCHEDULE_TEMPLATE_CONFIG,
            SZF_CRON_SCHEDULE_TEMPLATE_CONFIG_MIRROR,
            SZF_PIDPATH,
            SZF_CRON_MEMLOG,
            SZF_CRON_LOG_EXEC,
            SZF_TMP_BIN_FOLDER,
            CronJob::gLogger._strLogPath,
            CronJob::gLogger._strMemLogPath};
}

} // namespace

TEST(RootDir, PutsEveryPathBelowTheFolderAndBack) {
    const support::TempDir dir;
    const std::vector<std::string> vecBefore = Paths();
    {
        const RootDir root(dir.Path());
        const std::vector<std::string> vecMoved = Paths();
        for (std::size_t i = 0; i < vecBefore.size(); ++i) {
            EXPECT_EQ(vecMoved[i], dir.Path() + vecBefore[i]);
        }
    }
    EXPECT_EQ(Paths(), vecBefore);
}

TEST(RootDir, DoesNothingWithoutAFolder) {
    const std::vector<std::string> vecBefore = Paths();
    const RootDir root("");
    EXPECT_EQ(Paths(), vecBefore);
    EXPECT_EQ(root.MakeFolders(), "");
}

TEST(RootDir, TakesTheRootItselfForNoFolder) {
    const std::vector<std::string> vecBefore = Paths();
    const RootDir root("/");
    EXPECT_EQ(Paths(), vecBefore);
}

TEST(RootDir, MakesAbsolutePathsOfARelativeFolder) {
    const support::TempDir dir;
    const std::filesystem::path former = std::filesystem::current_path();
    std::filesystem::create_directory(dir / "sub");
    std::filesystem::current_path(dir.Path());
    {
        const RootDir root("./sub/../sub");
        EXPECT_EQ(SZF_PIDPATH, dir.Path() + "/sub/var/run/vukocrond.pid");
    }
    std::filesystem::current_path(former);
}

TEST(RootDir, MakesTheFoldersThatTheServiceNeeds) {
    const support::TempDir dir;
    const RootDir root(dir.Path());
    EXPECT_EQ(root.MakeFolders(), "");
    for (const char* const szFolder :
         {"/usr/vuko/share/vukocron.d", "/usr/vuko/etc/vukocron.d", "/usr/local/etc/vukocron.d",
          "/usr/local/etc/vukocron_nonroot.d", "/var/run", "/var/log"}) {
        EXPECT_EQ(support::ModeOf(dir.Path() + szFolder), 0755) << szFolder;
    }
    EXPECT_EQ(support::ModeOf(dir / "tmp"), 01777);
    EXPECT_EQ(root.MakeFolders(), ""); // and leaves them as they are
}

TEST(RootDir, TellsWhyAFolderCannotBeMade) {
    const support::TempDir dir;
    support::WriteFile(dir / "usr", "");
    const RootDir root(dir.Path());
    EXPECT_EQ(root.MakeFolders(), dir.Path() + "/usr/vuko/share/vukocron.d cannot be made: Not a directory");
}
