// The lock that keeps processes from losing each other's lines. Two locks of one process exclude each other as those of
// two processes do.

#include "logger/staginglock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>

#include "tests/logger/logger_fixture.h"
#include "tests/support/scoped_umask.h"

using support::Exists;
using support::WriteFile;
using VUKO::StagingLock;

namespace {

class LockOfTheMemoryLogFile : public LoggerOnFiles {
protected:
    static constexpr auto CREATE = StagingLock::IfMissing::Create;
    static constexpr auto LEAVE = StagingLock::IfMissing::Leave;
    static constexpr std::chrono::milliseconds AT_ONCE{0};

    bool IsFree() const {
        const StagingLock lock(_strMemLog, LEAVE, AT_ONCE);
        return lock.IsHeld();
    }

    /// Does something just before the next lock is asked for, when the file has been opened already.
    void BeforeTheNextLock(const std::function<void()>& action) {
        fake::Files().onCall = [action](const std::string& strCall) {
            if (strCall == "flock") {
                fake::Files().onCall = nullptr;
                action();
            }
        };
    }
};

TEST_F(LockOfTheMemoryLogFile, MakesTheFileWithTheDefaultMode) {
    const support::ScopedUmask mask(027);
    const StagingLock lock(_strMemLog, CREATE);
    EXPECT_TRUE(lock.IsHeld());
    EXPECT_FALSE(lock.WasMissing());
    EXPECT_EQ(support::ModeOf(_strMemLog), 0640);
}

TEST_F(LockOfTheMemoryLogFile, MakesNoFileWhereItIsNotAskedTo) {
    errno = 0;
    const StagingLock lock(_strMemLog, LEAVE);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(lock.IsHeld());
    EXPECT_TRUE(lock.WasMissing());
    EXPECT_FALSE(Exists(_strMemLog));
}

TEST_F(LockOfTheMemoryLogFile, LeavesTheContentAlone) {
    WriteFile(_strMemLog, "staged\n");
    { const StagingLock lock(_strMemLog, CREATE); }
    { const StagingLock lock(_strMemLog, LEAVE); }
    EXPECT_EQ(MemLog(), "staged\n");
}

TEST_F(LockOfTheMemoryLogFile, KeepsOthersOutWhileItLives) {
    {
        const StagingLock lock(_strMemLog, CREATE);
        EXPECT_FALSE(IsFree());
    }
    EXPECT_TRUE(IsFree());
}

TEST_F(LockOfTheMemoryLogFile, IsHeldDuringEachCopyAndFreeAfterwards) {
    std::vector<std::string> vecHeldAt;
    const auto watch = [this, &vecHeldAt](const std::string& strCall) {
        if (strCall.starts_with("open ") || strCall.starts_with("chmod ")) {
            const auto onCall = std::exchange(fake::Files().onCall, nullptr);
            if (!IsFree()) {
                vecHeldAt.push_back(strCall.substr(0, strCall.find(' ')) +
                                    (strCall.find(_strLog) == std::string::npos ? " staged" : " log"));
            }
            fake::Files().onCall = onCall;
        }
    };
    _logger._ssLog << "line\n";
    fake::Files().onCall = watch;
    _logger.SoftFlush();
    EXPECT_EQ(vecHeldAt, Messages{"open staged"});
    vecHeldAt.clear();
    _logger.Flush();
    EXPECT_EQ(vecHeldAt, (Messages{"open log", "open staged", "chmod log"}));
    fake::Files().onCall = nullptr;
    WriteFile(_strMemLog, "");
    EXPECT_TRUE(IsFree());
}

TEST_F(LockOfTheMemoryLogFile, IsTakenOnTheNewFileWhenTheOldOneWasDeletedMeanwhile) {
    WriteFile(_strMemLog, "old");
    BeforeTheNextLock([this] {
        ASSERT_EQ(::unlink(_strMemLog.c_str()), 0);
        WriteFile(_strMemLog, "new");
    });
    const StagingLock lock(_strMemLog, LEAVE);
    EXPECT_TRUE(lock.IsHeld());
    EXPECT_FALSE(IsFree());
}

TEST_F(LockOfTheMemoryLogFile, FindsNoFileWhenTheHolderDeletedIt) {
    WriteFile(_strMemLog, "old");
    BeforeTheNextLock([this] { ASSERT_EQ(::unlink(_strMemLog.c_str()), 0); });
    const StagingLock lock(_strMemLog, LEAVE);
    EXPECT_TRUE(lock.WasMissing());
}

TEST_F(LockOfTheMemoryLogFile, SendsALineToANewFileWhenTheOpenedOneIsMovedOnFirst) {
    WriteFile(_strMemLog, "of another\n");
    BeforeTheNextLock([this] {
        VUKO::MemoryLogger another(_strLog, _strMemLog, LIMIT_KB);
        another.Flush();
    });
    _logger._ssLog << "own\n";
    _logger.SoftFlush();
    EXPECT_EQ(Log(), "of another\n");
    EXPECT_EQ(MemLog(), "own\n");
}

TEST_F(LockOfTheMemoryLogFile, KeepsAFileThatTwoFlushAtOnceFromBeingCopiedTwice) {
    WriteFile(_strMemLog, "staged\n");
    BeforeTheNextLock([this] {
        VUKO::MemoryLogger another(_strLog, _strMemLog, LIMIT_KB);
        another.Flush();
    });
    _logger.Flush();
    EXPECT_EQ(Log(), "staged\n");
    EXPECT_EQ(
        _syslog.Take(),
        Messages{"<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)"});
}

TEST_F(LockOfTheMemoryLogFile, LeavesAFileAloneThatAnotherBeginsWhileAFlushFoundNone) {
    fake::Files().onCall = [this](const std::string& strCall) {
        if (strCall == "open " + _strLog) {
            fake::Files().onCall = nullptr;
            VUKO::MemoryLogger another(_strLog, _strMemLog, LIMIT_KB);
            another._ssLog << "of another\n";
            another.SoftFlush();
        }
    };
    _logger.Flush();
    EXPECT_EQ(
        _syslog.Take(),
        Messages{"<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)"});
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(MemLog(), "of another\n");
}

TEST_F(LockOfTheMemoryLogFile, IsGivenUpWhenItsHolderDoesNotLetGo) {
    errno = 0;
    const StagingLock holder(_strMemLog, CREATE);
    const StagingLock lock(_strMemLog, CREATE, std::chrono::milliseconds(1));
    EXPECT_FALSE(lock.IsHeld());
    EXPECT_FALSE(lock.WasMissing());
    EXPECT_EQ(errno, 0) << "a message that follows takes its form from errno";
}

TEST_F(LockOfTheMemoryLogFile, IsDoneWithoutWhereFilesCannotBeLocked) {
    fake::Files().iFlockErrno = ENOLCK;
    _logger._ssLog << "line\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "line\n");
    EXPECT_FALSE(Exists(_strMemLog));
}

TEST_F(LockOfTheMemoryLogFile, IsDoneWithoutWhereNoFileIs) {
    ASSERT_EQ(::mkdir(_strMemLog.c_str(), 0700), 0);
    _logger._ssLog << "line\n";
    _logger.SoftFlush();
    EXPECT_EQ(_syslog.Take(), Messages{"<3>memorylogger:68 open memory logger failed (Is a directory)"});
    EXPECT_EQ(Buffered(), "line\n");
}

TEST_F(LockOfTheMemoryLogFile, IsNotInheritedByPrograms) {
    const int iNext = ::dup(STDOUT_FILENO); // the number that the lock's descriptor gets
    ::close(iNext);
    const StagingLock lock(_strMemLog, CREATE);
    ASSERT_TRUE(lock.IsHeld());
    EXPECT_NE(::fcntl(iNext, F_GETFD) & FD_CLOEXEC, 0);
}

} // namespace
