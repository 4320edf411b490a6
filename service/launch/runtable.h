#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "service/engine/outcome.h"

namespace VUKO::VUKOCrond::Service {

/// Where a launch stands, as every process that has a part in it sees it.
enum class RunStage : std::uint32_t {
    Free = 0,    ///< the slot holds no launch
    Offered = 1, ///< written by the service before the fork: whoever takes it first has it
    Waiting = 2, ///< taken by its child, which waits out the delay
    Begun = 3,   ///< the child is about to start the program, or has: it counts as run from here on
    Ended = 4,   ///< the end is written
    Revoked = 5  ///< taken back by a service before the child took it: the child ends without a trace
};

/// A copy of one slot.
struct RunRecord {
    RunId uRun = 0;
    RunStage eStage = RunStage::Free;
    pid_t pidChild = 0;            ///< the child that waits for the program
    std::uint64_t uChildStart = 0; ///< its start time in clock ticks since boot (/proc/PID/stat), to tell it from
                                   ///< a later process of the same number
    pid_t pidProgram = 0;          ///< leader of the program's session and process group; 0: not yet
    std::uint64_t uProgramStart = 0;
    RunEnd end;
};

/// The launches that are under way, in a file on a volatile file system that the service and its children map: so a
/// service that was killed and started again knows exactly which of the starts it had decided have begun. The stages
/// change by compare-and-swap; no launch is ever begun twice or both begun and taken back.
class RunTable {
public:
    /// Maps the file and makes it when it is missing, the service's own and mode 0600. What another boot left is
    /// dropped: the file names its boot. What is no file of ours, or holds what cannot be, is set aside as
    /// PATH.damaged-EPOCH-N, with a message, and made anew.
    ///
    /// @throws std::system_error when it cannot be read, set aside, or made
    RunTable(const std::string& strPath, const std::string& strBootId);
    ~RunTable();
    RunTable(const RunTable&) = delete;
    RunTable& operator=(const RunTable&) = delete;

    /// Whether there was no table of this boot: what it does not hold may have been launched all the same.
    bool IsNew() const;

    /// Every slot that is not free.
    std::vector<RunRecord> Records() const;
    std::optional<RunRecord> Find(RunId uRun) const;

    /// Takes a slot for a launch. @return false when all are taken, or the launch has one.
    bool Offer(RunId uRun);
    /// Takes a launch back: from Offered, or from Waiting when its child is gone (one that has ended and was not reaped
    /// is). @return false when it has begun, its child still waits, or there is no such launch.
    bool Revoke(RunId uRun);
    /// Gives the slot back, whatever its stage. Not before the launch has ended, or was revoked, or none of its
    /// processes is left: what becomes of it is not heard of after this.
    void Release(RunId uRun);

private:
    friend class RunChild; // the child's side, in the launch hooks
    friend class Launcher;
    /// Notes that this process has heard something of a launch, one bit for each thing. @return false when it had
    /// before, or there is no such launch.
    bool MarkHeard(RunId uRun, unsigned uWhat);
    /// Goes up with everything that a child could write to the table alone.
    std::uint32_t Untold() const;

    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
