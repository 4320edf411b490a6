#pragma once

#include <cstddef>
#include <ctime>
#include <vector>

#include "service/engine/simulator.h"

namespace VUKO::VUKOCrond::Ctl {

struct NextStart {
    std::time_t tInstant = 0;
    Service::StartReason eReason = Service::StartReason::Due;
};

/// How far ahead starts are looked for.
constexpr int LOOK_AHEAD_YEARS = 9;

/// The next starts of a job by its schedule, strictly after an instant, by a service that runs undisturbed: fewer than
/// asked for when no more come within the years that are looked ahead.
std::vector<NextStart> FindNextStarts(const Service::Job& job, Service::ClockPolicy ePolicy, std::time_t tAfter,
                                      std::size_t uCount);

} // namespace VUKO::VUKOCrond::Ctl
