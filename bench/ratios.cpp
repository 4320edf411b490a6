#include "bench/ratios.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

namespace bench {

namespace {

struct Ratio {
    const char* szMeasured;
    double dItems; ///< of which the time of one is compared
    const char* szBaseline;
    double dBaselineItems;
};

constexpr Ratio RATIOS[] = {
    {"job/build", 1, "job/build/baseline:copy-definition", 1},
    {"job/due/hit", 1, "job/due/baseline:localtime", 1},
    {"job/due/hit-in-lists", 1, "job/due/baseline:localtime", 1},
    {"job/due/miss", 1, "job/due/baseline:localtime", 1},
    {"job/generate", 1, "job/generate/baseline:draw-5-numbers", 1},
    {"job/render", 1, "job/render/baseline:print-5-numbers", 1},
    {"log/line/real_time", 1, "log/baseline:open-append-close-unlink/real_time", 1},
    {"launch/run/0/real_time", 1, "launch/baseline:fork-exec-wait/0/real_time", 1},
    {"launch/run/0/real_time", 1, "launch/baseline:fork-exit-wait/0/real_time", 1},
    {"launch/run/100000/real_time", 1, "launch/baseline:fork-exec-wait/100000/real_time", 1},
    {"launch/run/100000/real_time", 1, "launch/baseline:fork-exit-wait/100000/real_time", 1},
    {"fleet/build/1000", 1000, "fleet/build/10", 10},
    {"fleet/build/100000", 100000, "fleet/build/10", 10},
    {"fleet/due/1000", 1000, "fleet/due/10", 10},
    {"fleet/due/100000", 100000, "fleet/due/10", 10},
    {"fleet/generate/1000", 1000, "fleet/generate/10", 10},
    {"fleet/generate/100000", 100000, "fleet/generate/10", 10},
    {"fleet/render/1000", 1000, "fleet/render/10", 10},
    {"fleet/render/100000", 100000, "fleet/render/10", 10},
};

std::optional<double> Median(const std::map<std::string, std::vector<double>>& mapSeconds, const char* szName) {
    const auto it = mapSeconds.find(szName);
    if (it == mapSeconds.end()) {
        return std::nullopt;
    }
    std::vector<double> vecSorted = it->second;
    std::sort(vecSorted.begin(), vecSorted.end());
    const std::size_t uHalf = vecSorted.size() / 2;
    return vecSorted.size() % 2 == 1 ? vecSorted[uHalf] : (vecSorted[uHalf - 1] + vecSorted[uHalf]) / 2;
}

/// Of a benchmark that was repeated only the summary is worth a line.
bool IsWorthALine(const benchmark::BenchmarkReporter::Run& run) {
    const bool bSummary = run.aggregate_name == "median" || run.aggregate_name == "cv";
    return run.error_occurred || run.repetitions <= 1 || bSummary;
}

/// What the processor spent says more on a machine that does other things too; what goes through the kernel and other
/// processes can only be read off the clock, and its name says so.
double SecondsOfOne(const benchmark::BenchmarkReporter::Run& run) {
    const bool bByTheClock = !run.run_name.time_type.empty();
    return (bByTheClock ? run.real_accumulated_time : run.cpu_accumulated_time) / static_cast<double>(run.iterations);
}

} // namespace

RatioReporter::RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) == 1 ? OO_ColorTabular : OO_Tabular) {}

void RatioReporter::ReportRuns(const std::vector<Run>& vecRuns) {
    std::fputc('.', stderr);
    for (const Run& run : vecRuns) {
        _bFailed = _bFailed || run.error_occurred;
        if (run.run_type == Run::RT_Iteration && !run.error_occurred && run.iterations > 0) {
            _mapSeconds[run.run_name.str()].push_back(SecondsOfOne(run));
        }
        if (IsWorthALine(run)) {
            _vecRuns.push_back(run);
        }
    }
}

void RatioReporter::Finalize() {
    std::fputc('\n', stderr);
    std::stable_sort(_vecRuns.begin(), _vecRuns.end(), [](const Run& left, const Run& right) {
        return std::pair(left.family_index, left.per_family_instance_index) <
               std::pair(right.family_index, right.per_family_instance_index);
    });
    ConsoleReporter::ReportRuns(_vecRuns);
    ConsoleReporter::Finalize();
    std::printf("\nTime of one, as a multiple of the baseline's in this run (medians)\n");
    for (const Ratio& ratio : RATIOS) {
        const std::optional<double> dMeasured = Median(_mapSeconds, ratio.szMeasured);
        const std::optional<double> dBaseline = Median(_mapSeconds, ratio.szBaseline);
        if (!dMeasured && !dBaseline) {
            continue; // nobody asked for it
        }
        std::printf("%-30s / %-50s ", ratio.szMeasured, ratio.szBaseline);
        if (dMeasured && dBaseline && *dBaseline > 0) {
            std::printf("%8.2f\n", (*dMeasured / ratio.dItems) / (*dBaseline / ratio.dBaselineItems));
        } else {
            std::printf("%8s\n", "not run");
        }
    }
}

} // namespace bench
