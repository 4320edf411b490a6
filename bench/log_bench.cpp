/// One line of the execution log, from the buffer through both files.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "logger/memorylogger.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr const char* TEXT = "running job: backup with command: /usr/local/bin/backup --quiet  as user root\n";

void LogLine(benchmark::State& state) {
    const support::TempDir dir;
    VUKO::MemoryLogger logger(dir / "log", dir / "memlog", 1024);
    const std::size_t uLength = (logger.GetNewLine() + TEXT).size();
    for (auto _ : state) {
        logger._ssLog << logger.GetNewLine() << TEXT;
        logger.FlushAll();
    }
    if (std::filesystem::file_size(dir / "log") != uLength * static_cast<std::size_t>(state.iterations())) {
        state.SkipWithError("not every line reached the log");
    }
}
BENCHMARK(LogLine)->Name("log/line")->UseRealTime();

/// The same bytes through one file that is made, written, closed and deleted.
void PlainFile(benchmark::State& state) {
    const support::TempDir dir;
    const std::string strPath = dir / "file";
    const std::string strLine = std::string(26, 'x') + TEXT;
    for (auto _ : state) {
        const int iFd = open(strPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        const ssize_t iWritten = write(iFd, strLine.data(), strLine.size());
        if (iWritten != static_cast<ssize_t>(strLine.size()) || close(iFd) != 0 || unlink(strPath.c_str()) != 0) {
            state.SkipWithError("the file could not be written");
            break;
        }
    }
}
BENCHMARK(PlainFile)->Name("log/baseline:open-append-close-unlink")->UseRealTime();

} // namespace
