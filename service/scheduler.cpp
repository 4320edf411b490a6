#include "service/scheduler.h"

#include <algorithm>
#include <exception>
#include <optional>

namespace VUKO::VUKOCrond::Service {

namespace {

/// The library's due test, for a minute that is given and not read from the clock.
bool IsDue(const CronJob& job, const WallMinute& wall) {
    const Json::Value& jsSchedule = job._jsJob["schedule"];
    return job.IsTypeReady(jsSchedule, SZK_MINUTE, wall.iMinute) && job.IsTypeReady(jsSchedule, SZK_HOUR, wall.iHour) &&
           job.IsTypeReady(jsSchedule, SZK_DAY, wall.iDay) && job.IsTypeReady(jsSchedule, SZK_MONTH, wall.iMonth) &&
           job.IsTypeReady(jsSchedule, SZK_WEEK, wall.iWeekday);
}

/// CronJob::IsExpiredAssure() for an instant that is given: that one reads the clock anew for each job. The seconds
/// wrap in 32 bits there, so they do here.
bool IsOverdue(const CronJob& job, std::time_t tNow) {
    if (job._iAssureExecute == 0) {
        return false;
    }
    const char* const szBase = job._jsJob.isMember("lastExecution") ? "lastExecution" : "startup";
    const auto uBase = static_cast<std::uint64_t>(job._jsJob[szBase].asInt64());
    const auto iPeriod = static_cast<std::int32_t>(static_cast<std::uint32_t>(job._iAssureExecute) * 3600U);
    return tNow > static_cast<std::int64_t>(uBase + static_cast<std::uint64_t>(std::int64_t{iPeriod}));
}

std::optional<StartReason> ReasonToStart(const ScheduledJob& scheduled, const ClockReading& reading,
                                         const std::vector<WallMinute>& vecWall) {
    if (scheduled.IsReady()) {
        return StartReason::Retry;
    }
    const CronJob& job = scheduled.job;
    if (std::any_of(vecWall.begin(), vecWall.end(), [&job](const WallMinute& wall) { return IsDue(job, wall); })) {
        return StartReason::Due;
    }
    if (job._iAssureExecuteAction == 1 && IsOverdue(job, reading.tNow)) {
        return StartReason::Assure;
    }
    return std::nullopt;
}

} // namespace

Decision Decide(const ClockReading& reading, const std::vector<std::int64_t>& vecMinutes, const JobMap& mapJobs) {
    Decision decision;
    if (vecMinutes.empty()) {
        return decision;
    }
    std::vector<WallMinute> vecWall;
    std::transform(vecMinutes.begin(), vecMinutes.end(), std::back_inserter(vecWall), WallMinuteOf);
    for (const auto& [id, scheduled] : mapJobs) {
        // A schedule or a stamp of an odd kind makes the JSON library throw; the other jobs are not to suffer from it.
        try {
            if (const std::optional<StartReason> reason = ReasonToStart(scheduled, reading, vecWall)) {
                decision.vecStarts.push_back({id, *reason});
            }
        } catch (const Json::Exception& exception) {
            decision.vecFaults.push_back({id, exception.what()});
        }
    }
    std::stable_partition(decision.vecStarts.begin(), decision.vecStarts.end(),
                          [](const Start& start) { return start.eReason == StartReason::Retry; });
    return decision;
}

void MarkReady(ScheduledJob& job, StartReason eReason, const ClockReading& reading) {
    if (job.IsReady()) {
        return;
    }
    job.job._jsJob["expireTime"] = static_cast<Json::Int64>(reading.tNow);
    job.job._strReadyCrontab = job.job.ToCurrentCrontabString();
    job.strReadyLabel = eReason == StartReason::Assure ? "assure" : "";
}

} // namespace VUKO::VUKOCrond::Service
