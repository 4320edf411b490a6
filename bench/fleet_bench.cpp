/// The same steps for all jobs of a service, and what a job takes in memory.

#include <benchmark/benchmark.h>

#include "bench/jobs.h"

namespace {

using VUKO::VUKOCrond::CronJob;

std::size_t Count(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(0));
}

void ReportPerJob(benchmark::State& state) {
    state.counters["time/job"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BuildFleet(benchmark::State& state) {
    const std::vector<Json::Value>& vecDocuments = bench::FleetDocuments();
    std::size_t uBytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            std::vector<CronJob> vecJobs;
            const std::size_t uBefore = bench::AllocatedBytes();
            state.ResumeTiming();
            vecJobs.reserve(Count(state));
            for (std::size_t i = 0; i < Count(state); ++i) {
                vecJobs.emplace_back(vecDocuments[i % vecDocuments.size()]);
            }
            state.PauseTiming();
            uBytes = bench::AllocatedBytes() - uBefore;
        }
        state.ResumeTiming();
    }
    ReportPerJob(state);
    state.counters["bytes/job"] = static_cast<double>(uBytes) / static_cast<double>(state.range(0));
}
BENCHMARK(BuildFleet)->Name("fleet/build")->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

/// One tick: every job is asked once.
void AskFleet(benchmark::State& state) {
    const std::vector<CronJob> vecJobs = bench::Fleet(Count(state));
    for (auto _ : state) {
        for (const CronJob& job : vecJobs) {
            benchmark::DoNotOptimize(job.IsOnScheduled());
        }
    }
    ReportPerJob(state);
}
BENCHMARK(AskFleet)->Name("fleet/due")->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

/// Also tells what the generated values take in memory, beside what building took.
void GenerateFleet(benchmark::State& state) {
    const std::size_t uBefore = bench::AllocatedBytes();
    std::vector<CronJob> vecJobs = bench::Fleet(Count(state));
    const std::size_t uBytes = bench::AllocatedBytes() - uBefore;
    for (auto _ : state) {
        for (CronJob& job : vecJobs) {
            bench::GenerateAllFields(job);
        }
    }
    ReportPerJob(state);
    state.counters["bytes/job"] = static_cast<double>(uBytes) / static_cast<double>(state.range(0));
}
BENCHMARK(GenerateFleet)->Name("fleet/generate")->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

void RenderFleet(benchmark::State& state) {
    const std::vector<CronJob> vecJobs = bench::Fleet(Count(state));
    for (auto _ : state) {
        for (const CronJob& job : vecJobs) {
            benchmark::DoNotOptimize(job.ToCurrentCrontabString());
        }
    }
    ReportPerJob(state);
}
BENCHMARK(RenderFleet)->Name("fleet/render")->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

} // namespace
