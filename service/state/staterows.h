#pragma once

#include <optional>

#include "service/state/sqlite.h"
#include "service/state/statestore.h"

namespace VUKO::VUKOCrond::Service {

/// The columns that the functions below read, in their order; a job's are followed by its number of outcomes.
constexpr const char* CLOCK_COLUMNS = "workedUpTo, lastTick, sleptSince, lastRun, bootId";
constexpr const char* JOB_COLUMNS =
    "job, startup, lastExecution, overdueReported, goneSince, folder, package, name, file, fields, schedule";
constexpr const char* RUN_COLUMNS = "job, minute, decided, kind, reason, delay, run, otherPid, otherSince, endKind, "
                                    "code, started, ended, duration, cpu, maxRss, label";

/// What stands in a row, or nothing when that cannot be what was once written there: a file is not trusted to hold what
/// this program writes.
std::optional<StoredClock> ReadClock(const Query& query);
std::optional<StoredJob> ReadJob(const Query& query);
std::optional<StoredRun> ReadRun(const Query& query);

/// Why a job cannot be kept: a text that no file would be believed to hold. Empty when it can.
std::string WhyNotStorable(const StoredJob& job);

} // namespace VUKO::VUKOCrond::Service
