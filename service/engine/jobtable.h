#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "service/engine/job.h"

namespace VUKO::VUKOCrond::Service {

using JobIndex = std::uint32_t;

/// All jobs, in the order in which a tick starts them, with what lets a tick touch only those that can be due.
class JobTable {
public:
    JobTable() = default;
    /// Sorts the jobs by their identity.
    explicit JobTable(std::vector<Job> vecJobs);

    std::size_t Size() const { return _vecJobs.size(); }
    const Job& At(JobIndex uJob) const { return _vecJobs[uJob]; }
    const std::vector<Job>& Jobs() const { return _vecJobs; }
    const Job* Find(const JobId& id) const;
    /// @return the index of a job, by the store's key or by its identity; Size() when it is not there.
    JobIndex IndexOf(std::int64_t iKey) const;
    JobIndex IndexOf(const JobId& id) const;

    /// Changes a job and keeps the order of the guarantees right.
    template <typename Change>
    void Modify(JobIndex uJob, const Change& change) {
        Leave(uJob);
        change(_vecJobs[uJob]);
        Enter(uJob);
    }
    /// Sets the store's key of a job; 0: it has none.
    void SetKey(JobIndex uJob, std::int64_t iKey);
    /// Gives a job other values, as ScheduleToText() has them.
    void SetSchedule(JobIndex uJob, const std::string& strSchedule);
    void SetAccountId(JobIndex uJob, uid_t uid) { _vecJobs[uJob].uidAccount = uid; }

    /// Adds to `vecMatching` every job whose schedule holds that minute, once, in no order.
    void Matching(const WallMinute& wall, std::vector<JobIndex>& vecMatching) const;

    /// Jobs whose guarantee has run out at that instant, except those that cannot be started or that only wait and have
    /// been reported.
    template <typename Visit>
    void ForEachOverdue(std::int64_t iNow, const Visit& visit) const {
        for (auto it = _setLimits.begin(); it != _setLimits.end() && it->first < iNow; ++it) {
            visit(it->second);
        }
    }
    /// Jobs with a guarantee; for the rare look at all of them.
    template <typename Visit>
    void ForEachAssured(const Visit& visit) const {
        for (const JobIndex uJob : _vecAssured) {
            visit(uJob);
        }
    }
    /// Jobs with a start that is to be tried again.
    const std::set<JobIndex>& Pending() const { return _setPending; }

private:
    static constexpr std::size_t MINUTES = 60;
    static constexpr std::size_t HOURS = 24;

    template <typename Visit>
    void ForEachList(const Schedule& schedule, const Visit& visit);
    void Index(JobIndex uJob);
    void Enter(JobIndex uJob);
    void Leave(JobIndex uJob);

    std::vector<Job> _vecJobs;
    std::vector<Schedule> _vecSchedules; ///< by job: once more, close together, to be asked without touching the jobs
    std::unordered_map<std::int64_t, JobIndex> _mapKeys;
    std::vector<JobIndex> _vecAlways;                               ///< any minute of any hour
    std::array<std::vector<JobIndex>, HOURS> _avecByHour;           ///< any minute of some hours
    std::array<std::vector<JobIndex>, MINUTES> _avecByMinute;       ///< some minutes of any hour, or of many
    std::array<std::vector<JobIndex>, HOURS * MINUTES> _avecByTime; ///< some times of day
    std::vector<JobIndex> _vecAssured;
    std::set<std::pair<std::int64_t, JobIndex>> _setLimits;
    std::set<JobIndex> _setPending;
};

} // namespace VUKO::VUKOCrond::Service
