// Several threads of one process on one logger.

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "tests/logger/logger_fixture.h"

using support::WriteFile;

namespace {

class LogThreads : public LoggerOnFiles {
protected:
    static constexpr int THREADS = 4;

    static void InParallel(const std::function<void(int)>& body) {
        std::vector<std::thread> vecThreads;
        for (int i = 0; i < THREADS; ++i) {
            vecThreads.emplace_back(body, i);
        }
        for (std::thread& thread : vecThreads) {
            thread.join();
        }
    }

    /// A flush that comes after another thread's finds no file. Nothing else may be said.
    void ExpectOnlyMissingMemoryLogFiles() {
        for (const std::string& strMessage : _syslog.Take()) {
            EXPECT_EQ(strMessage,
                      "<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)");
        }
    }

    static std::string Lines(const std::string& strWhose, int iCount) {
        std::string strLines;
        for (int i = 0; i < iCount; ++i) {
            strLines += strWhose + " " + std::to_string(i) + "\n";
        }
        return strLines;
    }
};

TEST_F(LogThreads, FlushingAtOnceMoveAPrefilledFileAndABufferOnExactlyOnce) {
    std::string strExpected;
    for (int iRound = 0; iRound < 25; ++iRound) {
        const std::string strStaged = Lines("staged", 500);
        const std::string strBuffered = Lines("buffered", 100);
        WriteFile(_strMemLog, strStaged);
        _logger._ssLog << strBuffered;
        InParallel([this](int i) {
            if (i % 2 == 0) {
                _logger.SoftFlush();
                _logger.Flush();
            } else {
                _logger.FlushAll();
            }
        });
        strExpected += strStaged + strBuffered;
        ASSERT_TRUE(Log() == strExpected) << "round " << iRound;
    }
    ExpectOnlyMissingMemoryLogFiles();
}

TEST_F(LogThreads, FlushingWhileOneWritesLoseNothing) {
    constexpr int LINES = 2000;
    std::atomic<bool> bWriting = true;
    InParallel([this, &bWriting](int i) {
        if (i != 0) {
            while (bWriting) {
                _logger.Flush();
            }
            return;
        }
        for (int iLine = 0; iLine < LINES; ++iLine) {
            _logger._ssLog << "line " << iLine << "\n"; // this thread alone touches the buffer
            _logger.SoftFlush();
        }
        bWriting = false;
    });
    _logger.Flush();
    EXPECT_TRUE(Log() == Lines("line", LINES));
    ExpectOnlyMissingMemoryLogFiles();
}

TEST_F(LogThreads, WritingInTurnsLoseNothing) {
    constexpr int LINES = 300;
    std::mutex mutexWriter; // one thread at a time writes and flushes
    InParallel([this, &mutexWriter](int i) {
        for (int iLine = 0; iLine < LINES; ++iLine) {
            const std::lock_guard<std::mutex> lock(mutexWriter);
            _logger._ssLog << "writer " << i << " line " << iLine << "\n";
            _logger.FlushAll();
        }
    });
    const std::string strLog = Log();
    EXPECT_EQ(std::count(strLog.begin(), strLog.end(), '\n'), THREADS * LINES);
    for (int i = 0; i < THREADS; ++i) {
        std::string::size_type uAt = 0;
        for (int iLine = 0; iLine < LINES; ++iLine) {
            const std::string strLine = "writer " + std::to_string(i) + " line " + std::to_string(iLine) + "\n";
            uAt = strLog.find(strLine, uAt);
            ASSERT_NE(uAt, std::string::npos) << strLine;
        }
    }
    ExpectOnlyMissingMemoryLogFiles();
}

} // namespace
