/// One launch, from Run() to the end of the child, beside the bare system calls. A fork copies the page tables of the
/// whole process, so all are also measured with a large service's jobs in memory.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "bench/jobs.h"
#include "tests/support/temp_dir.h"

namespace {

using VUKO::VUKOCrond::CronJob;

constexpr const char* PROGRAM = "/bin/true";

/// @return true when a child ended with status 0.
bool ReapOne() {
    int iStatus = 0;
    return waitpid(-1, &iStatus, 0) > 0 && WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0;
}

template <typename Launch>
void MeasureLaunches(benchmark::State& state, const Launch& launch) {
    malloc_trim(0); // what other benchmarks have freed is no part of this process's size
    const std::vector<CronJob> vecOthers = bench::Fleet(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        launch();
        if (!ReapOne()) {
            state.SkipWithError("a child did not end well");
            break;
        }
    }
}

void RunJob(benchmark::State& state) {
    const support::TempDir dir;
    CronJob::gLogger._strLogPath = dir / "log";
    CronJob::gLogger._strMemLogPath = dir / "memlog";
    CronJob job = bench::Job("* * * * *");
    const pid_t pidSelf = getpid();
    MeasureLaunches(state, [&job, pidSelf] {
        job.Run(0, "");
        if (getpid() != pidSelf) {
            _exit(1); // the child could not even be prepared
        }
    });
    const std::string strLog = support::ReadFile(dir / "log");
    if (strLog.find("running job: bench") == std::string::npos || strLog.find("Failed to") != std::string::npos ||
        strLog.find("failed") != std::string::npos) {
        state.SkipWithError("the job did not run as its account (only root can measure this)");
    }
}
BENCHMARK(RunJob)->Name("launch/run")->Arg(0)->Arg(100000)->UseRealTime()->Unit(benchmark::kMicrosecond);

void ForkExec(benchmark::State& state) {
    MeasureLaunches(state, [] {
        if (fork() == 0) {
            char* const aArgv[] = {const_cast<char*>(PROGRAM), const_cast<char*>("--quiet"), nullptr};
            execve(PROGRAM, aArgv, environ);
            _exit(1);
        }
    });
}
BENCHMARK(ForkExec)
    ->Name("launch/baseline:fork-exec-wait")
    ->Arg(0)
    ->Arg(100000)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void ForkExit(benchmark::State& state) {
    MeasureLaunches(state, [] {
        if (fork() == 0) {
            _exit(0);
        }
    });
}
BENCHMARK(ForkExit)
    ->Name("launch/baseline:fork-exit-wait")
    ->Arg(0)
    ->Arg(100000)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

} // namespace
