#include <algorithm>
#include <utility>

#include "base/syslog_line.h"
#include "service/core.h"
#include "service/launch/processid.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "runs";

} // namespace

void Core::TakeReports() {
    const std::vector<RunReport> vecReports = _launcher.TakeReports();
    if (vecReports.empty()) {
        return;
    }
    const std::int64_t iNowUsec = MonotonicUsec();
    for (const RunReport& report : vecReports) {
        Run* const pRun = _runs.Find(report.uRun);
        if (pRun == nullptr) {
            continue;
        }
        if (report.eKind == RunReport::Kind::Begun) {
            if (pRun->pidProgram == 0) { // else it was taken over, and its time runs already
                _runs.Begin(*pRun, report.pidProgram, iNowUsec);
            }
        } else {
            Finish(*pRun, report.end);
        }
    }
    WriteEnds();
}

std::string Core::ChildEnded(pid_t pid) {
    Run* const pRun = _runs.FindByChild(pid);
    if (pRun == nullptr) {
        return std::string();
    }
    std::string strJob = pRun->strJob;
    Forget(*pRun);
    return strJob;
}

/// A program can kill the child that waits for it, which has its identity by then. That must not get it rid of its time
/// limit, nor of being known as running.
bool Core::FollowOrphan(Run& run, const RunRecord& record) {
    if (run.bEnded || record.eStage != RunStage::Begun || !IsRunning(record.pidProgram, record.uProgramStart)) {
        return false;
    }
    _runs.Begin(run, record.pidProgram, MonotonicUsec());
    _runs.FollowProgram(run, record.uProgramStart);
    _vecAdopted.push_back(run.pidChild);
    return true;
}

/// The child is gone. What it left in the table tells how far it came: one that had not begun is as if never started,
/// and is started again by the next life of the service, if it was this one's stopping that ended it.
void Core::Forget(Run& run) {
    const std::optional<RunRecord> record = _launcher.Table().Find(run.uRun);
    const bool bWaited = record && (record->eStage == RunStage::Waiting || record->eStage == RunStage::Offered);
    if (record && FollowOrphan(run, *record)) {
        return;
    }
    if (bWaited && run.bTermSent && _bStopping && !run.bEnded && _launcher.Table().Revoke(run.uRun)) {
        const JobIndex uJob = _table.IndexOf(run.id);
        if (uJob < _table.Size()) {
            _table.Modify(uJob, [](Job& job) { job.uRunning -= job.uRunning > 0 ? 1 : 0; });
        }
    } else if (!run.bEnded) {
        Finish(run, record && record->end.eKind != EndKind::Open ? record->end : LostEnd());
    }
    const RunId uRun = run.uRun;
    _runs.Remove(uRun);
    WriteEnds();
    const auto isOf = [uRun](const StoredRun& unwritten) { return unwritten.outcome.uRun == uRun; };
    if (std::none_of(_vecUnwritten.begin(), _vecUnwritten.end(), isOf)) {
        _launcher.Table().Release(uRun);
    }
}

/// What became of a launch is known here at once, and to the store with the next WriteEnds().
void Core::Finish(Run& run, const RunEnd& end) {
    if (run.bEnded) {
        return;
    }
    _runs.NoteEnded(run);
    run.outcome.end = end;
    const JobIndex uJob = _table.IndexOf(run.id);
    if (uJob < _table.Size()) {
        _table.Modify(uJob, [&](Job& job) {
            job.uRunning -= job.uRunning > 0 ? 1 : 0;
            if (job.uLastRun == run.uRun) {
                job.eLastEnd = end.eKind;
                job.iLastCode = end.iCode;
                job.iLastEndUsec = end.iEndedUsec;
                job.iLastDurationUsec = end.iDurationUsec;
            }
            if (end.eKind == EndKind::Exited && end.iCode == 0) {
                job.iLastSuccessUsec = end.iEndedUsec;
            }
        });
    }
    ++_counters.mapEnds[ToText(end.eKind)];
    _bWorthSaving = true;
    if (run.onEnd) {
        std::exchange(run.onEnd, nullptr)(end);
    }
    QueueRun(run.iJobKey, run.outcome);
}

void Core::WriteEnds() {
    if (!_vecUnwritten.empty()) {
        Transact("an end", [] {});
    }
}

void Core::LookAtAdopted() {
    std::vector<RunId> vecGone;
    _runs.ForEach([&](Run& run) {
        if (run.bAdopted && !IsRunning(run.pidChild, run.uChildStart)) {
            vecGone.push_back(run.uRun);
        }
    });
    for (const RunId uRun : vecGone) {
        Forget(*_runs.Find(uRun));
    }
    // A program may have ended while its child still carries the output of those it left behind.
    _runs.ForEach([&](Run& run) {
        const std::optional<RunRecord> record = run.bAdopted ? _launcher.Table().Find(run.uRun) : std::nullopt;
        if (record && record->eStage == RunStage::Ended && !run.bEnded) {
            Finish(run, record->end);
        } else if (record && record->eStage == RunStage::Begun && run.pidProgram == 0) {
            _runs.Begin(run, record->pidProgram, MonotonicUsec());
        }
    });
    WriteEnds();
}

std::vector<pid_t> Core::TakeAdopted() {
    return std::exchange(_vecAdopted, {});
}

void Core::ExpireTimeouts() {
    for (const Run* const pRun : _runs.Expire(MonotonicUsec())) {
        VUKO_LOG_PLAIN(LOG_WARNING, 1, "job %s has used up its %d seconds and is told to end", pRun->strJob.c_str(),
                       pRun->iTimeout);
    }
}

} // namespace VUKO::VUKOCrond::Service
