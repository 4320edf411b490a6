#include "ctl/timeline/timeline.h"

#include <algorithm>
#include <map>
#include <utility>

#include "ctl/text.h"
#include "ctl/timeline/collisions.h"
#include "ctl/toolerror.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

/// Some 30 MB. Very many jobs that start every minute all day long stay below it.
constexpr std::size_t RUNS_MAX = 2'000'000;
constexpr std::time_t SECONDS_OF_AN_HOUR = 3600;

/// A launch that is going on, or whose end nobody saw, says nothing of how long one takes.
std::optional<std::int64_t> LastDuration(const Job& job) {
    const bool bSeen = job.eLastEnd == EndKind::Exited || job.eLastEnd == EndKind::Signaled;
    return bSeen ? std::optional<std::int64_t>(job.iLastDurationUsec) : std::nullopt;
}

bool IsFrequent(const std::vector<TimelineRun>& vecRuns) {
    for (std::size_t u = TimelineJob::STARTS_OF_AN_HOUR; u < vecRuns.size(); ++u) {
        if (vecRuns[u].tBegin - vecRuns[u - TimelineJob::STARTS_OF_AN_HOUR].tBegin < SECONDS_OF_AN_HOUR) {
            return true;
        }
    }
    return false;
}

/// The name alone where no other job has it.
std::vector<TimelineJob> JobsWithNames(const std::vector<Job>& vecJobs) {
    std::map<std::string, int> mapNames;
    for (const Job& job : vecJobs) {
        ++mapNames[job.id.strName];
    }
    std::vector<TimelineJob> vecNamed(vecJobs.size());
    for (std::size_t u = 0; u < vecJobs.size(); ++u) {
        const JobId& id = vecJobs[u].id;
        vecNamed[u].id = id;
        vecNamed[u].strName = mapNames[id.strName] == 1 || id.strFolder.empty() ? id.strName : Spelled(ToText(id));
        vecNamed[u].iLastDurationUsec = LastDuration(vecJobs[u]);
    }
    return vecNamed;
}

void Simulate(const TimelineSpan& span, JobTable table, std::vector<TimelineJob>& vecJobs) {
    std::size_t uRuns = 0;
    std::vector<SimEvent> vecEvents;
    if (span.bPassive) {
        vecEvents.push_back({span.tFrom, SimEvent::Kind::Passive, 0});
    }
    Simulator simulator({span.ePolicy, span.iMaxDelay}, std::move(table));
    simulator.Run(
        span.tFrom, span.tTo - 1, vecEvents,
        [&](const ClockReading& reading, const Decision& decision, const JobTable&) {
            for (const Start& start : decision.vecStarts) {
                vecJobs[start.uJob].vecRuns.push_back({reading.tNow + start.iDelaySec, start.iDelaySec, start.eReason});
            }
            uRuns += decision.vecStarts.size();
            return uRuns <= RUNS_MAX;
        });
    if (uRuns > RUNS_MAX) {
        throw ToolError(EXIT_WRONG,
                        "there are more than " + std::to_string(RUNS_MAX) + " starts: ask for fewer --hours");
    }
}

} // namespace

std::int64_t WholeSeconds(std::int64_t iUsec) {
    constexpr std::int64_t SECOND = 1'000'000;
    return iUsec / SECOND + (iUsec % SECOND > 0 ? 1 : 0);
}

std::time_t TimelineJob::EndOf(const TimelineRun& run) const {
    return run.tBegin + static_cast<std::time_t>(WholeSeconds(iLastDurationUsec.value_or(0)));
}

Timeline MakeTimeline(const TimelineSpan& span, std::vector<Job> vecJobs) {
    Timeline timeline;
    timeline.span = span;
    JobTable table(std::move(vecJobs));
    std::vector<TimelineJob> vecAll = JobsWithNames(table.Jobs());
    Simulate(span, std::move(table), vecAll);
    for (TimelineJob& job : vecAll) {
        if (job.vecRuns.empty()) {
            timeline.vecIdle.push_back(std::move(job.strName));
            continue;
        }
        // A delay may be shorter than that of the minute before, and longer than a minute.
        std::stable_sort(job.vecRuns.begin(), job.vecRuns.end(),
                         [](const TimelineRun& a, const TimelineRun& b) { return a.tBegin < b.tBegin; });
        job.bFrequent = IsFrequent(job.vecRuns);
        timeline.vecJobs.push_back(std::move(job));
    }
    std::stable_sort(timeline.vecJobs.begin(), timeline.vecJobs.end(), [](const TimelineJob& a, const TimelineJob& b) {
        return a.vecRuns.front().tBegin < b.vecRuns.front().tBegin;
    });
    timeline.vecCollisions = FindCollisions(timeline.vecJobs);
    return timeline;
}

} // namespace VUKO::VUKOCrond::Ctl
