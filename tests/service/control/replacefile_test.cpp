#include "service/replacefile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <set>
#include <string>

#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

std::set<std::string> NamesIn(const support::TempDir& dir) {
    std::set<std::string> setNames;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
        setNames.insert(entry.path().filename());
    }
    return setNames;
}

} // namespace

TEST(ReplaceFileTest, PutsTheTextThereWithItsMode) {
    const support::TempDir dir;
    for (const Durability eDurability : {Durability::Written, Durability::Synced}) {
        const std::string strText(100000, eDurability == Durability::Synced ? 's' : 'w');
        EXPECT_EQ(ReplaceFile(dir / "file", strText, 0640, eDurability), "");
        EXPECT_EQ(support::ReadFile(dir / "file"), strText);
        EXPECT_EQ(support::ModeOf(dir / "file"), 0640);
    }
    EXPECT_EQ(NamesIn(dir), std::set<std::string>{"file"});
}

TEST(ReplaceFileTest, ReplacesALinkAndNotWhatItLeadsTo) {
    const support::TempDir dir;
    support::WriteFile(dir / "target", "old");
    std::filesystem::create_symlink(dir / "target", dir / "link");
    EXPECT_EQ(ReplaceFile(dir / "link", "new", 0644, Durability::Written), "");
    EXPECT_EQ(support::ReadFile(dir / "target"), "old");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(dir / "link")));
}

TEST(ReplaceFileTest, LeavesWhatIsNoFileAlone) {
    const support::TempDir dir;
    std::filesystem::create_directory(dir / "folder");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(ReplaceFile(dir / "folder", "x", 0644, Durability::Written),
              dir / "folder" + " cannot be written: File exists");
    EXPECT_EQ(ReplaceFile(dir / "pipe", "x", 0644, Durability::Written),
              dir / "pipe" + " cannot be written: File exists");
    EXPECT_EQ(NamesIn(dir), (std::set<std::string>{"folder", "pipe"}));
}

TEST(ReplaceFileTest, LeavesTheOldFileWhenTheNewOneDoesNotFit) {
    const support::TempDir dir;
    support::WriteFile(dir / "file", "old");
    rlimit former = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto pFormerHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tight = {1000, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    const std::string strReason = ReplaceFile(dir / "file", std::string(2000, 'x'), 0644, Durability::Written);
    setrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, pFormerHandler);
    EXPECT_EQ(strReason, dir / "file" + " cannot be written: File too large");
    EXPECT_EQ(support::ReadFile(dir / "file"), "old");
    EXPECT_EQ(NamesIn(dir), std::set<std::string>{"file"});
}
