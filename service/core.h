#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "service/engine/engine.h"
#include "service/jobloader.h"
#include "service/launch/launcher.h"
#include "service/role/rolefile.h"
#include "service/runs.h"
#include "service/state/statestore.h"
#include "service/templatekeeper.h"

namespace VUKO::VUKOCrond::Service {

/// What happens to running jobs when the service is stopped.
enum class OnStop { Leave, Wait, Terminate };

/// The service without its descriptors: it has the jobs, lets the engine decide, writes down what was decided, does it,
/// and keeps track of what becomes of it. Every operation returns at once.
class Core {
public:
    struct Settings {
        ClockPolicy ePolicy = ClockPolicy::CatchUp;
        std::string strBootId;
        std::function<bool()> isHibernating;
    };

    /// How much of each kind there has been since the start.
    struct Counters {
        std::map<std::string, std::uint64_t> mapStarts; ///< by "started", "made-up", "delayed"
        std::map<std::string, std::uint64_t> mapSkips;  ///< by reason
        std::map<std::string, std::uint64_t> mapEnds;   ///< by "exited", "signaled", ...
        std::uint64_t uTicks = 0;
        std::uint64_t uLoads = 0;
    };

    Core(Settings settings, StateStore& store, Launcher& launcher, TemplateKeeper& keeper, RoleFile& role);

    /// Makes the jobs those of a scan. Logs what has changed, and each refusal once.
    LoadReport Load(DefinitionScan scan, std::int64_t iNow);
    /// Takes up, after the first Load(), what a former life of the service left behind: launches that go on are
    /// tracked again, starts that were decided and have not begun are made.
    void Recover(std::int64_t iNow);

    /// One look at the clock. Does nothing in a minute that has had its tick.
    void Tick(const ClockReading& reading, std::int64_t iUptimeSec);

    /// Takes what the launches have told.
    void TakeReports();
    /// A child was reaped; strangers are none of ours. @return the job's identity when it was a launch.
    std::string ChildEnded(pid_t pid);
    /// A launch that is no child of ours may have ended.
    void LookAtAdopted();
    /// Processes of launches that are no children of ours, or are none any more: to be watched. Told once.
    std::vector<pid_t> TakeAdopted();

    std::optional<std::int64_t> NextDeadlineUsec() const { return _runs.NextDeadlineUsec(); }
    void ExpireTimeouts();

    /// Starts a job out of turn. @return the reason why not, or nothing; `onEnd` is told of its end.
    SkipReason RunNow(JobIndex uJob, const ClockReading& reading, std::function<void(const RunEnd&)> onEnd);
    void RerollJob(JobIndex uJob);

    /// No more starts from here on; what happens to running jobs is for the policy.
    void BeginStop(OnStop eOnStop);
    /// Whether no launch is going on any more.
    bool IsQuiet() const { return _runs.Going() == 0; }
    /// No starts while it lasts.
    void Drain(bool bDrain) { _bDraining = bDrain; }
    bool IsDraining() const { return _bDraining; }

    /// Brings the persistent copies up to date, if there is anything to bring and the disk may be written.
    void Save();
    bool IsWorthSaving() const { return _bWorthSaving; }
    bool Hibernates() const { return _settings.isHibernating(); }
    /// The machine is about to sleep: what is not saved now may never be.
    void PrepareSleep();

    const JobTable& Jobs() const { return _table; }
    const std::vector<Refusal>& Refusals() const { return _vecRefusals; }
    const Counters& Count() const { return _counters; }
    Runs& Going() { return _runs; }
    /// A job, with what its ledger tells of its last run. @throws StateError
    const Job& Recalled(JobIndex uJob);
    /// What the job's program would find around it; nothing when its account is not there.
    std::optional<Surroundings> SurroundingsOf(JobIndex uJob) const;
    std::vector<Outcome> History(std::int64_t iKey, std::size_t uMax) { return _store.History(iKey, uMax); }
    const StoredClock& Clock() const { return _clock; }
    const Settings& Set() const { return _settings; }
    TemplateKeeper& Template() { return _template; }
    RoleFile& RoleOf() { return _role; }
    std::int64_t LastSavedAt() const { return _iLastSaved; }
    std::time_t LastTickAt() const { return _tLastTick; }

private:
    struct Planned; // a start on its way from decision to launch

    void NoteSleep();
    void SaveNow();
    bool Transact(const char* szWhat, const std::function<void()>& change);
    void QueueRun(std::int64_t iJobKey, const Outcome& outcome);
    void WriteEnds();
    std::int64_t PutJob(JobIndex uJob);
    std::int64_t KeyOf(JobIndex uJob);
    void StoreLoaded(const LoadResult& result);
    void GiveUpPendingOfGone(const JobTable& former);
    void FindRunningAgain();
    void LookUpAccounts();
    void RecoverRun(const StoredRun& stored, bool bSameBoot, std::int64_t iNow, std::vector<Planned>& vecAgain);
    void Adopt(const StoredRun& stored, const RunRecord& record);
    TickInput MakeInput(const ClockReading& reading, std::int64_t iUptimeSec);
    void Carry(const Decision& decision, const ClockReading& reading);
    std::vector<Planned> Plan(const Decision& decision, const ClockReading& reading);
    void ApplyPlan(std::vector<Planned>& vecPlanned, const Decision& decision, const ClockReading& reading);
    void StoreSkips(const std::vector<Skip>& vecSkips, const ClockReading& reading);
    void StoreSkip(const Skip& skip, const ClockReading& reading);
    void TellOfStaging();
    bool LaunchOne(Planned& planned, std::int64_t iNow);
    void Postpone(const Planned& planned);
    void Finish(Run& run, const RunEnd& end);
    bool FollowOrphan(Run& run, const RunRecord& record);
    void Forget(Run& run);
    void CountOutcome(const Outcome& outcome);

    Settings _settings;
    StateStore& _store;
    Launcher& _launcher;
    TemplateKeeper& _template;
    RoleFile& _role;
    JobTable _table;
    KnownJobs _mapKnown; ///< known jobs that are not in the table
    StoredClock _clock;
    StoredState _recovered; ///< what was found at the start, until Recover() has taken it up
    Runs _runs;
    std::vector<StoredRun> _vecUnwritten; ///< what became of launches, until the store has it
    std::set<JobId> _setUnstored;         ///< jobs of which something has changed that the store does not have yet
    std::string _strUnsaved;              ///< why saving failed last; empty: it did not
    std::vector<JobIndex> _vecKeyed;      ///< jobs that the store first heard of in this transaction
    std::vector<Refusal> _vecRefusals;
    std::vector<pid_t> _vecAdopted;
    std::vector<std::string> _vecStagingNotes; ///< what was last said of the log's places
    Counters _counters;
    SkipReason _eGapCause = SkipReason::ClockStep;
    std::time_t _tLastTick = 0;
    std::int64_t _iLastSaved = 0;
    bool _bFirstTick = true;
    bool _bLookForFuture = true;
    bool _bStopping = false;
    bool _bDraining = false;
    bool _bWorthSaving = false;
    bool _bStoreFailed = false;
};

} // namespace VUKO::VUKOCrond::Service
