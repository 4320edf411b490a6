#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/sim/naivemodel.h"

namespace sim {

/// Whether the long forms are asked for (VUKO_LONG=1 in the environment).
bool IsLong();

/// Where the random numbers of a run begin: VUKO_SEED of the environment, else a number of its own.
std::uint64_t SeedOfThisRun(std::uint64_t uDefault);

/// A stretch of virtual time, and what happens in it.
struct Stretch {
    std::time_t tFrom = 0;
    std::time_t tTo = 0;
    std::vector<ModelEvent> vecEvents;
    bool bLiteral = false;
};

/// What the service's own simulation makes of it, in the model's terms.
std::vector<ModelOutcome> Simulate(const Stretch& stretch, const std::vector<CronJob>& vecRecords);

/// Runs both and compares them.
///
/// @param uOutcomes  grows by the number of outcomes that both agree on.
/// @return the first differences, in lines; empty when there are none.
std::string Differences(const Stretch& stretch, const std::vector<CronJob>& vecRecords, std::size_t& uOutcomes);

} // namespace sim
