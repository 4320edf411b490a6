#pragma once

#include <cstddef>
#include <vector>

#include "ctl/timeline/timeline.h"

namespace VUKO::VUKOCrond::Ctl {

/// The collisions of jobs, by time. Frequent jobs are left out: they run beside everything, and would bury what can be
/// helped by another minute in a schedule.
std::vector<Collision> FindCollisions(const std::vector<TimelineJob>& vecJobs);

/// The same jobs meeting again and again.
struct CollisionGroup {
    std::vector<std::size_t> vecJobs;
    std::time_t tFirst = 0;
    std::size_t uTimes = 0;
};

/// Collisions by the jobs that meet: the most jobs first, and of as many the one that comes first.
std::vector<CollisionGroup> GroupCollisions(const std::vector<Collision>& vecCollisions);

/// "12 more, of 3 sets of jobs": what comes after so many groups.
std::string MoreCollisions(const std::vector<CollisionGroup>& vecGroups, std::size_t uShown);

/// "backup, index, mail and 3 more": so many names at most.
std::string NamesOf(const std::vector<TimelineJob>& vecJobs, const std::vector<std::size_t>& vecIndices,
                    std::size_t uMost);

} // namespace VUKO::VUKOCrond::Ctl
