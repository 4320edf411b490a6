#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <utility>

#include "base/syslog_line.h"
#include "service/core.h"
#include "service/launch/processid.h"
#include "service/planned.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "recovery";

/// Why a start that was decided by a former life of the service is not made after all. The role does not count: it was
/// this machine's to run that minute.
SkipReason WhyNotAgain(const Job& job, std::optional<Account>& account) {
    if (job.bInvalid) {
        return SkipReason::DefinitionInvalid;
    }
    if (!job.bEnabled) {
        return SkipReason::Disabled;
    }
    account = FindAccount(job.strAccount);
    if (!account) {
        return SkipReason::AccountUnknown;
    }
    return CanBecome(*account) ? SkipReason::None : SkipReason::IdentityRefused;
}

/// How long ago a process was started. The time that a program has had already counts.
std::int64_t AgeUsec(std::uint64_t uStartTicks) {
    constexpr std::int64_t USEC = 1'000'000;
    const std::int64_t iTicksPerSec = sysconf(_SC_CLK_TCK);
    timespec ts = {};
    if (uStartTicks == 0 || iTicksPerSec <= 0 || clock_gettime(CLOCK_BOOTTIME, &ts) != 0) {
        return 0;
    }
    const std::int64_t iStartUsec = static_cast<std::int64_t>(uStartTicks) * (USEC / iTicksPerSec);
    return std::max<std::int64_t>(0, ts.tv_sec * USEC + ts.tv_nsec / 1000 - iStartUsec);
}

} // namespace

void Core::Recover(std::int64_t iNow) {
    const bool bSameBoot = _clock.strBootId == _settings.strBootId;
    std::vector<Planned> vecAgain;
    for (const StoredRun& stored : std::exchange(_recovered.vecOpenRuns, {})) {
        RecoverRun(stored, bSameBoot, iNow, vecAgain);
    }
    for (const RunRecord& record : _launcher.Table().Records()) {
        if (_runs.Find(record.uRun) == nullptr && !IsRunning(record.pidChild, record.uChildStart)) {
            _launcher.Table().Release(record.uRun);
        }
    }
    WriteEnds();
    const bool bHibernating = !vecAgain.empty() && _settings.isHibernating();
    for (Planned& planned : vecAgain) {
        if (bHibernating || !LaunchOne(planned, iNow)) {
            Postpone(planned);
        }
    }
}

/// The record of a launch tells exactly how far it came; where there is none, its child was never made.
void Core::RecoverRun(const StoredRun& stored, bool bSameBoot, std::int64_t iNow, std::vector<Planned>& vecAgain) {
    RunTable& table = _launcher.Table();
    // What is in the table is of this boot, also where no tick has told the state of it yet.
    std::optional<RunRecord> record = table.Find(stored.outcome.uRun);
    const bool bLost = !record && (!bSameBoot || table.IsNew());
    const bool bBegan = record && !table.Revoke(stored.outcome.uRun);
    record = bBegan ? table.Find(stored.outcome.uRun) : std::nullopt; // it may have come further meanwhile
    if (bLost || (bBegan && !record)) {
        Outcome outcome = stored.outcome;
        outcome.end = LostEnd();
        QueueRun(stored.iJobKey, outcome);
        return;
    }
    if (bBegan) {
        Adopt(stored, *record);
        return;
    }
    table.Release(stored.outcome.uRun);
    const JobIndex uJob = _table.IndexOf(stored.iJobKey);
    Outcome outcome = stored.outcome;
    std::optional<Account> account;
    const SkipReason eWhyNot =
        uJob < _table.Size() ? WhyNotAgain(_table.At(uJob), account) : SkipReason::DefinitionInvalid;
    if (eWhyNot != SkipReason::None) {
        GiveUp(outcome, eWhyNot);
        CountOutcome(outcome);
        QueueRun(stored.iJobKey, outcome);
        return;
    }
    VUKO_LOG_PLAIN(LOG_NOTICE, 1, "job %s was to start before the service ended and is started now",
                   ToText(_table.At(uJob).id).c_str());
    outcome.iDelaySec = static_cast<int>(std::max<std::int64_t>(0, outcome.iDecided + outcome.iDelaySec - iNow));
    vecAgain.push_back({uJob, *account, outcome, nullptr, true});
}

/// Takes over a launch that began in a former life of the service.
void Core::Adopt(const StoredRun& stored, const RunRecord& record) {
    Run run;
    run.uRun = record.uRun;
    run.iJobKey = stored.iJobKey;
    run.outcome = stored.outcome;
    run.pidChild = record.pidChild;
    run.uChildStart = record.uChildStart;
    run.bAdopted = true;
    const JobIndex uJob = _table.IndexOf(stored.iJobKey);
    if (uJob < _table.Size()) {
        run.id = _table.At(uJob).id;
        run.strJob = ToText(run.id);
        run.iTimeout = _table.At(uJob).iTimeout;
        _table.Modify(uJob, [&](Job& job) {
            ++job.uRunning;
            job.pidRunning = record.pidChild;
            job.iRunningSince = stored.outcome.iDecided;
            job.uLastRun = record.uRun;
        });
    } else { // its definition is away; it may come back while this goes on
        for (const auto& [id, known] : _mapKnown) {
            if (known.iKey == stored.iJobKey) {
                run.id = id;
                run.strJob = ToText(id);
            }
        }
    }
    Run& added = _runs.Add(std::move(run));
    if (record.pidProgram != 0) {
        _runs.Begin(added, record.pidProgram, MonotonicUsec() - AgeUsec(record.uProgramStart));
    }
    _vecAdopted.push_back(record.pidChild);
}

} // namespace VUKO::VUKOCrond::Service
