#pragma once

#include <sys/types.h>

#include <cstdint>
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
    pid_t pidChild = 0;                ///< the child that waits for the program
    std::uint64_t uChildStart = 0;     ///< its start time in clock ticks since boot (/proc/PID/stat), to tell it from
                                       ///< a later process of the same number
    pid_t pidProgram = 0;              ///< leader of the program's session and process group; 0: not yet
    std::uint64_t uProgramStart = 0;
    RunEnd end;
};

/// The launches that are under way, in a file on a volatile file system that the service and its children map: so a
/// service that was killed and started again knows exactly which of the starts it had decided have begun. The stages
/// change by compare-and-swap; no launch is ever begun twice or both begun and taken back.
class RunTable {
public:
    /// Maps the file and makes it when it is missing, root's own and mode 0600. What another boot left is dropped: the
    /// file names its boot. @throws std::system_error; std::runtime_error for a file that is not what it should be
    /// (it is then set aside first, and throws only if that fails).
    RunTable(const std::string& strPath, const std::string& strBootId);
    ~RunTable();
    RunTable(const RunTable&) = delete;
    RunTable& operator=(const RunTable&) = delete;

    /// Every slot that is not free.
    std::vector<RunRecord> Records() const;
    std::optional<RunRecord> Find(RunId uRun) const;

    /// Takes a slot for a launch. @return false when all are taken.
    bool Offer(RunId uRun);
    /// Takes a launch back: from Offered, or from Waiting when its child is gone. @return false when it has begun or
    /// its child still waits.
    bool Revoke(RunId uRun);
    /// Gives the slot back, whatever its stage: only when no process of the launch is left.
    void Release(RunId uRun);

private:
    friend class RunChild; // the child's side, in the launch hooks
    struct Private;
    Private* _p;
};

} // namespace VUKO::VUKOCrond::Service
