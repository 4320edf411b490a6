// Several processes, each with several threads, on the same two files. Nothing may be lost, doubled or torn.

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "logger/staginglock.h"
#include "tests/logger/logger_fixture.h"
#include "tests/support/forked.h"

using VUKO::MemoryLogger;

namespace {

class LogProcesses : public LoggerOnFiles {
protected:
    static constexpr int PROCESSES = 4;
    static constexpr int THREADS = 2;
    static constexpr int LINES = 150;

    using Step = void (MemoryLogger::*)();

    static std::string Text(int iProcess, int iThread, int iLine) {
        return "process " + std::to_string(iProcess) + " thread " + std::to_string(iThread) + " line " +
               std::to_string(iLine);
    }

    /// The threads of one process share a logger and write in turns.
    void WriteAsOneProcess(int iProcess, unsigned long ulLimitKB, Step step) const {
        MemoryLogger logger(_strLog, _strMemLog, ulLimitKB);
        std::mutex mutexWriter;
        const auto writer = [&](int iThread) {
            for (int iLine = 0; iLine < LINES; ++iLine) {
                const std::lock_guard<std::mutex> lock(mutexWriter);
                logger._ssLog << logger.GetNewLine() << Text(iProcess, iThread, iLine) << "\n";
                (logger.*step)();
            }
        };
        std::vector<std::thread> vecThreads;
        for (int iThread = 0; iThread < THREADS; ++iThread) {
            vecThreads.emplace_back(writer, iThread);
        }
        for (std::thread& thread : vecThreads) {
            thread.join();
        }
    }

    void WriteFromAllProcesses(unsigned long ulLimitKB, Step step) {
        std::vector<pid_t> vecChildren;
        for (int iProcess = 0; iProcess < PROCESSES; ++iProcess) {
            const pid_t pid = fork();
            if (pid == 0) {
                WriteAsOneProcess(iProcess, ulLimitKB, step);
                syscall(SYS_exit_group, 0); // never on into the test runner
            }
            vecChildren.push_back(pid);
        }
        for (const pid_t pid : vecChildren) {
            ASSERT_EQ(support::WaitFor(pid), 0);
        }
    }

    /// Every line once, whole, those of each writer in their order, and nothing else.
    void ExpectEveryLineOnce() const {
        std::map<std::string, int> mapNext;
        std::istringstream ssLog(Log());
        int iCount = 0;
        for (std::string strLine; std::getline(ssLog, strLine); ++iCount) {
            ASSERT_GT(strLine.size(), STAMP_SIZE) << strLine;
            const std::string strText = strLine.substr(STAMP_SIZE);
            const std::string strWriter = strText.substr(0, strText.find(" line "));
            EXPECT_EQ(strText, strWriter + " line " + std::to_string(mapNext[strWriter]++));
        }
        EXPECT_EQ(mapNext.size(), static_cast<std::size_t>(PROCESSES * THREADS));
        EXPECT_EQ(iCount, PROCESSES * THREADS * LINES);
    }

    /// A flush that comes after another process's finds no file. Nothing else may be said.
    void ExpectOnlyMissingMemoryLogFiles() {
        for (const std::string& strMessage : _syslog.Take()) {
            EXPECT_EQ(strMessage,
                      "<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)");
        }
    }

    static constexpr std::size_t STAMP_SIZE = 26;
};

TEST_F(LogProcesses, ThatFlushEveryLineToTheLogLoseNone) {
    WriteFromAllProcesses(1024, &MemoryLogger::FlushAll);
    ExpectEveryLineOnce();
    EXPECT_FALSE(support::Exists(_strMemLog));
    ExpectOnlyMissingMemoryLogFiles();
}

TEST_F(LogProcesses, ThatStageEveryLineLoseNone) {
    WriteFromAllProcesses(1024, &MemoryLogger::SoftFlush);
    EXPECT_FALSE(support::Exists(_strLog));
    _logger.Flush();
    ExpectEveryLineOnce();
}

TEST_F(LogProcesses, ThatMoveStagedLinesOnAtALimitLoseNone) {
    WriteFromAllProcesses(1, &MemoryLogger::SoftFlush);
    _logger.FlushAll();
    ExpectEveryLineOnce();
    ExpectOnlyMissingMemoryLogFiles();
}

TEST_F(LogProcesses, ThatDieWithTheFileLockedHoldNobodyUp) {
    const support::ChildEnd end = support::RunForked([this](int) {
        const VUKO::StagingLock lock(_strMemLog, VUKO::StagingLock::IfMissing::Create);
        return ::raise(SIGKILL);
    });
    ASSERT_EQ(end.iSignal, SIGKILL);
    const VUKO::StagingLock lock(_strMemLog, VUKO::StagingLock::IfMissing::Leave, std::chrono::milliseconds(0));
    EXPECT_TRUE(lock.IsHeld());
}

} // namespace
