#include <unistd.h>

#include <cerrno>
#include <exception>
#include <utility>

#include "base/syslog_line.h"
#include "service/core.h"
#include "service/logtext.h"
#include "service/planned.h"
#include "service/timetext.h"
#include "service/trustedpath.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "tick";

/// What was missed while the machine was down waits so long after it is up.
constexpr std::int64_t BOOT_SETTLED_SEC = 300;

constexpr const char* szAssure = "assure";

/// The accounts of one tick, each looked up once: the sources may be slow.
class AccountLookup {
public:
    const std::optional<Account>& Find(const std::string& strName) {
        const auto [it, bIsNew] = _mapAccounts.try_emplace(strName);
        if (bIsNew) {
            it->second = FindAccount(strName);
        }
        return it->second;
    }

private:
    std::map<std::string, std::optional<Account>> _mapAccounts;
};

} // namespace

void Core::Tick(const ClockReading& reading, std::int64_t iUptimeSec) {
    const bool bSameBoot = _clock.strBootId == _settings.strBootId;
    if (bSameBoot && reading.iLocalMinute == _clock.iLastTick) {
        return;
    }
    if (!bSameBoot) {
        _clock.strBootId = _settings.strBootId;
        _clock.iWorkedUpTo = reading.iLocalMinute - 1;
        _clock.iSleptSince = 0;
    } else if (_bFirstTick) {
        _eGapCause = SkipReason::ServiceDown;
    }
    _bFirstTick = false;
    ++_counters.uTicks;
    const TickInput input = MakeInput(reading, iUptimeSec);
    _clock.iLastTick = reading.iLocalMinute;
    _tLastTick = reading.tNow;
    if (input.bHibernating && input.ePolicy == ClockPolicy::CatchUp) {
        _bLookForFuture = input.bLookForFuture; // the clock may have gone back meanwhile
        return;                                 // nothing counts as worked on: the tick after waking finds the gap
    }
    const Decision decision = Decide(input, _table);
    _clock.iWorkedUpTo = decision.iWorkedUpTo;
    _clock.iSleptSince = input.bHibernating ? _clock.iSleptSince : 0;
    _eGapCause = SkipReason::ClockStep;
    _bLookForFuture = false;
    Carry(decision, reading);
}

TickInput Core::MakeInput(const ClockReading& reading, std::int64_t iUptimeSec) {
    TickInput input;
    input.bHibernating = _settings.isHibernating();
    if (input.bHibernating) {
        NoteSleep();
    }
    input.reading = reading;
    input.ePolicy = _settings.ePolicy;
    input.iWorkedUpTo = _clock.iWorkedUpTo;
    input.eGapCause = _clock.iSleptSince != 0 ? SkipReason::Hibernating : _eGapCause;
    const std::int64_t iMinuteBegan = reading.tNow - reading.iSecond;
    input.bPassive = _role.RoleAt(iMinuteBegan * 1'000'000) == Role::Passive;
    input.bStopping = _bStopping || _bDraining;
    input.bBootSettled = iUptimeSec >= BOOT_SETTLED_SEC;
    input.bLookForFuture = _bLookForFuture || reading.tNow < _tLastTick;
    input.iMaxDelay = _template.MaxDelay();
    return input;
}

void Core::Carry(const Decision& decision, const ClockReading& reading) {
    for (const JobIndex uJob : decision.vecFuture) {
        const bool bNever = _table.At(uJob).iLastExecution == Job::NEVER;
        VUKO_LOG_PLAIN(LOG_WARNING, 1, "job %s: its \"%s\" lies in the future and is taken as now",
                       ToText(_table.At(uJob).id).c_str(), bNever ? "startup" : "lastExecution");
        _table.Modify(uJob, [&](Job& job) { (bNever ? job.iStartup : job.iLastExecution) = reading.tNow; });
    }
    for (const JobIndex uJob : decision.vecOverdue) {
        VUKO_LOG_PLAIN(LOG_WARNING, 2,
                       "job %s is overdue: it has not run for more than %d hours and waits for its next minute",
                       ToText(_table.At(uJob).id).c_str(), _table.At(uJob).iAssureHours);
        _table.Modify(uJob, [](Job& job) { job.bOverdueReported = true; });
    }
    std::vector<Planned> vecPlanned = Plan(decision, reading);
    ApplyPlan(vecPlanned, decision, reading);
    for (Planned& planned : vecPlanned) {
        if (planned.outcome.eKind != OutcomeKind::Skipped && !LaunchOne(planned, reading.tNow)) {
            Postpone(planned);
        }
    }
}

/// Settles for each start what can be settled before anything is written down: its account, and its number.
std::vector<Core::Planned> Core::Plan(const Decision& decision, const ClockReading& reading) {
    std::vector<Planned> vecPlanned;
    vecPlanned.reserve(decision.vecStarts.size());
    AccountLookup accounts;
    for (const Start& start : decision.vecStarts) {
        const Job& job = _table.At(start.uJob);
        Planned planned;
        planned.uJob = start.uJob;
        planned.bIsRetry = start.eReason == StartReason::Retry;
        Outcome& outcome = planned.outcome;
        outcome.iMinute = start.iMinute;
        outcome.iDecided = reading.tNow;
        outcome.iDelaySec = start.iDelaySec;
        outcome.eKind = start.iMinute != reading.iLocalMinute ? OutcomeKind::MadeUp
                        : start.iDelaySec > 0                 ? OutcomeKind::Delayed
                                                              : OutcomeKind::Started;
        if (start.eReason == StartReason::Assure || (planned.bIsRetry && job.bPendingAssure)) {
            outcome.strLabel = szAssure;
        }
        outcome.uRun = planned.bIsRetry ? job.uPendingRun : 0;
        const std::optional<Account>& account = accounts.Find(job.strAccount);
        if (!account) {
            GiveUp(outcome, SkipReason::AccountUnknown);
            VUKO_LOG_PLAIN(LOG_ERR, 3, "job %s is not started: there is no account %s", ToText(job.id).c_str(),
                           Quoted(job.strAccount).c_str());
        } else if (!CanBecome(*account)) {
            GiveUp(outcome, SkipReason::IdentityRefused);
            VUKO_LOG_PLAIN(LOG_CRIT, 4, "job %s is not started: this service may not run programs as %s",
                           ToText(job.id).c_str(), Quoted(job.strAccount).c_str());
        } else {
            planned.account = *account;
            outcome.uRun = planned.bIsRetry ? outcome.uRun : ++_clock.uLastRun;
        }
        vecPlanned.push_back(std::move(planned));
    }
    return vecPlanned;
}

/// Everything that the tick has decided becomes known at once, before the first launch.
void Core::ApplyPlan(std::vector<Planned>& vecPlanned, const Decision& decision, const ClockReading& reading) {
    for (const Planned& planned : vecPlanned) {
        _table.Modify(planned.uJob, [&](Job& job) {
            job.uPendingRun = planned.bIsRetry ? 0 : job.uPendingRun;
            if (planned.outcome.eKind != OutcomeKind::Skipped) {
                job.iLastExecution = reading.tNow;
                job.bOverdueReported = false;
            }
        });
        if (planned.outcome.eKind == OutcomeKind::Skipped) {
            CountOutcome(planned.outcome);
        }
    }
    const bool bWritten = Transact("the tick", [&] {
        _store.PutClock(_clock);
        for (const JobIndex uJob : decision.vecFuture) {
            PutJob(uJob);
        }
        for (const JobIndex uJob : decision.vecOverdue) {
            PutJob(uJob);
        }
        StoreSkips(decision.vecSkips, reading);
        for (const Planned& planned : vecPlanned) {
            const std::int64_t iKey =
                planned.outcome.eKind != OutcomeKind::Skipped ? PutJob(planned.uJob) : KeyOf(planned.uJob);
            if (planned.bIsRetry) {
                _store.UpdateRun(iKey, planned.outcome);
            } else {
                _store.AddOutcome(iKey, planned.outcome);
            }
        }
    });
    _bStoreFailed = _bStoreFailed && !bWritten; // a tick has something to write in any case
    for (const Skip& skip : decision.vecSkips) {
        if (skip.bOfPending) {
            _table.Modify(skip.uJob, [](Job& job) { job.uPendingRun = 0; });
        }
    }
    _bWorthSaving = _bWorthSaving || !decision.IsIdle();
}

/// After a long absence there may be very many. Of each job only as many are written as its ledger keeps: the youngest,
/// which come last.
void Core::StoreSkips(const std::vector<Skip>& vecSkips, const ClockReading& reading) {
    std::map<JobIndex, int> mapLeft;
    for (const Skip& skip : vecSkips) {
        ++mapLeft[skip.uJob];
    }
    for (const Skip& skip : vecSkips) {
        if (skip.bOfPending || mapLeft[skip.uJob]-- <= StateStore::LEDGER_DEPTH) {
            StoreSkip(skip, reading);
        } else {
            ++_counters.mapSkips[ToText(skip.eReason)];
        }
    }
}

void Core::StoreSkip(const Skip& skip, const ClockReading& reading) {
    const Job& job = _table.At(skip.uJob);
    Outcome outcome;
    outcome.iMinute = skip.iMinute;
    outcome.iDecided = reading.tNow;
    outcome.eReason = skip.eReason;
    if (skip.eReason == SkipReason::Overlap) {
        outcome.pidOther = job.pidRunning;
        outcome.iOtherSince = job.iRunningSince;
        VUKO_LOG_PLAIN(LOG_NOTICE, 5, "job %s is not started again: process %d is still going, since %s",
                       ToText(job.id).c_str(), static_cast<int>(job.pidRunning), TimeText(job.iRunningSince).c_str());
    }
    CountOutcome(outcome);
    if (skip.bOfPending) {
        outcome.uRun = job.uPendingRun;
        GiveUp(outcome, skip.eReason);
        _store.UpdateRun(KeyOf(skip.uJob), outcome);
    } else {
        _store.AddOutcome(KeyOf(skip.uJob), outcome);
    }
}

/// The places of the execution log are looked at before each start. What cannot be mended is told once.
void Core::TellOfStaging() {
    std::vector<std::string> vecNotes = SecureLogStaging();
    if (vecNotes != _vecStagingNotes) {
        for (const std::string& strNote : vecNotes) {
            VUKO_LOG_PLAIN(LOG_WARNING, 6, "%s", strNote.c_str());
        }
        _vecStagingNotes = std::move(vecNotes);
    }
}

/// The start is to be tried again at the next ticks. There is one such of a job at most, the youngest.
void Core::Postpone(const Planned& planned) {
    const Job& job = _table.At(planned.uJob);
    if (job.IsPending() && job.uPendingRun != planned.outcome.uRun) {
        Outcome former;
        former.uRun = job.uPendingRun;
        GiveUp(former, SkipReason::ForkFailed);
        CountOutcome(former);
        QueueRun(job.iKey, former);
        WriteEnds();
    }
    _table.Modify(planned.uJob, [&](Job& changed) {
        changed.iPendingTicks = planned.bIsRetry ? changed.iPendingTicks + 1 : 0;
        changed.uPendingRun = planned.outcome.uRun;
        changed.iPendingMinute = planned.outcome.iMinute;
        changed.bPendingAssure = planned.outcome.strLabel == szAssure;
    });
}

/// @return false when no child could be made.
bool Core::LaunchOne(Planned& planned, std::int64_t iNow) {
    const Job& job = _table.At(planned.uJob);
    pid_t pid = -1;
    try { // whatever goes wrong with one is not to keep the others from their start
        TellOfStaging();
        CronJob record = BuildRecord(job);
        const LaunchOrder order{planned.outcome.uRun, ToText(job.id), planned.account, planned.outcome.iDelaySec,
                                planned.outcome.strLabel};
        pid = record._bValid ? _launcher.Start(record, order) : -1;
    } catch (const std::exception& exception) {
        VUKO_LOG_PLAIN(LOG_ERR, 7, "job %s cannot be started: %s", ToText(job.id).c_str(),
                       Escaped(exception.what()).c_str());
    }
    if (pid < 0) {
        return false;
    }
    CountOutcome(planned.outcome); // not when it is decided: one that is tried again often is one start
    _table.Modify(planned.uJob, [&](Job& changed) {
        ++changed.uRunning;
        changed.pidRunning = pid;
        changed.iRunningSince = iNow;
        changed.uLastRun = planned.outcome.uRun;
        changed.eLastEnd = EndKind::Open;
    });
    Run run;
    run.uRun = planned.outcome.uRun;
    run.iJobKey = job.iKey;
    run.id = job.id;
    run.strJob = ToText(job.id);
    run.outcome = planned.outcome;
    run.pidChild = pid;
    run.iTimeout = job.iTimeout;
    run.onEnd = std::move(planned.onEnd);
    _runs.Add(std::move(run));
    return true;
}

SkipReason Core::RunNow(JobIndex uJob, const ClockReading& reading, std::function<void(const RunEnd&)> onEnd) {
    TickInput input;
    input.bPassive = _role.RoleAt(RealtimeUsec()) == Role::Passive;
    input.bStopping = _bStopping || _bDraining;
    Job allowed = _table.At(uJob);
    allowed.bEnabled = true; // whoever asks for it means it
    if (const SkipReason eReason = WhyNotNow(input, allowed); eReason != SkipReason::None) {
        return eReason;
    }
    if (_settings.isHibernating()) {
        return SkipReason::Hibernating;
    }
    Decision decision;
    decision.iWorkedUpTo = _clock.iWorkedUpTo;
    decision.vecStarts.push_back({uJob, StartReason::Due, reading.iLocalMinute, 0});
    std::vector<Planned> vecPlanned = Plan(decision, reading);
    Planned& planned = vecPlanned.front();
    planned.outcome.strLabel = "manual";
    planned.onEnd = std::move(onEnd);
    ApplyPlan(vecPlanned, decision, reading);
    if (planned.outcome.eKind == OutcomeKind::Skipped) {
        return planned.outcome.eReason;
    }
    if (!LaunchOne(planned, reading.tNow)) {
        GiveUp(planned.outcome, SkipReason::ForkFailed); // whoever asked is told, and may ask again
        CountOutcome(planned.outcome);
        QueueRun(_table.At(uJob).iKey, planned.outcome);
        WriteEnds();
    }
    return planned.outcome.eReason;
}

} // namespace VUKO::VUKOCrond::Service
