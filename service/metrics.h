#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Service {

/// What is told of one job.
struct JobMetrics {
    std::string strJob; ///< its identity as text
    bool bRunning = false;
    std::optional<int> lastExitStatus; ///< of the last run that exited; 128 + N for one ended by signal N
    std::optional<std::int64_t> lastDurationUsec;
    std::optional<std::int64_t> lastStart; ///< seconds since the epoch, as the next
    std::optional<std::int64_t> lastSuccess;
};

/// What the service is and has done, at one moment. Counters count since the service started.
struct MetricsSnapshot {
    std::string strVersion;
    std::string strPolicy; ///< of the clock
    bool bActive = true;
    bool bHibernating = false;
    std::int64_t iStarted = 0;    ///< when the service started, seconds since the epoch
    std::int64_t iLastTick = 0;   ///< the same; 0: none yet
    std::int64_t iStateSaved = 0; ///< the same, of the persistent copy
    std::int64_t iZoneOffset = 0; ///< seconds east of UTC
    std::uint64_t uReloads = 0;
    std::size_t uRefusedDefinitions = 0;
    std::map<std::string, std::size_t> mapJobs;     ///< number of jobs by state, as in "enabled"
    std::map<std::string, std::uint64_t> mapStarts; ///< by kind, as in "made-up"
    std::map<std::string, std::uint64_t> mapSkips;  ///< by reason, as in "overlap"
    std::map<std::string, std::uint64_t> mapEnds;   ///< by how runs ended, as in "exited"
    std::size_t uRunning = 0;
    std::vector<JobMetrics> vecJobs;
};

/// Jobs beyond that are counted and not told one by one: each is a handful of series for good, for those who collect
/// them.
constexpr std::size_t METRICS_JOBS_MAX = 1000;

/// The snapshot in the text format that Prometheus reads.
std::string MetricsText(const MetricsSnapshot& snapshot);

/// Writes that to a file, for node_exporter's textfile collector: whole or not at all, mode 0644, through a temporary
/// file whose name it does not collect. Nothing is synced.
///
/// @return the reason why that failed, fit for a log line; empty when done.
std::string WriteMetrics(const std::string& strPath, const MetricsSnapshot& snapshot);

} // namespace VUKO::VUKOCrond::Service
