#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "platform/vukosdk.h"
#include "tests/platform/errors.h"
#include "tests/platform/nobody.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

using support::ModeOf;
using support::TempDir;
using support::WithMarkedErrno;

int Make(const std::string& strPath, mode_t mode = 0750) {
    return VUKOFSMkdirP(strPath.c_str(), 0, 1, geteuid(), getegid(), mode);
}

void ExpectRefused(const char* szPath, int iExpected) {
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([&] { return VUKOFSMkdirP(szPath, 0, 1, geteuid(), getegid(), 0750); }, iErrno), -1)
        << szPath;
    support::ExpectFailedWith(iErrno, iExpected);
}

TEST(MkdirP, MakesTheFolderAndItsMissingParents) {
    const TempDir dir;
    EXPECT_EQ(Make(dir / "a/b/c"), 0);
    for (const char* const szName : {"a", "a/b", "a/b/c"}) {
        EXPECT_EQ(ModeOf(dir / szName), 0750) << szName;
    }
}

TEST(MkdirP, GivesExactlyTheModeAskedForWhateverTheUmask) {
    for (const mode_t uMask : {0000U, 0022U, 0077U, 0777U}) {
        for (const mode_t mode : {0700U, 0750U, 0777U, 01777U, 02775U, 0070U}) {
            const TempDir dir;
            chmod(dir.Path().c_str(), 0777);
            const support::ChildEnd end = support::RunForked([&](int) {
                support::BecomeNobody();
                umask(uMask);
                return Make(dir / "new", mode) == 0 && ModeOf(dir / "new") == static_cast<int>(mode) ? 0 : 1;
            });
            EXPECT_EQ(end.iExitStatus, 0) << std::oct << uMask << " " << mode;
        }
    }
}

TEST(MkdirP, LeavesFoldersThatAreThereAsTheyAre) {
    const TempDir dir;
    ASSERT_EQ(mkdir((dir / "old").c_str(), 0705), 0);
    chmod((dir / "old").c_str(), 0705);
    EXPECT_EQ(Make(dir / "old/new"), 0);
    EXPECT_EQ(Make(dir / "old"), 0);
    EXPECT_EQ(ModeOf(dir / "old"), 0705);
    EXPECT_EQ(ModeOf(dir / "old/new"), 0750);
}

TEST(MkdirP, LeavesErrnoAloneWhenTheFolderIsThere) {
    const TempDir dir;
    for (int iRound = 0; iRound < 2; ++iRound) { // made, then found
        int iErrno = 0;
        EXPECT_EQ(WithMarkedErrno([&] { return Make(dir / "a/b"); }, iErrno), 0);
        EXPECT_EQ(iErrno, support::ERRNO_MARK);
    }
}

TEST(MkdirP, ReadsAPathAsTheKernelDoes) {
    const TempDir dir;
    EXPECT_EQ(Make(dir / "/a//b///"), 0);
    EXPECT_EQ(Make(dir / "./c/./d/."), 0);
    EXPECT_EQ(Make(dir / "e/../f"), 0);
    EXPECT_EQ(Make("/"), 0);
    EXPECT_EQ(Make("//"), 0);
    EXPECT_EQ(Make("."), 0);
    EXPECT_EQ(Make(".."), 0);
    for (const char* const szName : {"a/b", "c/d", "e", "f"}) {
        EXPECT_EQ(ModeOf(dir / szName), 0750) << szName;
    }
}

TEST(MkdirP, StartsARelativePathInTheWorkingFolder) {
    const TempDir dir;
    const support::ChildEnd end = support::RunForked(
        [&](int) { return chdir(dir.Path().c_str()) == 0 && Make("a/b") == 0 && Make("../") == 0 ? 0 : 1; });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(ModeOf(dir / "a/b"), 0750);
}

TEST(MkdirP, GoesThroughLinksToFolders) {
    const TempDir dir;
    ASSERT_EQ(mkdir((dir / "real").c_str(), 0700), 0);
    ASSERT_EQ(symlink("real", (dir / "link").c_str()), 0);
    EXPECT_EQ(Make(dir / "link/new"), 0);
    EXPECT_EQ(Make(dir / "link"), 0);
    EXPECT_EQ(ModeOf(dir / "real/new"), 0750);
}

TEST(MkdirP, RefusesWhatCannotBecomeAFolder) {
    const TempDir dir;
    support::WriteFile(dir / "file", "");
    ASSERT_EQ(symlink("missing", (dir / "dangling").c_str()), 0);
    ExpectRefused((dir / "file").c_str(), ENOTDIR);
    ExpectRefused((dir / "file/under").c_str(), ENOTDIR);
    ExpectRefused((dir / "dangling").c_str(), ENOENT);
    ExpectRefused((dir / "dangling/under").c_str(), ENOENT);
    ExpectRefused((dir / std::string(256, 'x')).c_str(), ENAMETOOLONG);
    ExpectRefused("", ENOENT);
    ExpectRefused(nullptr, EFAULT);
    EXPECT_EQ(Make(dir / std::string(255, 'x')), 0);
}

TEST(MkdirP, KeepsParentsThatWereMadeBeforeTheFailure) {
    const TempDir dir;
    ExpectRefused((dir / ("a/" + std::string(256, 'x'))).c_str(), ENAMETOOLONG);
    EXPECT_EQ(ModeOf(dir / "a"), 0750);
}

TEST(MkdirP, MakesNothingWithoutTheRightTo) {
    const TempDir dir;
    chmod(dir.Path().c_str(), 0755);
    ASSERT_EQ(mkdir((dir / "closed").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((dir / "closed/old").c_str(), 0755), 0);
    chmod((dir / "closed").c_str(), 0555);
    const support::ChildEnd end = support::RunForked([&](int) {
        support::BecomeNobody();
        if (Make(dir / "closed/new") != -1 || errno != EACCES) {
            return 1;
        }
        return Make(dir / "closed/old") == 0 ? 0 : 2; // what is there is found all the same
    });
    EXPECT_EQ(end.iExitStatus, 0);
    chmod((dir / "closed").c_str(), 0755);
}

TEST(MkdirP, RemovesAFolderThatItCannotGiveAway) {
    const TempDir dir;
    chmod(dir.Path().c_str(), 0777);
    const support::ChildEnd end = support::RunForked([&](int) {
        support::BecomeNobody();
        return VUKOFSMkdirP((dir / "new").c_str(), 0, 1, 0, 0, 0750) == -1 && errno == EPERM ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_FALSE(support::Exists(dir / "new"));
}

TEST(MkdirP, SharesItsWorkWithOthersThatMakeTheSamePath) {
    for (int iRound = 0; iRound < 20; ++iRound) {
        const TempDir dir;
        std::vector<std::thread> vecThreads;
        for (int iThread = 0; iThread < 4; ++iThread) {
            vecThreads.emplace_back([&dir] { EXPECT_EQ(Make(dir / "a/b/c/d/e/f/g/h"), 0) << strerror(errno); });
        }
        for (std::thread& thread : vecThreads) {
            thread.join();
        }
        EXPECT_EQ(ModeOf(dir / "a/b/c/d/e/f/g/h"), 0750);
    }
}

TEST(MkdirP, LeavesNoDescriptorOpen) {
    const TempDir dir;
    const std::vector<int> vecBefore = support::OpenDescriptors();
    EXPECT_EQ(Make(dir / "a/b/c"), 0);
    ExpectRefused((dir / ("d/" + std::string(256, 'x'))).c_str(), ENAMETOOLONG);
    EXPECT_EQ(support::OpenDescriptors(), vecBefore);
}

} // namespace
