#pragma once

#include <cstdint>
#include <vector>

#include "service/engine/clockpolicy.h"
#include "service/engine/clockreading.h"
#include "service/engine/jobtable.h"

namespace VUKO::VUKOCrond::Service {

/// All that a tick's decision depends on besides the jobs.
struct TickInput {
    ClockReading reading; ///< the one look at the clock
    ClockPolicy ePolicy = ClockPolicy::CatchUp;
    std::int64_t iWorkedUpTo = 0; ///< local minute number up to which the service has worked
    /// What minutes that were passed over are put down to: ClockStep, ServiceDown or Hibernating.
    SkipReason eGapCause = SkipReason::ClockStep;
    bool bHibernating = false;
    bool bPassive = false;
    bool bStopping = false;
    bool bBootSettled = true;    ///< the machine is up for long enough to make up for what it missed while it was down
    bool bLookForFuture = false; ///< the clock may have gone back, or the stamps are new: look for stamps ahead of it
    int iMaxDelay = 0;           ///< seconds over which jobs of a random minute are spread
};

enum class StartReason {
    Due,    ///< its schedule holds this minute
    MadeUp, ///< its schedule holds a minute that was passed over
    Retry,  ///< it was decided at an earlier tick, and could not be started then
    Assure  ///< it has to run within some hours, has not, and asks to be run then
};

/// "due", "made-up", "retry", "assure".
const char* ToText(StartReason eReason);

struct Start {
    JobIndex uJob = 0;
    StartReason eReason = StartReason::Due;
    std::int64_t iMinute = 0; ///< the due minute
    int iDelaySec = 0;
};

struct Skip {
    JobIndex uJob = 0;
    SkipReason eReason = SkipReason::None;
    std::int64_t iMinute = 0;
    bool bOfPending = false; ///< it ends a start that was decided earlier
};

struct Decision {
    std::int64_t iWorkedUpTo = 0;
    std::vector<Start> vecStarts; ///< one for a job at most; what is left from earlier ticks comes first
    std::vector<Skip> vecSkips;
    std::vector<JobIndex> vecOverdue; ///< jobs that wait for their next minute and have just become overdue
    std::vector<JobIndex> vecFuture;  ///< jobs with a stamp ahead of the clock, which counts as now

    bool IsIdle() const { return vecStarts.empty() && vecSkips.empty() && vecOverdue.empty() && vecFuture.empty(); }
};

/// How often a start that could not be made is tried again, once a tick, before it is given up.
constexpr std::int64_t MAX_RETRIES = 5;

/// Decides what a tick does. Looks at its arguments and at nothing else, clock included, and changes nothing.
///
/// While the machine hibernates nothing is decided and nothing counts as worked on: the tick after it finds the gap.
Decision Decide(const TickInput& input, const JobTable& table);

/// Why a job that is due must not be started; None when it may.
SkipReason WhyNotNow(const TickInput& input, const Job& job);

/// The delay of the n-th of so many that are spread: evenly, and less than the whole. Their order is their number.
int SpreadDelay(std::size_t uIndex, std::size_t uCount, int iMaxDelay);

} // namespace VUKO::VUKOCrond::Service
