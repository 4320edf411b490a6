#include <benchmark/benchmark.h>

#include <vector>

#include "bench/ratios.h"

int main(int argc, char** argv) {
    // What is compared is measured in turns, so that a slow moment of the machine does not fall on one side alone. The
    // caller's own flags come after these and win.
    char szRepetitions[] = "--benchmark_repetitions=3";
    char szInterleaving[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> vecArgs = {argv[0], szRepetitions, szInterleaving};
    vecArgs.insert(vecArgs.end(), argv + 1, argv + argc);
    int iCount = static_cast<int>(vecArgs.size());
    benchmark::Initialize(&iCount, vecArgs.data());
    if (benchmark::ReportUnrecognizedArguments(iCount, vecArgs.data())) {
        return 2;
    }
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return reporter.Failed() ? 1 : 0;
}
