#include "service/engine/jobtable.h"

#include <algorithm>
#include <bit>

namespace VUKO::VUKOCrond::Service {

namespace {

/// A job with more times of day than that is listed by its minutes alone: the lists are to stay small beside the jobs.
constexpr int MAX_LISTED_TIMES = 48;

constexpr std::uint64_t ALL_MINUTES = (std::uint64_t{1} << 60) - 1;
constexpr std::uint32_t ALL_HOURS = (std::uint32_t{1} << 24) - 1;

template <typename Visit>
void ForEachBit(std::uint64_t uMask, const Visit& visit) {
    for (; uMask != 0; uMask &= uMask - 1) {
        visit(static_cast<std::size_t>(std::countr_zero(uMask)));
    }
}

/// Whether the order of the guarantees has a place for a job: not for one that cannot be started or that only waits and
/// has been told of.
bool HasLimit(const Job& job) {
    return job.HasAssure() && !job.bInvalid && job.bEnabled && (job.bAssureRun || !job.bOverdueReported);
}

} // namespace

JobTable::JobTable(std::vector<Job> vecJobs) : _vecJobs(std::move(vecJobs)) {
    const auto isBefore = [](const Job& a, const Job& b) { return a.id < b.id; };
    if (!std::is_sorted(_vecJobs.begin(), _vecJobs.end(), isBefore)) {
        std::sort(_vecJobs.begin(), _vecJobs.end(), isBefore);
    }
    _mapKeys.reserve(_vecJobs.size());
    _vecSchedules.reserve(_vecJobs.size());
    for (JobIndex uJob = 0; uJob < _vecJobs.size(); ++uJob) {
        Index(uJob);
        Enter(uJob);
        if (_vecJobs[uJob].iKey != 0) {
            _mapKeys.emplace(_vecJobs[uJob].iKey, uJob);
        }
    }
}

JobIndex JobTable::IndexOf(const JobId& id) const {
    const auto it = std::lower_bound(_vecJobs.begin(), _vecJobs.end(), id,
                                     [](const Job& job, const JobId& wanted) { return job.id < wanted; });
    return it != _vecJobs.end() && it->id == id ? static_cast<JobIndex>(it - _vecJobs.begin())
                                                : static_cast<JobIndex>(Size());
}

const Job* JobTable::Find(const JobId& id) const {
    const JobIndex uJob = IndexOf(id);
    return uJob < Size() ? &_vecJobs[uJob] : nullptr;
}

JobIndex JobTable::IndexOf(std::int64_t iKey) const {
    const auto it = _mapKeys.find(iKey);
    return it != _mapKeys.end() ? it->second : static_cast<JobIndex>(Size());
}

void JobTable::SetKey(JobIndex uJob, std::int64_t iKey) {
    _mapKeys.erase(_vecJobs[uJob].iKey);
    _vecJobs[uJob].iKey = iKey;
    if (iKey != 0) {
        _mapKeys[iKey] = uJob;
    }
}

void JobTable::Matching(const WallMinute& wall, std::vector<JobIndex>& vecMatching) const {
    const auto uHour = static_cast<std::size_t>(wall.iHour);
    const auto uMinute = static_cast<std::size_t>(wall.iMinute);
    for (const std::vector<JobIndex>* const pvecJobs :
         {&_vecAlways, &_avecByHour[uHour], &_avecByMinute[uMinute], &_avecByTime[uHour * MINUTES + uMinute]}) {
        for (const JobIndex uJob : *pvecJobs) {
            if (_vecSchedules[uJob].Matches(wall)) {
                vecMatching.push_back(uJob);
            }
        }
    }
}

/// Each job stands in lists of one kind only, and in each list once.
template <typename Visit>
void JobTable::ForEachList(const Schedule& schedule, const Visit& visit) {
    const std::uint64_t uMinutes = schedule.Minutes() & ALL_MINUTES;
    const std::uint32_t uHours = schedule.Hours() & ALL_HOURS;
    if (schedule.HasAnyMinute() && schedule.HasAnyHour()) {
        visit(_vecAlways);
    } else if (schedule.HasAnyMinute()) {
        ForEachBit(uHours, [&](std::size_t uHour) { visit(_avecByHour[uHour]); });
    } else if (schedule.HasAnyHour() || std::popcount(uMinutes) * std::popcount(uHours) > MAX_LISTED_TIMES) {
        ForEachBit(uMinutes, [&](std::size_t uMinute) { visit(_avecByMinute[uMinute]); });
    } else {
        ForEachBit(uHours, [&](std::size_t uHour) {
            ForEachBit(uMinutes, [&](std::size_t uMinute) { visit(_avecByTime[uHour * MINUTES + uMinute]); });
        });
    }
}

void JobTable::Index(JobIndex uJob) {
    const Schedule& schedule = _vecSchedules.emplace_back(_vecJobs[uJob].schedule);
    ForEachList(schedule, [uJob](std::vector<JobIndex>& vecJobs) { vecJobs.push_back(uJob); });
    if (_vecJobs[uJob].HasAssure()) {
        _vecAssured.push_back(uJob);
    }
}

void JobTable::SetSchedule(JobIndex uJob, const std::string& strSchedule) {
    ForEachList(_vecSchedules[uJob], [uJob](std::vector<JobIndex>& vecJobs) { std::erase(vecJobs, uJob); });
    _vecJobs[uJob].strSchedule = strSchedule;
    _vecJobs[uJob].schedule = _vecSchedules[uJob] = Schedule(strSchedule);
    ForEachList(_vecSchedules[uJob], [uJob](std::vector<JobIndex>& vecJobs) { vecJobs.push_back(uJob); });
}

void JobTable::Enter(JobIndex uJob) {
    const Job& job = _vecJobs[uJob];
    if (HasLimit(job)) {
        _setLimits.emplace(job.AssureLimit(), uJob);
    }
    if (job.IsPending()) {
        _setPending.insert(uJob);
    }
}

void JobTable::Leave(JobIndex uJob) {
    const Job& job = _vecJobs[uJob];
    if (HasLimit(job)) {
        _setLimits.erase({job.AssureLimit(), uJob});
    }
    _setPending.erase(uJob);
}

} // namespace VUKO::VUKOCrond::Service
