#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// Names one launch, for good: counted up from 1 and never used again, also not after a restart. 0 is none.
using RunId = std::uint64_t;

/// What became of a due minute.
enum class OutcomeKind : int {
    Started, ///< started in its minute
    MadeUp,  ///< started at a later tick than its minute's
    Delayed, ///< started in its minute, with a delay that the child waits out
    Skipped  ///< not started, for one reason
};

/// Why a due minute was skipped. The numbers are stored.
enum class SkipReason : int {
    None = 0,
    Disabled = 1,
    Passive = 2,
    Hibernating = 3,
    Overlap = 4,
    ClockStep = 5,
    ServiceDown = 6,
    ForkFailed = 7,
    AccountUnknown = 8,
    DefinitionInvalid = 9,
    Stopping = 10,
    IdentityRefused = 11 ///< the service may not take on the job's account
};

/// The texts that people and scripts see: "started", "made-up", "delayed", "skipped"; "disabled", "clock step", ...
const char* ToText(OutcomeKind eKind);
const char* ToText(SkipReason eReason);

/// How a launch ended.
enum class EndKind : int {
    Open = 0,       ///< it has not, as far as is known
    Exited = 1,     ///< `iCode` is its exit status
    Signaled = 2,   ///< `iCode` is the signal
    NotStarted = 3, ///< the program could not be started; `iCode` is the errno value
    Lost = 4        ///< it is gone, and nobody was left to tell how (the machine went down, the child was killed)
};

/// "running", "exited", "signaled", "not-started", "lost".
const char* ToText(EndKind eKind);

struct RunEnd {
    EndKind eKind = EndKind::Open;
    int iCode = 0;
    std::int64_t iStartedUsec = 0; ///< when the program was started, microseconds since the epoch; 0: it was not
    std::int64_t iEndedUsec = 0;
    std::int64_t iDurationUsec = 0; ///< by a clock that nobody sets
    std::int64_t iCpuUsec = 0;      ///< user and system, the program's own children that it waited for included
    std::int64_t iMaxRssKib = 0;
};

/// One entry of the ledger.
struct Outcome {
    std::int64_t iMinute = 0;  ///< the due minute: minutes on the local wall clock, as in ClockReading
    std::int64_t iDecided = 0; ///< instant of the tick that decided it, seconds since the epoch
    OutcomeKind eKind = OutcomeKind::Skipped;
    SkipReason eReason = SkipReason::None;
    std::string strLabel; ///< "assure", "manual"; empty for a start by schedule
    int iDelaySec = 0;
    RunId uRun = 0;               ///< 0 for what was skipped
    pid_t pidOther = 0;           ///< Overlap: the process that was still going,
    std::int64_t iOtherSince = 0; ///< and since when, seconds since the epoch
    RunEnd end;
};

} // namespace VUKO::VUKOCrond::Service
