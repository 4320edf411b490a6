// What reaches each file, and when.

#include <sys/stat.h>
#include <unistd.h>

#include <limits>

#include "tests/logger/logger_fixture.h"
#include "tests/support/forked.h"
#include "tests/support/scoped_umask.h"

using support::Exists;
using support::ModeOf;
using support::ScopedUmask;
using support::WriteFile;
using VUKO::MemoryLogger;

namespace {

class LogFlush : public LoggerOnFiles {};

/// Megabytes in which every byte value occurs, so that nothing which treats one of them specially goes unnoticed. The
/// period is no multiple of any buffer's size.
std::string EveryByte() {
    std::string strPeriod;
    unsigned uState = 12345;
    while (strPeriod.size() < 65537) {
        uState = uState * 1664525U + 1013904223U;
        strPeriod += static_cast<char>(uState >> 24U);
    }
    std::string strBytes;
    while (strBytes.size() < 5'000'000) {
        strBytes += strPeriod;
    }
    return strBytes;
}

TEST_F(LogFlush, InsertingALineTouchesNoFile) {
    _logger._ssLog << _logger.GetNewLine() << "text\n";
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_FALSE(Exists(_strLog));
}

TEST_F(LogFlush, SoftFlushAppendsTheBufferToTheMemoryLogFileAndEmptiesIt) {
    WriteFile(_strMemLog, "before\n");
    WriteFile(_strLog, "old\n");
    _logger._ssLog << "one\n"
                   << "two\n";
    _logger.SoftFlush();
    EXPECT_EQ(MemLog(), "before\none\ntwo\n");
    EXPECT_EQ(Buffered(), "");
    EXPECT_EQ(Log(), "old\n");
    _logger._ssLog << "three\n";
    _logger.SoftFlush();
    EXPECT_EQ(MemLog(), "before\none\ntwo\nthree\n");
}

TEST_F(LogFlush, SoftFlushMakesTheMemoryLogFileWithTheDefaultMode) {
    const ScopedUmask mask(027);
    _logger._ssLog << "line\n";
    _logger.SoftFlush();
    EXPECT_EQ(ModeOf(_strMemLog), 0640);
}

TEST_F(LogFlush, SoftFlushLeavesTheModeOfAnExistingMemoryLogFile) {
    WriteFile(_strMemLog, "");
    ASSERT_EQ(::chmod(_strMemLog.c_str(), 0604), 0);
    _logger._ssLog << "line\n";
    _logger.SoftFlush();
    EXPECT_EQ(ModeOf(_strMemLog), 0604);
}

TEST_F(LogFlush, SoftFlushOfAnEmptyBufferMakesAnEmptyMemoryLogFile) {
    _logger.SoftFlush();
    EXPECT_TRUE(Exists(_strMemLog));
    EXPECT_EQ(MemLog(), "");
    EXPECT_FALSE(Exists(_strLog));
}

TEST_F(LogFlush, TheBufferTakesTextAgainAfterAnEmptySoftFlush) {
    _logger.SoftFlush();
    _logger._ssLog << "line\n";
    _logger.SoftFlush();
    EXPECT_EQ(MemLog(), "line\n");
}

TEST_F(LogFlush, TheBufferTakesTextAgainAfterAWritersFailedInsertion) {
    _logger._ssLog << static_cast<std::streambuf*>(nullptr);
    ASSERT_TRUE(_logger._ssLog.fail());
    _logger.SoftFlush();
    _logger._ssLog << "line\n";
    _logger.SoftFlush();
    EXPECT_EQ(MemLog(), "line\n");
}

TEST_F(LogFlush, SoftFlushKeepsTheBufferWhenTheMemoryLogFileCannotBeOpened) {
    _logger._strMemLogPath = _dir / "missing/staged.log";
    _logger._ssLog << "one\n";
    _logger.SoftFlush();
    _logger._ssLog << "two\n";
    _logger.SoftFlush();
    EXPECT_EQ(_syslog.Take().size(), 2U);
    EXPECT_EQ(Buffered(), "one\ntwo\n");
    ASSERT_EQ(::mkdir((_dir / "missing").c_str(), 0700), 0);
    _logger.SoftFlush();
    EXPECT_EQ(support::ReadFile(_dir / "missing/staged.log"), "one\ntwo\n");
    EXPECT_EQ(Buffered(), "");
}

TEST_F(LogFlush, SoftFlushMovesAnOlderFileThatIsOverTheLimitOnEvenIfItCannotAppend) {
    WriteFile(_strMemLog, std::string(1025, 'o'));
    fake::Files().strFailOpen = _strMemLog;
    fake::Files().iOpenErrno = EMFILE;
    int iOpened = 0;
    fake::Files().onCall = [this, &iOpened](const std::string& strCall) {
        if (strCall == "open " + _strMemLog && ++iOpened == 2) {
            fake::Files().strFailOpen.clear(); // the second opening is the one to read
        }
    };
    _logger._ssLog << "kept";
    _logger.SoftFlush();
    EXPECT_EQ(_syslog.Take(), Messages{"<3>memorylogger:68 open memory logger failed (Too many open files)"});
    EXPECT_EQ(Log(), std::string(1025, 'o'));
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Buffered(), "kept");
}

TEST_F(LogFlush, AFileExactlyAtTheLimitStays) {
    _logger._ssLog << std::string(1024, 'x');
    _logger.SoftFlush();
    EXPECT_EQ(MemLog().size(), 1024U);
    EXPECT_FALSE(Exists(_strLog));
}

TEST_F(LogFlush, AFileOneByteOverTheLimitIsMovedOn) {
    _logger._ssLog << std::string(1025, 'x');
    _logger.SoftFlush();
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Log(), std::string(1025, 'x'));
    EXPECT_EQ(ModeOf(_strLog), 0600);
}

TEST_F(LogFlush, ALimitOfZeroMovesEveryFileOnThatIsNotEmpty) {
    MemoryLogger logger(_strLog, _strMemLog, 0);
    logger.SoftFlush();
    EXPECT_TRUE(Exists(_strMemLog));
    EXPECT_FALSE(Exists(_strLog));
    logger._ssLog << "x";
    logger.SoftFlush();
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Log(), "x");
}

TEST_F(LogFlush, SizesAreComparedUnsigned) {
    MemoryLogger logger(_strLog, _strMemLog, std::numeric_limits<unsigned long>::max());
    logger._ssLog << "x"; // a signed limit would be -1024, and every file over it
    logger.SoftFlush();
    EXPECT_EQ(MemLog(), "x");
}

TEST_F(LogFlush, TheLimitIsShiftedSoThatHighBitsFallOff) {
    MemoryLogger logger(_strLog, _strMemLog, 1UL << 54);
    logger._ssLog << "x";
    logger.SoftFlush();
    EXPECT_EQ(Log(), "x");
}

TEST_F(LogFlush, FlushAppendsTheWholeMemoryLogFileAndDeletesIt) {
    WriteFile(_strLog, "old\n");
    WriteFile(_strMemLog, "one\ntwo\n");
    _logger._ssLog << "buffered\n";
    _logger.Flush();
    EXPECT_EQ(Log(), "old\none\ntwo\n");
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Buffered(), "buffered\n");
}

TEST_F(LogFlush, FlushTurnsMode0644Into0600WhenItCopies) {
    WriteFile(_strLog, "old\n");
    ASSERT_EQ(::chmod(_strLog.c_str(), 0644), 0);
    WriteFile(_strMemLog, "one\n");
    _logger.Flush();
    EXPECT_EQ(ModeOf(_strLog), 0600);
}

TEST_F(LogFlush, FlushOfAnEmptyMemoryLogFileStillSetsTheMode) {
    WriteFile(_strLog, "old\n");
    ASSERT_EQ(::chmod(_strLog.c_str(), 0666), 0);
    WriteFile(_strMemLog, "");
    _logger.Flush();
    EXPECT_EQ(Log(), "old\n");
    EXPECT_EQ(ModeOf(_strLog), 0600);
    EXPECT_FALSE(Exists(_strMemLog));
}

TEST_F(LogFlush, FlushWithoutAMemoryLogFileLeavesTheModeOfTheLog) {
    WriteFile(_strLog, "old\n");
    ASSERT_EQ(::chmod(_strLog.c_str(), 0644), 0);
    _logger.Flush();
    EXPECT_EQ(_syslog.Take().size(), 1U);
    EXPECT_EQ(ModeOf(_strLog), 0644);
    EXPECT_EQ(Log(), "old\n");
}

TEST_F(LogFlush, ALogMadeByAFlushWithoutAMemoryLogFileKeepsTheDefaultModeUntilALaterCopy) {
    const ScopedUmask mask(022);
    _logger.Flush();
    EXPECT_EQ(_syslog.Take().size(), 1U);
    EXPECT_EQ(ModeOf(_strLog), 0644);
    EXPECT_FALSE(Exists(_strMemLog));
    _logger._ssLog << "line\n";
    _logger.FlushAll();
    EXPECT_EQ(ModeOf(_strLog), 0600);
}

TEST_F(LogFlush, FlushDeletesAMemoryLogFileThatItCannotRead) {
    WriteFile(_strMemLog, "staged\n");
    WriteFile(_strLog, "old\n");
    fake::Files().strFailOpen = _strMemLog;
    fake::Files().iOpenErrno = EACCES;
    _logger.Flush();
    EXPECT_EQ(_syslog.Take().size(), 1U);
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Log(), "old\n");
}

TEST_F(LogFlush, FlushLosesTheStagedTextWhenTheLogCannotBeOpened) {
    _logger._strLogPath = _dir / "missing/execute.log";
    WriteFile(_strMemLog, "staged\n");
    _logger._ssLog << "buffered\n";
    _logger.Flush();
    EXPECT_EQ(_syslog.Take().size(), 1U);
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Buffered(), "buffered\n");
    ASSERT_EQ(::mkdir((_dir / "missing").c_str(), 0700), 0);
    _logger.FlushAll();
    EXPECT_EQ(support::ReadFile(_dir / "missing/execute.log"), "buffered\n");
}

TEST_F(LogFlush, FlushAllBringsEverythingBufferedToTheLog) {
    WriteFile(_strLog, "old\n");
    WriteFile(_strMemLog, "staged\n");
    _logger._ssLog << "one\n"
                   << "two\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "old\nstaged\none\ntwo\n");
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Buffered(), "");
    EXPECT_EQ(ModeOf(_strLog), 0600);
}

TEST_F(LogFlush, FlushAllWithNothingAtAllMakesAnEmptyLogOfMode0600) {
    const ScopedUmask mask(0);
    _logger.FlushAll();
    EXPECT_TRUE(Exists(_strLog));
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(ModeOf(_strLog), 0600);
    EXPECT_FALSE(Exists(_strMemLog));
}

TEST_F(LogFlush, FlushAllMovesAFileOverTheLimitOnOnceAndReportsThatTheSecondFlushFindsNone) {
    _logger._ssLog << std::string(1025, 'x');
    _logger.FlushAll();
    EXPECT_EQ(_syslog.Take(), Messages{"<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such "
                                       "file or directory)"});
    EXPECT_EQ(Log(), std::string(1025, 'x'));
    EXPECT_FALSE(Exists(_strMemLog));
}

TEST_F(LogFlush, CopiesMegabytesOfAnyBytesByteForByte) {
    const std::string strBytes = EveryByte();
    MemoryLogger logger(_strLog, _strMemLog, 1UL << 20);
    logger._ssLog.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
    logger.SoftFlush();
    EXPECT_TRUE(MemLog() == strBytes);
    logger.Flush();
    EXPECT_TRUE(Log() == strBytes);
    logger._ssLog.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
    logger.FlushAll();
    EXPECT_TRUE(Log() == strBytes + strBytes);
}

TEST_F(LogFlush, FollowsPathsThatAreSetAnew) {
    _logger._ssLog << "one\n";
    _logger.SoftFlush();
    _logger._strMemLogPath = _dir / "other.staged";
    _logger._strLogPath = _dir / "other.log";
    _logger._ssLog << "two\n";
    _logger.FlushAll();
    EXPECT_EQ(support::ReadFile(_dir / "other.log"), "two\n");
    EXPECT_EQ(MemLog(), "one\n");
    EXPECT_FALSE(Exists(_strLog));
}

TEST_F(LogFlush, AFileThatAnotherLoggerLeftBehindIsMovedOn) {
    {
        MemoryLogger earlier(_strLog, _strMemLog, LIMIT_KB);
        earlier._ssLog << "earlier\n";
        earlier.SoftFlush();
    }
    _logger._ssLog << "later\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "earlier\nlater\n");
}

TEST_F(LogFlush, TheDestructorWritesNothing) {
    {
        MemoryLogger logger(_strLog, _strMemLog, LIMIT_KB);
        logger._ssLog << "staged\n";
        logger.SoftFlush();
        logger._ssLog << "lost\n";
    }
    EXPECT_EQ(MemLog(), "staged\n");
    EXPECT_FALSE(Exists(_strLog));
}

TEST_F(LogFlush, ALoggerOnMissingFoldersCanBeMadeAndDestroyed) {
    const MemoryLogger logger(_dir / "a/b/log", _dir / "c/d/staged", 1);
    EXPECT_FALSE(Exists(_dir / "a"));
    EXPECT_FALSE(Exists(_dir / "c"));
}

TEST_F(LogFlush, AForkedChildWritesTheLinesThatItsParentHadBufferedAndSoDoesTheParent) {
    _logger._ssLog << "buffered before the fork\n";
    const support::ChildEnd end = support::RunForked([this](int) {
        _logger._ssLog << "of the child\n";
        _logger.FlushAll();
        return 0;
    });
    ASSERT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(Log(), "buffered before the fork\nof the child\n");
    EXPECT_EQ(Buffered(), "buffered before the fork\n");
    _logger.FlushAll();
    EXPECT_EQ(Log(), "buffered before the fork\nof the child\nbuffered before the fork\n");
}

/// Anybody may put one into /tmp; opening it would wait for ever, and the job with it.
TEST_F(LogFlush, DoesNotWaitForAPipeInThePlaceOfTheMemoryLogFileAndTakesItAway) {
    ASSERT_EQ(mkfifo(_strMemLog.c_str(), 0666), 0);
    _logger._ssLog << "line\n";
    errno = 0;
    _logger.FlushAll();
    EXPECT_EQ(
        _syslog.Take(),
        (Messages{"<3>memorylogger:68 open memory logger failed (No such device or address)",
                  "<3>memorylogger:50 Failed [!fsMem], err=No such device or address (No such device or address)"}));
    EXPECT_FALSE(Exists(_strMemLog));
    EXPECT_EQ(Buffered(), "line\n");
    _logger.FlushAll();
    EXPECT_EQ(Log(), "line\n");
}

TEST_F(LogFlush, FlushTakesALinkToNothingAway) {
    ASSERT_EQ(symlink((_dir / "nothing").c_str(), _strMemLog.c_str()), 0);
    _logger.Flush();
    EXPECT_EQ(
        _syslog.Take(),
        (Messages{"<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)"}));
    EXPECT_FALSE(Exists(_strMemLog));
}

} // namespace
