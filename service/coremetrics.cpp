#include "service/coremetrics.h"

#include <ctime>

#include "service/control/jobjson.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::int64_t USEC = 1'000'000;
constexpr int SIGNALED_BASE = 128;

JobMetrics MetricsOf(const Job& job) {
    JobMetrics metrics;
    metrics.strJob = ToText(job.id);
    metrics.bRunning = job.uRunning != 0;
    if (job.eLastEnd == EndKind::Exited || job.eLastEnd == EndKind::Signaled) {
        metrics.lastExitStatus = job.eLastEnd == EndKind::Exited ? job.iLastCode : SIGNALED_BASE + job.iLastCode;
        metrics.lastDurationUsec = job.iLastDurationUsec;
    }
    if (job.iLastExecution != Job::NEVER) {
        metrics.lastStart = job.iLastExecution;
    }
    if (job.iLastSuccessUsec != 0) {
        metrics.lastSuccess = job.iLastSuccessUsec / USEC;
    }
    return metrics;
}

} // namespace

MetricsSnapshot TakeMetrics(Core& core, std::int64_t iStarted) {
    MetricsSnapshot snapshot;
    const std::time_t tNow = time(nullptr);
    snapshot.strVersion = VUKO_VERSION;
    snapshot.strPolicy = ToText(core.Set().ePolicy);
    snapshot.bActive = core.RoleOf().RoleAt(std::int64_t{tNow} * USEC) == Role::Active;
    snapshot.bHibernating = core.Clock().iSleptSince != 0;
    snapshot.iStarted = iStarted;
    snapshot.iLastTick = core.LastTickAt();
    snapshot.iStateSaved = core.LastSavedAt();
    if (const std::tm* const pLocal = localtime(&tNow); pLocal != nullptr) {
        snapshot.iZoneOffset = pLocal->tm_gmtoff;
    }
    snapshot.uReloads = core.Count().uLoads;
    snapshot.uRefusedDefinitions = core.Refusals().size();
    snapshot.uRunning = core.Going().Going();
    snapshot.mapStarts = core.Count().mapStarts;
    snapshot.mapSkips = core.Count().mapSkips;
    snapshot.mapEnds = core.Count().mapEnds;
    for (const Job& job : core.Jobs().Jobs()) {
        ++snapshot.mapJobs[StateOf(job)];
        if (snapshot.vecJobs.size() < METRICS_JOBS_MAX) {
            snapshot.vecJobs.push_back(MetricsOf(job));
        }
    }
    return snapshot;
}

} // namespace VUKO::VUKOCrond::Service
