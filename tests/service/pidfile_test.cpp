#include "service/pidfile.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

class PidFileTest : public testing::Test {
protected:
    /// What another process is told: an empty text when it got the file.
    std::string OthersAttempt() const {
        const support::ChildEnd end = support::RunForked([this](int iFdOut) {
            const PidFile pidFile(_strPath);
            return dprintf(iFdOut, "%s", pidFile.WhyNot().c_str()) < 0 || pidFile.IsHeld() != pidFile.WhyNot().empty();
        });
        EXPECT_EQ(end.iExitStatus, 0);
        return end.strOutput;
    }

    support::TempDir _dir;
    std::string _strPath = _dir / "service.pid";
};

} // namespace

TEST_F(PidFileTest, HoldsTheProcessIdWhileItLives) {
    {
        const PidFile pidFile(_strPath);
        EXPECT_TRUE(pidFile.IsHeld());
        EXPECT_EQ(support::ReadFile(_strPath), std::to_string(getpid()) + "\n");
    }
    EXPECT_FALSE(support::Exists(_strPath));
}

TEST_F(PidFileTest, IsRefusedToASecondProcessWhichIsToldWhoHoldsIt) {
    {
        const PidFile pidFile(_strPath);
        EXPECT_EQ(OthersAttempt(),
                  "another instance is running: process " + std::to_string(getpid()) + " holds " + _strPath);
        EXPECT_EQ(support::ReadFile(_strPath), std::to_string(getpid()) + "\n");
    }
    EXPECT_EQ(OthersAttempt(), "");
}

TEST_F(PidFileTest, TakesOverWhatAKilledProcessLeft) {
    support::WriteFile(_strPath, "1234567890123\nand more\n");
    const PidFile pidFile(_strPath);
    EXPECT_TRUE(pidFile.IsHeld());
    EXPECT_EQ(support::ReadFile(_strPath), std::to_string(getpid()) + "\n");
}

TEST_F(PidFileTest, IsNotHeldByAChildThatOutlivesTheService) {
    int aPipe[2] = {-1, -1};
    ASSERT_EQ(pipe(aPipe), 0);
    pid_t pidJob = 0;
    {
        const PidFile pidFile(_strPath);
        pidJob = fork();
        if (pidJob == 0) {
            char c = 0;
            close(aPipe[1]);
            [[maybe_unused]] const ssize_t iRead = read(aPipe[0], &c, 1); // until the test ends it
            _exit(0);
        }
        close(aPipe[0]);
    }
    EXPECT_EQ(OthersAttempt(), "");
    close(aPipe[1]);
    EXPECT_EQ(support::WaitFor(pidJob), 0);
}

TEST_F(PidFileTest, LeavesAFileAloneThatSomebodyPutInItsPlace) {
    {
        const PidFile pidFile(_strPath);
        std::filesystem::remove(_strPath);
        support::WriteFile(_strPath, "theirs\n");
    }
    EXPECT_EQ(support::ReadFile(_strPath), "theirs\n");
}

TEST_F(PidFileTest, FollowsNoLinkAndTakesNoPipe) {
    support::WriteFile(_dir / "target", "precious\n");
    std::filesystem::create_symlink(_dir / "target", _strPath);
    const PidFile pidFile(_strPath);
    EXPECT_FALSE(pidFile.IsHeld());
    EXPECT_EQ(pidFile.WhyNot(), _strPath + " cannot be opened: Too many levels of symbolic links");
    EXPECT_EQ(support::ReadFile(_dir / "target"), "precious\n");

    ASSERT_EQ(mkfifo((_dir / "pipe").c_str(), 0600), 0);
    const PidFile pipe(_dir / "pipe");
    EXPECT_EQ(pipe.WhyNot(), (_dir / "pipe") + " is not a regular file");
}

TEST_F(PidFileTest, TellsOfAMissingFolder) {
    const PidFile pidFile(_dir / "missing/service.pid");
    EXPECT_FALSE(pidFile.IsHeld());
    EXPECT_EQ(pidFile.WhyNot(), (_dir / "missing/service.pid") + " cannot be opened: No such file or directory");
}

TEST_F(PidFileTest, IsNotInheritedByPrograms) {
    const PidFile pidFile(_strPath);
    int iFound = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == _strPath) {
            ++iFound;
            EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    EXPECT_EQ(iFound, 1);
}

/// Anybody may take a lock for reading on a file that he may read; an instance's is for writing.
TEST_F(PidFileTest, IsNotKeptFromTheServiceByAReader) {
    support::WriteFile(_strPath, "1\n");
    const int iFd = open(_strPath.c_str(), O_RDONLY | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    ASSERT_EQ(fcntl(iFd, F_OFD_SETLK, &lock), 0);
    const PidFile pidFile(_strPath);
    EXPECT_TRUE(pidFile.IsHeld()) << pidFile.WhyNot();
    EXPECT_EQ(support::ReadFile(_strPath), std::to_string(getpid()) + "\n");
    close(iFd);
}
