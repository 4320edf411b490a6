#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace VUKO::VUKOCrond::Service {

/// What the service makes of a wall clock that does not run evenly.
enum class ClockPolicy {
    CatchUp, ///< minutes that were passed over are made up for, and none is worked on twice; see WindowOf()
    Literal  ///< a job is due whenever its schedule matches the wall clock, and at no other time
};

const char* ToText(ClockPolicy ePolicy);
/// @return nothing for a text that names no policy.
std::optional<ClockPolicy> ClockPolicyOf(std::string_view strText);

/// Which minutes one tick looks at. All are minutes of the local wall clock, as in ClockReading.
struct TickWindow {
    std::int64_t iNow = 0;           ///< the minute of the tick; every job is looked at for it
    std::int64_t iOldest = 0;        ///< fixed jobs are looked at from here on; `iNow` where nothing is made up for
    bool bWildcardLooksBack = false; ///< wildcard jobs, too
    bool bFixedDueNow = true;        ///< false: fixed jobs have had this minute already
    std::int64_t iWorkedUpTo = 0;    ///< what the service has worked up to after the tick
    /// Whether the minutes between the last one worked on and this one were passed over by the wall clock, so that
    /// whoever was due in one of them is to be told of.
    bool HasGap() const { return iOldest < iNow; }
};

/// The clock policy. With r = `iNow`, v = `iWorkedUpTo` and d = r - v, a catch-up tick is
///
///     1             ordinary: both kinds of job are due when they match r
///     2..5          a little late: both kinds look back at v+1..r
///     6..180        the clock went forward: fixed jobs look back at v+1..r, wildcard jobs are due when they match r
///     -180..0       the clock went back and has not caught up: wildcard jobs are due when they match r, fixed jobs
///                   have had their turn; v stays
///     beyond        the clock was set: both kinds are due when they match r
///
/// A job is wildcard when its minutes or its hours hold "any": it runs by the minute or hour that shows, and wants no
/// more than that. A fixed one has a time of day at which it has to have run, once.
TickWindow WindowOf(ClockPolicy ePolicy, std::int64_t iWorkedUpTo, std::int64_t iNow);

} // namespace VUKO::VUKOCrond::Service
