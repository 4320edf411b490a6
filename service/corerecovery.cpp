#include <algorithm>
#include <utility>

#include "base/syslog_line.h"
#include "service/core.h"
#include "service/launch/processid.h"
#include "service/planned.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "recovery";

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
    for (Planned& planned : vecAgain) {
        LaunchOne(planned, iNow);
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
        Transact("a lost launch", [&] { _store.UpdateRun(stored.iJobKey, outcome); });
        return;
    }
    if (bBegan) {
        Adopt(stored, *record);
        return;
    }
    table.Release(stored.outcome.uRun);
    const JobIndex uJob = _table.IndexOf(stored.iJobKey);
    Outcome outcome = stored.outcome;
    const std::optional<Account> account =
        uJob < _table.Size() && !_table.At(uJob).bInvalid ? FindAccount(_table.At(uJob).strAccount) : std::nullopt;
    if (!account || !CanBecome(*account)) {
        outcome.eKind = OutcomeKind::Skipped;
        outcome.eReason = uJob >= _table.Size() || _table.At(uJob).bInvalid ? SkipReason::DefinitionInvalid
                          : !account                                        ? SkipReason::AccountUnknown
                                                                            : SkipReason::IdentityRefused;
        Transact("a lost launch", [&] { _store.UpdateRun(stored.iJobKey, outcome); });
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
        run.strJob = ToText(_table.At(uJob).id);
        run.iTimeout = _table.At(uJob).iTimeout;
        _table.Modify(uJob, [&](Job& job) {
            ++job.uRunning;
            job.pidRunning = record.pidChild;
            job.iRunningSince = stored.outcome.iDecided;
            job.uLastRun = record.uRun;
        });
    }
    Run& added = _runs.Add(std::move(run));
    if (record.pidProgram != 0) {
        // The time that it has had already counts.
        const std::int64_t iHadUsec =
            std::max<std::int64_t>(0, std::int64_t{time(nullptr)} * 1'000'000 - record.end.iStartedUsec);
        _runs.Begin(added, record.pidProgram, MonotonicUsec() - iHadUsec);
    }
    _vecAdopted.push_back(record.pidChild);
}

} // namespace VUKO::VUKOCrond::Service
