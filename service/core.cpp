#include "service/core.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "base/syslog_line.h"
#include "service/logtext.h"
#include "service/report.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "core";

/// How long the values of a job that is gone are kept: a package that is taken out and put back finds its times again.
constexpr std::int64_t KEEP_GONE_SEC = std::int64_t{30} * 24 * 3600;

} // namespace

Core::Core(Settings settings, StateStore& store, Launcher& launcher, TemplateKeeper& keeper, RoleFile& role)
    : _settings(std::move(settings)), _store(store), _launcher(launcher), _template(keeper), _role(role) {
    try {
        _recovered = _store.Load();
    } catch (const StateError& error) {
        VUKO_LOG_PLAIN(LOG_ERR, 1, "the state cannot be read, all begins anew: %s", Escaped(error.what()).c_str());
    }
    _clock = _recovered.clock;
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
    _table = JobTable(std::move(result.vecJobs));
    result.vecJobs.clear();
    ++_counters.uLoads;
    StoreLoaded(result);
    LookUpAccounts();
    _bLookForFuture = true;
    std::set<std::pair<std::string_view, std::uint64_t>> setTold;
    std::swap(_vecRefusals, result.report.vecRefusals);
    for (const Refusal& former : result.report.vecRefusals) {
        setTold.emplace(former.strText, former.uState);
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
    Transact("loading", [&] {
        for (const JobId& id : result.vecToStore) {
            const JobIndex uJob = _table.IndexOf(id);
            _table.SetKey(uJob, _store.PutJob(ToStored(_table.At(uJob))));
        }
        for (const StoredJob& stored : result.vecGone) {
            _mapKnown.at(stored.id).iKey = _store.PutJob(stored);
            _store.DropGoneBefore(stored.iGoneSince - KEEP_GONE_SEC);
        }
    });
    std::erase_if(_mapKnown, [&](const auto& known) {
        return known.second.iGoneSince != 0 && !result.vecGone.empty() &&
               known.second.iGoneSince < result.vecGone.front().iGoneSince - KEEP_GONE_SEC;
    });
    _bWorthSaving = true;
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
bool Core::Transact(const char* szWhat, const std::function<void()>& change) {
    try {
        _store.Begin();
        change();
        _store.Commit();
        _bStoreFailed = false;
        return true;
    } catch (const StateError& error) {
        _store.Rollback();
        if (!std::exchange(_bStoreFailed, true)) { // until it works again, once is enough
            VUKO_LOG_PLAIN(LOG_ERR, 3, "%s cannot be written down: %s", szWhat, Escaped(error.what()).c_str());
        }
        return false;
    }
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
    if (const std::string strReason = _template.Save(); !strReason.empty()) {
        VUKO_LOG_PLAIN(LOG_ERR, 4, "%s", strReason.c_str());
    }
    if (!_bWorthSaving) {
        return;
    }
    try {
        _store.Persist();
        _bWorthSaving = false;
        _iLastSaved = time(nullptr);
    } catch (const StateError& error) {
        VUKO_LOG_PLAIN(LOG_ERR, 5, "the state cannot be saved: %s", Escaped(error.what()).c_str());
    }
}

void Core::NoteSleep() {
    if (_clock.iSleptSince == 0) {
        _clock.iSleptSince = std::max<std::int64_t>(1, time(nullptr));
        Transact("the sleep", [this] { _store.PutClock(_clock); });
    }
}

void Core::RerollJob(JobIndex uJob) {
    _table = [&] {
        std::vector<Job> vecJobs = _table.Jobs();
        Reroll(vecJobs[uJob]);
        return JobTable(std::move(vecJobs));
    }();
    Transact("the new values", [&] { _store.PutJob(ToStored(_table.At(uJob))); });
    _bWorthSaving = true;
}

void Core::CountOutcome(const Outcome& outcome) {
    if (outcome.eKind == OutcomeKind::Skipped) {
        ++_counters.mapSkips[ToText(outcome.eReason)];
    } else {
        ++_counters.mapStarts[ToText(outcome.eKind)];
    }
}

} // namespace VUKO::VUKOCrond::Service
