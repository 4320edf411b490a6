#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/vukojson.h"
#include "tests/platform/errors.h"
#include "tests/platform/nobody.h"
#include "tests/platform/private_mounts.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

using support::ReadFile;
using support::WithMarkedErrno;

class JsonWriteAsRoot : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        _mounts = std::make_unique<support::PrivateMounts>();
    }

    void ExpectRefused(const Json::Value& jsValue, int iExpected) {
        int iErrno = 0;
        EXPECT_FALSE(WithMarkedErrno([&] { return VUKO::JSON::toFile(jsValue, _dir / "file", true); }, iErrno));
        support::ExpectFailedWith(iErrno, iExpected);
        EXPECT_EQ(ReadFile(_dir / "file"), "\"old\"\n");
        for (const auto& entry : std::filesystem::directory_iterator(_dir.Path())) {
            EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path() << " is left";
        }
    }

    support::TempDir _dir;
    std::unique_ptr<support::PrivateMounts> _mounts;
};

TEST_F(JsonWriteAsRoot, HandsOwnerGroupAndModeOfTheOldFileOn) {
    support::WriteFile(_dir / "file", "x");
    ASSERT_EQ(chown((_dir / "file").c_str(), 12345, 23456), 0);
    ASSERT_EQ(chmod((_dir / "file").c_str(), 06755), 0);
    ASSERT_TRUE(VUKO::JSON::toFile("new", _dir / "file"));
    struct stat stFile = {};
    ASSERT_EQ(stat((_dir / "file").c_str(), &stFile), 0);
    EXPECT_EQ(stFile.st_uid, 12345U);
    EXPECT_EQ(stFile.st_gid, 23456U);
    EXPECT_EQ(stFile.st_mode & 07777U, 06755U);
}

TEST_F(JsonWriteAsRoot, GivesANewFileItsOwnIds) {
    ASSERT_EQ(chown(_dir.Path().c_str(), 12345, 23456), 0);
    ASSERT_TRUE(VUKO::JSON::toFile("new", _dir / "file"));
    struct stat stFile = {};
    ASSERT_EQ(stat((_dir / "file").c_str(), &stFile), 0);
    EXPECT_EQ(stFile.st_uid, 0U);
    EXPECT_EQ(stFile.st_gid, getegid());
}

TEST_F(JsonWriteAsRoot, DoesNotTakeAnotherOwnersFileAway) {
    ASSERT_TRUE(VUKO::JSON::toFile("old", _dir / "file"));
    ASSERT_EQ(chmod(_dir.Path().c_str(), 0777), 0);
    ASSERT_EQ(chmod((_dir / "file").c_str(), 0644), 0);
    const support::ChildEnd end = support::RunForked([&](int) {
        support::BecomeNobody();
        return !VUKO::JSON::toFile("new", _dir / "file") && errno == EPERM ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(ReadFile(_dir / "file"), "\"old\"\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(_dir.Path()), {}), 1);
}

TEST_F(JsonWriteAsRoot, LeavesTheOldFileWholeOnAFullDisk) {
    _mounts->MountMemory(_dir.Path(), "size=64k");
    ASSERT_TRUE(VUKO::JSON::toFile("old", _dir / "file"));
    ExpectRefused(std::string(200000, 'x'), ENOSPC);
    std::ofstream(_dir / "filler") << std::string(100000, 'x');
    ExpectRefused("new", ENOSPC);
}

TEST_F(JsonWriteAsRoot, LeavesTheOldFileWholeWhereNoFileCanBeMade) {
    _mounts->MountMemory(_dir.Path(), "nr_inodes=2"); // the folder and one file
    ASSERT_TRUE(VUKO::JSON::toFile("old", _dir / "file"));
    ExpectRefused("new", ENOSPC);
}

TEST_F(JsonWriteAsRoot, LeavesTheOldFileWholeOnAReadOnlyDisk) {
    ASSERT_TRUE(VUKO::JSON::toFile("old", _dir / "file"));
    _mounts->MakeReadOnly(_dir.Path());
    ExpectRefused("new", EROFS);
}

} // namespace
