#include "service/launch/launchchild.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "base/syslog_line.h"
#include "service/launch/processid.h"
#include "service/launch/reportpipe.h"
#include "service/launch/surroundings.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "launchchild";

constexpr unsigned FIRST_FD = STDERR_FILENO + 1;

void SetDisposition(int iSignal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(iSignal, &action, nullptr); // fails for those that cannot be changed
}

/// The C library keeps two signals to itself and lets nobody touch them; a starter of the service may have ignored them
/// all the same, and the job would go on with that.
void SetInternalSignalsToDefault() {
    constexpr std::size_t KERNEL_SET_SIZE = 8;
    constexpr int FIRST_INTERNAL = 32;
    const std::array<unsigned long, 8> aDefault = {}; // the kernel's own structure: no handler, no flags, no mask
    for (int iSignal = FIRST_INTERNAL; iSignal < SIGRTMIN; ++iSignal) {
        syscall(SYS_rt_sigaction, iSignal, aDefault.data(), nullptr, KERNEL_SET_SIZE);
    }
}

std::int64_t ToUsec(const timespec& ts) {
    return std::int64_t{ts.tv_sec} * 1000000 + ts.tv_nsec / 1000;
}

std::int64_t ToUsec(const timeval& tv) {
    return std::int64_t{tv.tv_sec} * 1000000 + tv.tv_usec;
}

timespec Now(clockid_t idClock) {
    timespec tsNow = {};
    clock_gettime(idClock, &tsNow);
    return tsNow;
}

void CloseAllBut(int iKept) {
    const auto uKept = static_cast<unsigned>(iKept);
    if (uKept > FIRST_FD) {
        close_range(FIRST_FD, uKept - 1, 0);
    }
    close_range(uKept + 1, ~0U, 0);
}

void BeAsLikelyKilledAsAnybody() {
    const UniqueFd fd(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
    const ssize_t iWritten = write(fd.Get(), "0", 1);
    static_cast<void>(iWritten); // it is then spared as the service is, which is no reason not to run it
}

} // namespace

LaunchChild::LaunchChild(const LaunchPlan& plan, const LaunchOrder& order, RunTable& table)
    : _plan(plan), _order(order), _run(table, order.uRun), _environment(order.account) {}

void LaunchChild::Settle() {
    if (!_run.Take(getpid(), StartTimeOf(getpid()))) {
        _exit(EXIT_SUCCESS);
    }
    LeaveTheServiceBehind();
    _bGroupsDropped = DropGroups();
    _output.Open(_order.strIdentifier, _plan.bJournal, _plan.strOutputFolder);
}

void LaunchChild::LeaveTheServiceBehind() const {
    setsid();
    for (int iSignal = 1; iSignal < NSIG; ++iSignal) {
        SetDisposition(iSignal, SIG_DFL);
    }
    SetInternalSignalsToDefault();
    sigset_t setNone;
    sigemptyset(&setNone);
    sigprocmask(SIG_SETMASK, &setNone, nullptr);
    closelog(); // its descriptor goes with the others; the next message opens it anew
    CloseAllBut(_plan.iReportFd);
    const UniqueFd fdNull(open(JOB_INPUT, O_RDONLY | O_CLOEXEC));
    if (!fdNull || dup2(fdNull.Get(), STDIN_FILENO) < 0) {
        close(STDIN_FILENO);
    }
    environ = const_cast<JobEnvironment&>(_environment).Get();
    if (_plan.bOomLowered) {
        BeAsLikelyKilledAsAnybody();
    }
}

/// The library takes on the account's groups and goes on when it cannot. The job then has none, and not the service's.
bool LaunchChild::DropGroups() const {
    return !_plan.bRoot || _order.account.uid == 0 || setgroups(0, nullptr) == 0;
}

bool LaunchChild::HasIdentity() const {
    if (!_plan.bRoot) {
        return true; // every job runs as the service itself then
    }
    uid_t aUids[3] = {};
    gid_t aGids[3] = {};
    if (getresuid(&aUids[0], &aUids[1], &aUids[2]) != 0 || getresgid(&aGids[0], &aGids[1], &aGids[2]) != 0) {
        return false;
    }
    const auto IsAll = [](const auto& aIds, auto id) { return aIds[0] == id && aIds[1] == id && aIds[2] == id; };
    return _bGroupsDropped && IsAll(aUids, _order.account.uid) && IsAll(aGids, _order.account.gid);
}

void LaunchChild::EnterHome() const {
    if (_order.account.strHome.empty() || chdir(_order.account.strHome.c_str()) != 0) {
        const int iResult = chdir(FOLDER_WITHOUT_HOME);
        static_cast<void>(iResult); // then it is where the service is
    }
}

int LaunchChild::Begin() {
    if (!HasIdentity()) {
        VUKO_LOG_PLAIN(LOG_CRIT, 1, "%s is not started: its identity is not that of account %s",
                       Escaped(_order.strIdentifier).c_str(), Escaped(_order.account.strName).c_str());
        TellNotStarted(EPERM);
        return EPERM;
    }
    EnterHome();
    umask(JOB_UMASK);
    // Whoever has the job's identity now could otherwise look into this process and take its place towards the service.
    prctl(PR_SET_DUMPABLE, 0);
    // From here on somebody has to hear how the program ends: it is the program that is to be asked to end.
    SetDisposition(SIGTERM, SIG_IGN);
    SetDisposition(SIGPIPE, SIG_IGN); // the service may be gone when there is something to tell
    _end.iStartedUsec = ToUsec(Now(CLOCK_REALTIME));
    _tsBegun = Now(CLOCK_MONOTONIC);
    if (!_run.Begin()) {
        _exit(EXIT_SUCCESS);
    }
    return 0;
}

void LaunchChild::SettleProgram() {
    setsid();
    SetDisposition(SIGTERM, SIG_DFL);
    SetDisposition(SIGPIPE, SIG_DFL);
    close_range(FIRST_FD, ~0U, CLOSE_RANGE_CLOEXEC);
}

int LaunchChild::WaitFor(pid_t pidProgram, int* piStatus) {
    _run.SetProgram(pidProgram, StartTimeOf(pidProgram));
    Tell({_order.uRun, RunReport::Kind::Begun, pidProgram, {}});
    struct rusage usage = {};
    const pid_t pidEnded = _output.WaitFor(pidProgram, *piStatus, usage);
    const int iErrno = errno;
    if (pidEnded == pidProgram) {
        _end.iCpuUsec = ToUsec(usage.ru_utime) + ToUsec(usage.ru_stime);
        _end.iMaxRssKib = usage.ru_maxrss; // never less than what this process has, of whose memory it began
        const bool bSignaled = WIFSIGNALED(*piStatus);
        TellEnd(bSignaled ? EndKind::Signaled : EndKind::Exited,
                bSignaled ? WTERMSIG(*piStatus) : WEXITSTATUS(*piStatus));
    } else {
        TellEnd(EndKind::Lost, iErrno);
    }
    _output.PassOnTheRest();
    errno = iErrno;
    return pidEnded == pidProgram ? 0 : -1;
}

void LaunchChild::TellNotStarted(int iCode) {
    _end.iStartedUsec = 0;
    TellEnd(EndKind::NotStarted, iCode);
    _output.PassOnTheRest();
}

void LaunchChild::TellEnd(EndKind eKind, int iCode) {
    _end.eKind = eKind;
    _end.iCode = iCode;
    _end.iEndedUsec = ToUsec(Now(CLOCK_REALTIME));
    _end.iDurationUsec = _end.iStartedUsec == 0 ? 0 : ToUsec(Now(CLOCK_MONOTONIC)) - ToUsec(_tsBegun);
    if (_run.End(_end)) {
        Tell({_order.uRun, RunReport::Kind::Ended, 0, _end});
    }
}

/// Where the pipe is full, the service is given the table to look at. Once more after that: it may have emptied the
/// pipe meanwhile without having seen that there is something to look at, and nothing would wake it.
void LaunchChild::Tell(const RunReport& report) {
    if (!ReportPipe::Write(_plan.iReportFd, report)) {
        _run.CountUntold();
        ReportPipe::Write(_plan.iReportFd, report);
    }
}

} // namespace VUKO::VUKOCrond::Service
