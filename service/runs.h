#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "service/clocks.h"
#include "service/engine/jobid.h"
#include "service/engine/outcome.h"

namespace VUKO::VUKOCrond::Service {

/// One launch that is going on.
struct Run {
    RunId uRun = 0;
    std::int64_t iJobKey = 0; ///< the store's
    JobId id;
    std::string strJob;             ///< the job's identity, fit for a log line
    Outcome outcome;                ///< its entry in the ledger
    pid_t pidChild = 0;             ///< waits for the program, and leads it up to then
    pid_t pidProgram = 0;           ///< leader of the program's process group; 0: not begun
    std::uint64_t uChildStart = 0;  ///< of an adopted one: when that process was started, in ticks since boot
    bool bAdopted = false;          ///< begun by a former life of the service: no child of this process
    std::int32_t iTimeout = 0;      ///< seconds; 0: none
    std::int64_t iDeadlineUsec = 0; ///< by the monotonic clock, when the next signal is due; 0: none
    bool bTermSent = false;
    bool bEnded = false;                      ///< the program has ended; its child may still be there
    std::function<void(const RunEnd&)> onEnd; ///< told once; may be empty
};

/// The launches that are going on, by their numbers, with the time that each is given.
class Runs {
public:
    /// Between TERM and KILL, in microseconds.
    static constexpr std::int64_t GRACE_USEC = 10'000'000;

    Run& Add(Run run);
    Run* Find(RunId uRun);
    Run* FindByChild(pid_t pid);
    void Remove(RunId uRun);
    /// The child is gone and its program goes on: from now on that process stands for the launch.
    void FollowProgram(Run& run, std::uint64_t uProgramStart);

    /// Launches whose program has not ended.
    std::size_t Going() const { return _uGoing; }
    std::size_t Size() const { return _mapRuns.size(); }
    void NoteEnded(Run& run);

    template <typename Visit>
    void ForEach(const Visit& visit) {
        for (auto& [uRun, run] : _mapRuns) {
            visit(run);
        }
    }

    /// The program has begun: from now on its time runs. It begins once.
    void Begin(Run& run, pid_t pidProgram, std::int64_t iNowUsec);
    /// Sends TERM now, and KILL after the grace.
    void Terminate(Run& run, std::int64_t iNowUsec);
    /// @return when the next signal is due, by the monotonic clock.
    std::optional<std::int64_t> NextDeadlineUsec() const;
    /// Sends the signals that are due. @return the launches that have just used up their time.
    std::vector<const Run*> Expire(std::int64_t iNowUsec);

private:
    static void Signal(const Run& run, int iSignal);

    std::map<RunId, Run> _mapRuns;
    std::map<pid_t, RunId> _mapChildren;
    std::size_t _uGoing = 0;
};

/// The end of a launch of which nobody is left to tell.
RunEnd LostEnd();

} // namespace VUKO::VUKOCrond::Service
