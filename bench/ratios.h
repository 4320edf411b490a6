#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

/// Prints the usual table when all is measured, in the order in which it is written, and below it how each measurement
/// relates to its baseline in the same run: a figure that says something on another machine too.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter();
    void ReportRuns(const std::vector<Run>& vecRuns) override;
    void Finalize() override;

    /// A benchmark did not do what it was to measure.
    bool Failed() const { return _bFailed; }

private:
    bool _bFailed = false;
    std::vector<Run> _vecRuns;
    /// Seconds that one iteration took, over all repetitions. The median of these is compared: a repetition that was
    /// disturbed does not count.
    std::map<std::string, std::vector<double>> _mapSeconds;
};

} // namespace bench
