// Which of its two locks each operation holds, seen from the middle of the operation.

#include <boost/interprocess/sync/scoped_lock.hpp>

#include <map>

#include "tests/logger/logger_fixture.h"

using support::WriteFile;
using Mutex = boost::interprocess::interprocess_sharable_mutex;

namespace {

/// "exclusive", "shared" or "free".
std::string StateOf(Mutex& mutex) {
    if (mutex.try_lock()) {
        mutex.unlock();
        return "free";
    }
    if (mutex.try_lock_sharable()) {
        mutex.unlock_sharable();
        return "shared";
    }
    return "exclusive";
}

class LogLocks : public LoggerOnFiles {
protected:
    /// The states of both mutexes when each call of the C library was made; of several alike, the last one's.
    std::map<std::string, std::string> _mapStates;

    void Watch() {
        fake::Files().onCall = [this](const std::string& strCall) { _mapStates[strCall] = States(); };
    }
    std::string States() { return "log " + StateOf(_logger._mutexLog) + ", staged " + StateOf(_logger._mutexMemLog); }
};

TEST_F(LogLocks, SoftFlushHoldsTheMemoryLogFilesAloneWhileItHandsTheBufferOver) {
    Watch();
    _logger.SoftFlush();
    EXPECT_EQ(_mapStates["open " + _strMemLog], "log free, staged exclusive");
}

TEST_F(LogLocks, SoftFlushLooksAtTheSizeWithoutAnyLock) {
    Watch();
    _logger.SoftFlush();
    EXPECT_EQ(_mapStates["stat " + _strMemLog], "log free, staged free");
}

TEST_F(LogLocks, FlushHoldsTheLogsExclusivelyAndTheMemoryLogFilesShared) {
    WriteFile(_strMemLog, "staged\n");
    Watch();
    _logger.Flush();
    EXPECT_EQ(_mapStates["open " + _strLog], "log exclusive, staged shared");
    EXPECT_EQ(_mapStates["open " + _strMemLog], "log exclusive, staged shared");
    EXPECT_EQ(_mapStates["chmod " + _strLog + " 600"], "log exclusive, staged shared");
}

TEST_F(LogLocks, TheFlushThatSoftFlushCallsTakesItsOwn) {
    _logger._ssLog << std::string(1025, 'x');
    Watch();
    _logger.SoftFlush();
    EXPECT_EQ(_mapStates["chmod " + _strLog + " 600"], "log exclusive, staged shared");
}

TEST_F(LogLocks, AreFreeAfterEachOperation) {
    _logger.SoftFlush();
    EXPECT_EQ(States(), "log free, staged free");
    _logger.Flush();
    EXPECT_EQ(States(), "log free, staged free");
    _logger.FlushAll();
    EXPECT_EQ(States(), "log free, staged free");
}

TEST_F(LogLocks, AreFreeAfterEachOperationThatFailed) {
    _logger._strMemLogPath = _dir / "missing/staged.log";
    _logger.FlushAll();
    EXPECT_EQ(_syslog.Take().size(), 2U);
    EXPECT_EQ(States(), "log free, staged free");
    _logger._strLogPath = _dir / "missing/execute.log";
    _logger.Flush();
    EXPECT_EQ(_syslog.Take().size(), 1U);
    EXPECT_EQ(States(), "log free, staged free");
}

TEST_F(LogLocks, AreNotNeededForAStampOrForAnInsertion) {
    const boost::interprocess::scoped_lock<Mutex> lockLog(_logger._mutexLog);
    const boost::interprocess::scoped_lock<Mutex> lockMemLog(_logger._mutexMemLog);
    const std::string strStamp = _logger.GetNewLine();
    _logger._ssLog << strStamp << "text\n";
    EXPECT_EQ(Buffered(), strStamp + "text\n");
}

} // namespace
