#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>

#include "service/launch/environment.h"
#include "service/launch/joboutput.h"
#include "service/launch/launcher.h"
#include "service/launch/runslot.h"

namespace VUKO::VUKOCrond::Service {

/// What all launches of a service have in common.
struct LaunchPlan {
    int iReportFd = -1;
    std::string strOutputFolder;
    bool bJournal = false;    ///< systemd's journal takes output
    bool bRoot = false;       ///< the service may take on other identities, so a job must have its account's
    bool bOomLowered = false; ///< the service is spared when memory runs out, as no job is to be
};

/// The child's side of one launch: the process that the library forks, which waits out the delay and then waits for the
/// program. It is made by the service before the fork, with all that it will need: between fork and program there is
/// no time to lose, and nobody to tell of a failure.
class LaunchChild {
public:
    LaunchChild(const LaunchPlan& plan, const LaunchOrder& order, RunTable& table);

    /// In the child, right after the fork: takes the launch, and makes the child a process of its own in surroundings
    /// of its own. Does not return when the launch was taken back.
    void Settle();
    /// In the child, with the job's identity: begins the launch. Does not return when it was taken back.
    ///
    /// @return 0, or the errno value for which the program may not be started.
    int Begin();
    /// In the program's process. Async-signal-safe.
    static void SettleProgram();
    /// In the child: waits for the program and tells of it. @return 0, or -1 with errno.
    int WaitFor(pid_t pidProgram, int* piStatus);
    /// In the child: the program was not started, for that errno value, and never will be.
    void TellNotStarted(int iCode);

private:
    void LeaveTheServiceBehind() const;
    bool DropGroups() const;
    bool HasIdentity() const;
    void EnterHome() const;
    void Tell(const RunReport& report);
    void TellEnd(EndKind eKind, int iCode);

    const LaunchPlan& _plan;
    const LaunchOrder& _order;
    RunChild _run;
    JobEnvironment _environment;
    JobOutput _output;
    RunEnd _end;
    struct timespec _tsBegun = {};
    bool _bGroupsDropped = false;
};

} // namespace VUKO::VUKOCrond::Service
