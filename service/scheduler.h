#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "service/job.h"
#include "service/minuteclock.h"

namespace VUKO::VUKOCrond::Service {

enum class StartReason {
    Retry, ///< it is ready since an earlier tick, and could not be started then
    Due,   ///< its schedule holds one of the minutes looked at
    Assure ///< it has to run within some hours, has not, and asks to be run then
};

struct Start {
    JobId id;
    StartReason eReason;
};

/// A job that could not be judged, and why.
struct Fault {
    JobId id;
    std::string strReason;
};

struct Decision {
    std::vector<Start> vecStarts; ///< at most one for a job; what is left from earlier ticks comes first
    std::vector<Fault> vecFaults;
};

/// Decides what a tick starts. Looks at its arguments and at nothing else, clock included, and changes nothing.
///
/// @param vecMinutes  the local minutes to look at, as MinuteClock::Advance() gives them; none: nothing is started.
Decision Decide(const ClockReading& reading, const std::vector<std::int64_t>& vecMinutes, const JobMap& mapJobs);

/// Marks a job as ready for a start, by the reading that it was decided from. A job that is ready already stays as it
/// is.
void MarkReady(ScheduledJob& job, StartReason eReason, const ClockReading& reading);

} // namespace VUKO::VUKOCrond::Service
