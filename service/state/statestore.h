#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "service/engine/jobid.h"
#include "service/engine/outcome.h"

namespace VUKO::VUKOCrond::Service {

/// A write or read of the state failed; what() says which and why, fit for a log line after Escaped().
class StateError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What is kept of a job.
struct StoredJob {
    std::int64_t iKey = 0; ///< the store's own; 0: not stored yet
    JobId id;
    std::string strFile;              ///< path of its definition file
    std::string strFields;            ///< the five fields that its values were drawn for
    std::string strSchedule;          ///< the values
    std::int64_t iStartup = 0;        ///< seconds since the epoch
    std::int64_t iLastExecution = -1; ///< the same; -1: never
    bool bOverdueReported = false;
    std::int64_t iGoneSince = 0; ///< 0: there; else since when its definition is gone, seconds since the epoch
};

/// How far the clock was worked on.
struct StoredClock {
    std::string strBootId;        ///< of the boot in which the numbers were written; empty: never
    std::int64_t iWorkedUpTo = 0; ///< local minute number
    std::int64_t iLastTick = 0;   ///< local minute number of the last tick
    std::int64_t iSleptSince = 0; ///< non-zero: ticks were passed over because the machine hibernated
    RunId uLastRun = 0;           ///< highest RunId that was ever given out
};

/// A start that was decided and whose end is not known.
struct StoredRun {
    std::int64_t iJobKey = 0;
    Outcome outcome;
};

struct StoredState {
    StoredClock clock;
    std::vector<StoredJob> vecJobs;
    std::vector<StoredRun> vecOpenRuns; ///< by RunId
};

/// The runtime state and the ledger: a working copy in memory (a file on a volatile file system) which every change
/// goes to, and a persistent copy that is brought up to it on request and by nothing else.
///
/// Changes between Begin() and Commit() become visible together or not at all, also when the process is killed.
class StateStore {
public:
    /// Entries kept of a job; older ones make room.
    static constexpr int LEDGER_DEPTH = 100;

    /// Opens the working copy; makes it from the persistent copy when there is none, and anew when there is neither.
    /// A copy that is damaged, or of a schema that this program does not know, or that others could have written, is
    /// set aside under another name (the old name with ".damaged-" and a stamp) and the next best is used; Notes()
    /// tells.
    ///
    /// @throws StateError when not even an empty working copy can be made.
    StateStore(std::string strWorkingPath, std::string strPersistentPath);
    ~StateStore();
    StateStore(const StateStore&) = delete;
    StateStore& operator=(const StateStore&) = delete;

    /// One line each about what opening and loading met, fit for a log.
    const std::vector<std::string>& Notes() const;
    /// Whether the state came from the persistent copy or from nothing, so that what a boot leaves behind (open runs,
    /// the clock) cannot be of this boot unless the boot id says so. Ask after Load().
    bool IsFresh() const;

    /// Everything but the ledger. What makes no sense is dropped, with a note; a working copy in which damage comes to
    /// light only now is replaced as the constructor would have done.
    StoredState Load();

    /// All below throw StateError; after that the transaction is undone. A change outside of one is an error.
    void Begin();
    void Commit();
    void Rollback() noexcept;

    void PutClock(const StoredClock& clock);
    /// Adds a job (iKey 0) or replaces what is kept of it. Where one of the same identity is kept already, adding
    /// replaces that, and its ledger goes on. @return its key.
    std::int64_t PutJob(const StoredJob& job);
    /// Drops the job and its ledger.
    void ForgetJob(std::int64_t iKey);
    /// Drops the jobs that are gone since before then, as ForgetJob() does; none that still has an open run.
    void DropGoneBefore(std::int64_t iEpoch);
    /// Adds to the job's ledger, as its newest entry. A run that is open is not forgotten when newer entries take its
    /// place in the ledger: Load() tells of it until its end is known.
    void AddOutcome(std::int64_t iKey, const Outcome& outcome);
    /// Replaces the entry of that run, if it is still kept: its kind, reason, delay and end.
    void UpdateRun(std::int64_t iKey, const Outcome& outcome);
    /// Newest first.
    std::vector<Outcome> History(std::int64_t iKey, std::size_t uMax);

    /// Whether the working copy holds something that the persistent copy does not. How far the clock was worked on does
    /// not count: it is of no use to a later boot, and an idle machine's disk is not to be woken for it.
    bool IsDirty() const;
    /// Brings the persistent copy up to the working copy; the old one stays whole until the new one is. Does nothing
    /// when there is nothing to bring.
    void Persist();

private:
    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
