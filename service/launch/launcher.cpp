#include "service/launch/launcher.h"

#include <grp.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <optional>
#include <utility>

#include "base/syslog_line.h"
#include "platform/launchhooks.h"
#include "service/launch/launchchild.h"
#include "service/launch/reportpipe.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "launcher";

bool IsOomScoreLowered() {
    std::ifstream fs("/proc/self/oom_score_adj");
    int iScore = 0;
    return fs >> iScore && iScore < 0;
}

int WaitPlainly(pid_t pid, int* piStatus) {
    while (waitpid(pid, piStatus, 0) == -1) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

/// What the name services are is read, and their libraries are loaded, on the first question: by every child anew, if
/// not here once for all of them.
void LoadNameServices() {
    gid_t aGids[1];
    int iCount = 1;
    (void)getgrouplist("root", 0, aGids, &iCount);
}

constexpr unsigned HeardBit(RunReport::Kind eKind) {
    return 1U << static_cast<unsigned>(eKind);
}

} // namespace

struct Launcher::Private {
    RunTable table;
    ReportPipe pipe;
    LaunchPlan plan;
    std::optional<LaunchChild> child; ///< of the launch that is being made; in a launch's child, its own
    bool bInChild = false;
    pid_t pidChild = -1;
    std::uint32_t uUntoldSeen = 0;
    bool bTableRead = false;

    explicit Private(const Settings& settings) : table(settings.strRunTable, settings.strBootId) {
        plan.iReportFd = pipe.WriteEnd();
        plan.strOutputFolder = settings.strOutputFolder;
        plan.bJournal = settings.bJournal && sd_booted() > 0;
        plan.bRoot = geteuid() == 0;
        plan.bOomLowered = IsOomScoreLowered();
        LoadNameServices();
    }

    void RunJob(CronJob& job, const LaunchOrder& order);
    void Hear(const RunReport& report, std::vector<RunReport>& vecHeard);
    void HearOfTable(std::vector<RunReport>& vecHeard);
    void SetHooks();
    template <typename Body>
    int Guarded(const Body& body);
    static Private& Of(void* pContext) { return *static_cast<Private*>(pContext); }
};

/// The hooks do nothing for forks and programs that are no launch's.
void Launcher::Private::SetHooks() {
    VLIBCLaunchHooks hooks = {};
    hooks.context = this;
    hooks.forkedParent = [](void* pContext, pid_t pid) { Of(pContext).pidChild = pid; };
    hooks.forkedChild = [](void* pContext) {
        Private& self = Of(pContext);
        if (self.child && !self.bInChild) {
            self.bInChild = true;
            self.Guarded([&self] {
                self.child->Settle();
                return 0;
            });
        }
    };
    hooks.beforeExec = [](void* pContext, const char*) {
        Private& self = Of(pContext);
        return self.bInChild ? self.Guarded([&self] { return self.child->Begin(); }) : 0;
    };
    hooks.inChild = [](void* pContext) {
        if (Of(pContext).bInChild) {
            LaunchChild::SettleProgram();
        }
    };
    hooks.wait = [](void* pContext, pid_t pid, int* piStatus) {
        Private& self = Of(pContext);
        return self.bInChild ? self.Guarded([&] { return self.child->WaitFor(pid, piStatus); })
                             : WaitPlainly(pid, piStatus);
    };
    hooks.notStarted = [](void* pContext, int iCode) {
        if (Of(pContext).bInChild) {
            Of(pContext).child->TellNotStarted(iCode);
        }
    };
    VLIBCLaunchHooksSet(&hooks);
}

/// Runs what a hook does in a launch's child. No exception may leave a hook, and without what it does there is no going
/// on.
template <typename Body>
int Launcher::Private::Guarded(const Body& body) {
    try {
        return body();
    } catch (...) {
        child->TellNotStarted(ENOMEM);
        _exit(EXIT_FAILURE);
    }
}

/// Run() may come back in the child, which is a second service by then: its descriptors and handlers are the service's,
/// so not even exit() may run.
void Launcher::Private::RunJob(CronJob& job, const LaunchOrder& order) {
    const pid_t pidService = getpid();
    errno = 0; // the library's messages take their form by it
    try {
        job.Run(order.iDelaySec, order.strLabel);
    } catch (const std::exception& exception) {
        VUKO_LOG_PLAIN(LOG_ERR, 3, "%s could not be started: %s", Escaped(order.strIdentifier).c_str(),
                       Escaped(exception.what()).c_str());
    } catch (...) {
        VUKO_LOG_PLAIN(LOG_ERR, 4, "%s could not be started", Escaped(order.strIdentifier).c_str());
    }
    if (getpid() != pidService) {
        if (bInChild) {
            child->TellNotStarted(errno != 0 ? errno : EINVAL);
        }
        _exit(EXIT_FAILURE);
    }
}

void Launcher::Private::Hear(const RunReport& report, std::vector<RunReport>& vecHeard) {
    const bool bProgramRan = report.eKind == RunReport::Kind::Ended && report.end.iStartedUsec != 0;
    if (bProgramRan && table.MarkHeard(report.uRun, HeardBit(RunReport::Kind::Begun))) {
        const std::optional<RunRecord> record = table.Find(report.uRun);
        vecHeard.push_back({report.uRun, RunReport::Kind::Begun, record ? record->pidProgram : 0, {}});
    }
    if (table.MarkHeard(report.uRun, HeardBit(report.eKind))) {
        vecHeard.push_back(report);
    }
}

void Launcher::Private::HearOfTable(std::vector<RunReport>& vecHeard) {
    for (const RunRecord& record : table.Records()) {
        if (record.eStage == RunStage::Begun && record.pidProgram != 0) {
            Hear({record.uRun, RunReport::Kind::Begun, record.pidProgram, {}}, vecHeard);
        } else if (record.eStage == RunStage::Ended) {
            Hear({record.uRun, RunReport::Kind::Ended, 0, record.end}, vecHeard);
        }
    }
}

Launcher::Launcher(const Settings& settings) : _p(std::make_unique<Private>(settings)) {
    _p->SetHooks();
}

Launcher::~Launcher() {
    VLIBCLaunchHooksSet(nullptr);
}

RunTable& Launcher::Table() {
    return _p->table;
}

pid_t Launcher::Start(CronJob& job, const LaunchOrder& order) {
    if (!_p->table.Offer(order.uRun)) {
        VUKO_LOG_PLAIN(LOG_ERR, 5, "%s is not started: too many jobs are running",
                       Escaped(order.strIdentifier).c_str());
        return -1;
    }
    if (job._strReadyCrontab.empty()) { // a job that is ready still when Run() is back has not been started
        job._strReadyCrontab = job.ToCurrentCrontabString();
    }
    _p->pidChild = -1;
    try {
        _p->child.emplace(_p->plan, order, _p->table);
    } catch (...) {
        _p->table.Release(order.uRun);
        throw;
    }
    _p->RunJob(job, order);
    _p->child.reset();
    if (_p->pidChild == -1) {
        _p->table.Release(order.uRun);
    }
    return _p->pidChild;
}

Surroundings Launcher::SurroundingsOf(const LaunchOrder& order) const {
    return Service::SurroundingsOf(_p->plan, order);
}

int Launcher::ReportDescriptor() const {
    return _p->pipe.ReadEnd();
}

std::vector<RunReport> Launcher::TakeReports() {
    std::vector<RunReport> vecHeard;
    for (const RunReport& report : _p->pipe.Read()) {
        _p->Hear(report, vecHeard);
    }
    const std::uint32_t uUntold = _p->table.Untold();
    if (!std::exchange(_p->bTableRead, true) || uUntold != _p->uUntoldSeen) {
        _p->uUntoldSeen = uUntold;
        _p->HearOfTable(vecHeard);
    }
    return vecHeard;
}

} // namespace VUKO::VUKOCrond::Service
