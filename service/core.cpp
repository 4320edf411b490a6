#include "service/core.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "base/syslog_line.h"
#include "service/logtext.h"
#include "service/planned.h"
#include "service/report.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "core";

/// How long the values of a job that is gone are kept: a package that is taken out and put back finds its times again.
constexpr std::int64_t KEEP_GONE_SEC = std::int64_t{30} * 24 * 3600;

/// So many ends of launches wait for a store that cannot be written. Each keeps its place in the run table.
constexpr std::size_t UNWRITTEN_MAX = 1000;

} // namespace

Core::Core(Settings settings, StateStore& store, Launcher& launcher, TemplateKeeper& keeper, RoleFile& role)
    : _settings(std::move(settings)), _store(store), _launcher(launcher), _template(keeper), _role(role) {
    try {
        _recovered = _store.Load();
    } catch (const StateError& error) {
        VUKO_LOG_PLAIN(LOG_ERR, 1, "the state cannot be read, all begins anew: %s", Escaped(error.what()).c_str());
    }
    _clock = _recovered.clock;
    if (_store.IsFresh()) {
        // The working copy is lost. How far a clock was worked on that was saved minutes ago is no longer true: going
        // on from there would run those minutes again.
        _clock.strBootId.clear();
    }
    for (StoredJob& stored : _recovered.vecJobs) {
        JobId id = stored.id;
        _mapKnown.emplace(std::move(id), std::move(stored));
    }
    _recovered.vecJobs.clear();
    for (const RunRecord& record : _launcher.Table().Records()) {
        _clock.uLastRun = std::max(_clock.uLastRun, record.uRun); // also what a state that was lost had given out
    }
}

LoadReport Core::Load(DefinitionScan scan, std::int64_t iNow) {
    LoadResult result = LoadJobs(std::move(scan), _table, _mapKnown, _template.Template(), iNow);
    const JobTable former = std::exchange(_table, JobTable(std::move(result.vecJobs)));
    result.vecJobs.clear();
    ++_counters.uLoads;
    GiveUpPendingOfGone(former);
    FindRunningAgain();
    StoreLoaded(result);
    LookUpAccounts();
    _bLookForFuture = true;
    std::set<std::pair<std::string_view, std::uint64_t>> setTold;
    std::swap(_vecRefusals, result.report.vecRefusals);
    for (const Refusal& told : result.report.vecRefusals) {
        setTold.emplace(told.strText, told.uState);
    }
    for (const Refusal& refusal : _vecRefusals) {
        if (!setTold.contains({refusal.strText, refusal.uState})) {
            VUKO_LOG_PLAIN(LOG_WARNING, 2, "%s", refusal.strText.c_str());
        }
    }
    result.report.vecRefusals = _vecRefusals;
    return std::move(result.report);
}

void Core::StoreLoaded(const LoadResult& result) {
    for (const StoredJob& stored : result.vecGone) {
        _mapKnown.insert_or_assign(stored.id, stored);
    }
    for (const Job& job : _table.Jobs()) {
        _mapKnown.erase(job.id);
    }
    if (result.vecToStore.empty() && result.vecGone.empty()) {
        return;
    }
    _setUnstored.insert(result.vecToStore.begin(), result.vecToStore.end());
    Transact("loading", [&] {
        for (const StoredJob& stored : result.vecGone) {
            if (stored.iKey != 0) { // else the store has never heard of it
                _store.PutJob(stored);
            }
            _store.DropGoneBefore(stored.iGoneSince - KEEP_GONE_SEC);
        }
    });
    std::erase_if(_mapKnown, [&](const auto& known) {
        return known.second.iGoneSince != 0 && !result.vecGone.empty() &&
               known.second.iGoneSince < result.vecGone.front().iGoneSince - KEEP_GONE_SEC;
    });
    _bWorthSaving = true;
}

/// A start that is to be tried again goes with its job.
void Core::GiveUpPendingOfGone(const JobTable& former) {
    for (const JobIndex uJob : former.Pending()) {
        const Job& job = former.At(uJob);
        if (_table.Find(job.id) == nullptr) {
            Outcome outcome;
            outcome.uRun = job.uPendingRun;
            GiveUp(outcome, SkipReason::DefinitionInvalid);
            CountOutcome(outcome);
            QueueRun(job.iKey, outcome);
        }
    }
    WriteEnds();
}

/// A job that was away for a while may have launches that it left behind.
void Core::FindRunningAgain() {
    std::map<JobIndex, std::vector<const Run*>> mapGoing;
    _runs.ForEach([&](const Run& run) {
        if (const JobIndex uJob = _table.IndexOf(run.id); !run.bEnded && uJob < _table.Size()) {
            mapGoing[uJob].push_back(&run);
        }
    });
    for (const auto& [uJob, vecGoing] : mapGoing) {
        _table.Modify(uJob, [&going = vecGoing](Job& job) {
            job.uRunning = static_cast<std::uint32_t>(going.size());
            job.pidRunning = going.back()->pidChild;
            job.iRunningSince = going.back()->outcome.iDecided;
            job.uLastRun = going.back()->uRun;
        });
    }
}

/// Each account once. Whoever asks about jobs later is answered from this: the sources may be slow.
void Core::LookUpAccounts() {
    std::map<std::string, uid_t> mapIds;
    for (JobIndex uJob = 0; uJob < _table.Size(); ++uJob) {
        const std::string& strAccount = _table.At(uJob).strAccount;
        const auto [it, bIsNew] = mapIds.try_emplace(strAccount, static_cast<uid_t>(-1));
        if (bIsNew && !strAccount.empty()) {
            const std::optional<Account> account = FindAccount(strAccount);
            it->second = account ? account->uid : it->second;
        }
        _table.SetAccountId(uJob, it->second);
    }
}

/// What cannot be written down is done all the same: a job that should run and does not is worse than one that might
/// run twice after a crash.
///
/// What became of launches is not given up so easily: the store would have to take them for launches that never began.
/// Until it knows better, the run table does.
bool Core::Transact(const char* szWhat, const std::function<void()>& change) {
    _vecKeyed.clear();
    try {
        _store.Begin();
        for (const StoredRun& unwritten : _vecUnwritten) {
            _store.UpdateRun(unwritten.iJobKey, unwritten.outcome);
        }
        for (const JobId& id : _setUnstored) {
            if (const JobIndex uJob = _table.IndexOf(id); uJob < _table.Size()) {
                PutJob(uJob);
            }
        }
        change();
        _store.Commit();
        _setUnstored.clear();
        for (const StoredRun& written : std::exchange(_vecUnwritten, {})) {
            if (_runs.Find(written.outcome.uRun) == nullptr) {
                _launcher.Table().Release(written.outcome.uRun);
            }
        }
        return true;
    } catch (const StateError& error) {
        _store.Rollback();
        for (const JobIndex uJob : std::exchange(_vecKeyed, {})) {
            _table.SetKey(uJob, 0);
        }
        if (!std::exchange(_bStoreFailed, true)) { // until it works again, once is enough
            VUKO_LOG_PLAIN(LOG_ERR, 3, "%s cannot be written down: %s", szWhat, Escaped(error.what()).c_str());
        }
        return false;
    }
}

void Core::QueueRun(std::int64_t iJobKey, const Outcome& outcome) {
    if (_vecUnwritten.size() >= UNWRITTEN_MAX) {
        _launcher.Table().Release(_vecUnwritten.front().outcome.uRun);
        _vecUnwritten.erase(_vecUnwritten.begin());
    }
    _vecUnwritten.push_back({iJobKey, outcome});
}

/// Within a transaction.
std::int64_t Core::PutJob(JobIndex uJob) {
    const std::int64_t iFormer = _table.At(uJob).iKey;
    const std::int64_t iKey = _store.PutJob(ToStored(_table.At(uJob)));
    if (iFormer != iKey) {
        _vecKeyed.push_back(uJob);
        _table.SetKey(uJob, iKey);
    }
    return iKey;
}

/// Within a transaction. The store knows no job that was loaded while it could not be written.
std::int64_t Core::KeyOf(JobIndex uJob) {
    const std::int64_t iKey = _table.At(uJob).iKey;
    return iKey != 0 ? iKey : PutJob(uJob);
}

void Core::BeginStop(OnStop eOnStop) {
    _bStopping = true;
    if (eOnStop == OnStop::Terminate) {
        const std::int64_t iNowUsec = MonotonicUsec();
        _runs.ForEach([&](Run& run) { _runs.Terminate(run, iNowUsec); });
    }
}

void Core::Save() {
    if (!_settings.isHibernating()) { // else the disk sleeps
        SaveNow();
    }
}

/// logind tells of the sleep before it comes, and says "preparing" from then on: the disk may still be written.
void Core::PrepareSleep() {
    SaveNow();
    NoteSleep();
}

void Core::SaveNow() {
    std::string strReason = _template.Save();
    if (!strReason.empty() && strReason != _strUnsaved) { // it is tried each minute, and told once
        VUKO_LOG_PLAIN(LOG_ERR, 4, "%s", strReason.c_str());
    }
    if (_bWorthSaving) {
        try {
            _store.Persist();
            _bWorthSaving = false;
            _iLastSaved = time(nullptr);
        } catch (const StateError& error) {
            if (strReason.empty() && _strUnsaved != error.what()) {
                VUKO_LOG_PLAIN(LOG_ERR, 5, "the state cannot be saved: %s", Escaped(error.what()).c_str());
            }
            strReason = strReason.empty() ? error.what() : strReason;
        }
    }
    _strUnsaved = std::move(strReason);
}

void Core::NoteSleep() {
    if (_clock.iSleptSince == 0) {
        _clock.iSleptSince = std::max<std::int64_t>(1, time(nullptr));
        Transact("the sleep", [this] { _store.PutClock(_clock); });
    }
}

void Core::RerollJob(JobIndex uJob) {
    _table.SetSchedule(uJob, Rerolled(_table.At(uJob)));
    _setUnstored.insert(_table.At(uJob).id);
    Transact("the new values", [] {});
    _bWorthSaving = true;
}

/// How its last run ended is in the ledger when the service has been started since.
const Job& Core::Recalled(JobIndex uJob) {
    const Job& job = _table.At(uJob);
    if (job.uLastRun == 0 && job.iLastExecution != Job::NEVER && job.iKey != 0) {
        for (const Outcome& outcome : _store.History(job.iKey, StateStore::LEDGER_DEPTH)) {
            if (outcome.uRun != 0 && outcome.eKind != OutcomeKind::Skipped) {
                _table.Modify(uJob, [&](Job& changed) {
                    changed.uLastRun = outcome.uRun;
                    changed.eLastEnd = outcome.end.eKind;
                    changed.iLastCode = outcome.end.iCode;
                    changed.iLastEndUsec = outcome.end.iEndedUsec;
                    changed.iLastDurationUsec = outcome.end.iDurationUsec;
                });
                break;
            }
        }
    }
    return job;
}

void Core::CountOutcome(const Outcome& outcome) {
    if (outcome.eKind == OutcomeKind::Skipped) {
        ++_counters.mapSkips[ToText(outcome.eReason)];
    } else {
        ++_counters.mapStarts[ToText(outcome.eKind)];
    }
}

std::optional<Surroundings> Core::SurroundingsOf(JobIndex uJob) const {
    const Job& job = _table.At(uJob);
    LaunchOrder order;
    order.strIdentifier = ToText(job.id);
    const std::optional<Account> account = FindAccount(job.strAccount);
    if (!account) {
        return std::nullopt;
    }
    order.account = *account;
    return _launcher.SurroundingsOf(order);
}

} // namespace VUKO::VUKOCrond::Service
