/// One job: each step of its life in memory, and beside it what the step cannot do without.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "bench/jobs.h"
#include "platform/vukorandom.h"

namespace {

using VUKO::VUKOCrond::CronJob;

void BuildJob(benchmark::State& state) {
    const Json::Value jsDocument = bench::Document("bench", "0,30 ~ * * 1~5");
    for (auto _ : state) {
        CronJob job(jsDocument);
        benchmark::DoNotOptimize(job._bValid);
    }
}
BENCHMARK(BuildJob)->Name("job/build");

void CopyDefinition(benchmark::State& state) {
    const Json::Value jsDocument = bench::Document("bench", "0,30 ~ * * 1~5");
    for (auto _ : state) {
        Json::Value jsCopy(jsDocument);
        benchmark::DoNotOptimize(jsCopy);
    }
}
BENCHMARK(CopyDefinition)->Name("job/build/baseline:copy-definition");

void AskWhetherDue(benchmark::State& state, const CronJob& job, bool bExpected) {
    for (auto _ : state) {
        if (job.IsOnScheduled() != bExpected) {
            state.SkipWithError("the due test gave another answer");
            break;
        }
    }
}

void DueHit(benchmark::State& state) {
    AskWhetherDue(state, bench::Job("* * * * *"), true);
}
BENCHMARK(DueHit)->Name("job/due/hit");

/// Every value of every field written out: the longest search that still ends in a hit.
void DueHitInLists(benchmark::State& state) {
    const auto list = [](int iFrom, int iTo) {
        std::string strField = std::to_string(iFrom);
        for (int i = iFrom + 1; i <= iTo; ++i) {
            strField += "," + std::to_string(i);
        }
        return strField;
    };
    const CronJob job =
        bench::Job(list(0, 59) + " " + list(0, 23) + " " + list(1, 31) + " " + list(1, 12) + " " + list(0, 6));
    AskWhetherDue(state, job, true);
}
BENCHMARK(DueHitInLists)->Name("job/due/hit-in-lists");

/// No clock shows minute 60, so this is a miss whenever it is measured.
void DueMiss(benchmark::State& state) {
    CronJob job = bench::Job("* * * * *");
    job._jsJob["schedule"]["Minute"][0] = 60;
    AskWhetherDue(state, job, false);
}
BENCHMARK(DueMiss)->Name("job/due/miss");

void ReadClock(benchmark::State& state) {
    for (auto _ : state) {
        const time_t tNow = time(nullptr);
        benchmark::DoNotOptimize(localtime(&tNow));
    }
}
BENCHMARK(ReadClock)->Name("job/due/baseline:localtime");

void Generate(benchmark::State& state) {
    CronJob job = bench::Job("~ ~ ~ ~ ~");
    for (auto _ : state) {
        bench::GenerateAllFields(job);
    }
}
BENCHMARK(Generate)->Name("job/generate");

void DrawFiveNumbers(benchmark::State& state) {
    VUKO::RANDOM::VUKORandomBase random;
    for (auto _ : state) {
        for (const int iEnd : {60, 24, 29, 13, 7}) {
            benchmark::DoNotOptimize(random.random(0, iEnd));
        }
    }
}
BENCHMARK(DrawFiveNumbers)->Name("job/generate/baseline:draw-5-numbers");

void Render(benchmark::State& state) {
    const CronJob job = bench::Job("~ ~ ~ ~ ~");
    for (auto _ : state) {
        benchmark::DoNotOptimize(job.ToCurrentCrontabString());
    }
}
BENCHMARK(Render)->Name("job/render");

void PrintFiveNumbers(benchmark::State& state) {
    int aiValues[] = {7, 3, 28, 12, 6};
    benchmark::DoNotOptimize(aiValues);
    for (auto _ : state) {
        char szLine[64];
        const int iLength = snprintf(szLine, sizeof(szLine), "%d %d %d %d %d", aiValues[0], aiValues[1], aiValues[2],
                                     aiValues[3], aiValues[4]);
        benchmark::DoNotOptimize(std::string(szLine, static_cast<std::size_t>(iLength)));
    }
}
BENCHMARK(PrintFiveNumbers)->Name("job/render/baseline:print-5-numbers");

} // namespace
