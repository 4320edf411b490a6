#include "ctl/timeline/collisions.h"

#include <algorithm>
#include <map>

#include "ctl/timeline/wording.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Begin {
    std::time_t tBegin = 0;
    std::size_t uJob = 0;
};

std::vector<Begin> BeginsOf(const std::vector<TimelineJob>& vecJobs) {
    std::vector<Begin> vecBegins;
    for (std::size_t u = 0; u < vecJobs.size(); ++u) {
        if (!vecJobs[u].bFrequent) {
            for (const TimelineRun& run : vecJobs[u].vecRuns) {
                vecBegins.push_back({run.tBegin, u});
            }
        }
    }
    std::sort(vecBegins.begin(), vecBegins.end(), [](const Begin& a, const Begin& b) {
        return a.tBegin != b.tBegin ? a.tBegin < b.tBegin : a.uJob < b.uJob;
    });
    return vecBegins;
}

std::time_t MinuteOf(std::time_t tInstant) {
    return tInstant - tInstant % 60;
}

} // namespace

std::vector<Collision> FindCollisions(const std::vector<TimelineJob>& vecJobs) {
    std::vector<Collision> vecCollisions;
    std::map<std::size_t, std::time_t> mapEnds; // of the jobs that run: one end each, whatever overlaps itself
    const std::vector<Begin> vecBegins = BeginsOf(vecJobs);
    for (auto it = vecBegins.begin(); it != vecBegins.end();) {
        const std::time_t tFirst = it->tBegin;
        std::erase_if(mapEnds, [tFirst](const auto& end) { return end.second <= tFirst; });
        Collision collision;
        collision.tMinute = MinuteOf(tFirst);
        for (const auto& [uJob, tEnd] : mapEnds) {
            collision.vecJobs.push_back(uJob);
        }
        for (; it != vecBegins.end() && MinuteOf(it->tBegin) == collision.tMinute; ++it) {
            collision.vecJobs.push_back(it->uJob);
            std::time_t& tEnd = mapEnds[it->uJob];
            const TimelineRun run{it->tBegin, 0, Service::StartReason::Due};
            tEnd = std::max(tEnd, vecJobs[it->uJob].EndOf(run));
        }
        std::sort(collision.vecJobs.begin(), collision.vecJobs.end());
        collision.vecJobs.erase(std::unique(collision.vecJobs.begin(), collision.vecJobs.end()),
                                collision.vecJobs.end());
        if (collision.vecJobs.size() > 1) {
            vecCollisions.push_back(std::move(collision));
        }
    }
    return vecCollisions;
}

std::vector<CollisionGroup> GroupCollisions(const std::vector<Collision>& vecCollisions) {
    std::map<std::vector<std::size_t>, CollisionGroup> mapGroups;
    for (const Collision& collision : vecCollisions) {
        CollisionGroup& group = mapGroups[collision.vecJobs];
        group.tFirst = group.uTimes == 0 ? collision.tMinute : group.tFirst;
        ++group.uTimes;
    }
    std::vector<CollisionGroup> vecGroups;
    for (auto& [vecJobs, group] : mapGroups) {
        group.vecJobs = vecJobs;
        vecGroups.push_back(std::move(group));
    }
    std::stable_sort(vecGroups.begin(), vecGroups.end(), [](const CollisionGroup& a, const CollisionGroup& b) {
        return a.vecJobs.size() != b.vecJobs.size() ? a.vecJobs.size() > b.vecJobs.size() : a.tFirst < b.tFirst;
    });
    return vecGroups;
}

std::string MoreCollisions(const std::vector<CollisionGroup>& vecGroups, std::size_t uShown) {
    std::size_t uMore = 0;
    for (std::size_t u = uShown; u < vecGroups.size(); ++u) {
        uMore += vecGroups[u].uTimes;
    }
    return std::to_string(uMore) + " more, of " + Counted(vecGroups.size() - uShown, "set") + " of jobs";
}

std::string NamesOf(const std::vector<TimelineJob>& vecJobs, const std::vector<std::size_t>& vecIndices,
                    std::size_t uMost) {
    std::vector<std::string> vecNames;
    for (const std::size_t uIndex : vecIndices) {
        vecNames.push_back(vecJobs[uIndex].strName);
    }
    return Enumerated(vecNames, uMost);
}

} // namespace VUKO::VUKOCrond::Ctl
