#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "service/engine/simulator.h"

namespace VUKO::VUKOCrond::Ctl {

/// Which part of time is looked at, and by which rules.
struct TimelineSpan {
    std::time_t tFrom = 0; ///< the first instant
    std::time_t tTo = 0;   ///< the first one that does not count any more
    Service::ClockPolicy ePolicy = Service::ClockPolicy::CatchUp;
    int iMaxDelay = 0;      ///< seconds over which jobs of a random minute are spread
    bool bPassive = false;  ///< the role of the machine
    bool bDraining = false; ///< the service starts nothing at present; it is shown as if it did
};

/// One start of a job.
struct TimelineRun {
    std::time_t tBegin = 0; ///< when it runs: the instant of the decision, and the delay of the spread
    std::int32_t iDelaySec = 0;
    Service::StartReason eReason = Service::StartReason::Due;
};

struct TimelineJob {
    /// More starts than this within one hour, anywhere in the span, make a job frequent.
    static constexpr std::size_t STARTS_OF_AN_HOUR = 3;

    std::string strName;                           ///< as short as it is plain which one is meant
    Service::JobId id;                             ///< without a folder: of a definition file
    std::optional<std::int64_t> iLastDurationUsec; ///< of its last run; nothing where that is not known
    bool bFrequent = false;                        ///< it is always there, and collides with nothing
    std::vector<TimelineRun> vecRuns;              ///< by their times

    /// When a run ends that takes as long as the last one; rounded up, and the begin where that is not known.
    std::time_t EndOf(const TimelineRun& run) const;
};

/// A minute in which a job starts while another one starts as well, or still runs.
struct Collision {
    std::time_t tMinute = 0;
    std::vector<std::size_t> vecJobs; ///< indices, rising; two at least
};

/// What starts in a span of time, and what meets there.
struct Timeline {
    TimelineSpan span;
    std::vector<TimelineJob> vecJobs;     ///< that start; by their first starts
    std::vector<std::string> vecIdle;     ///< names of those that do not
    std::vector<Collision> vecCollisions; ///< by time
};

/// Runs the service's decisions over the span.
///
/// @throws ToolError where the span holds more starts than can be shown.
Timeline MakeTimeline(const TimelineSpan& span, std::vector<Service::Job> vecJobs);

/// Seconds of a run, rounded up to whole ones.
std::int64_t WholeSeconds(std::int64_t iUsec);

} // namespace VUKO::VUKOCrond::Ctl
