#include "platform/vlibc.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstddef>
#include <memory>
#include <new>

#include "platform/linux/filedescriptor.h"
#include "platform/linux/interrupt.h"
#include "platform/linux/lasterror.h"
#include "platform/linux/launchhooks.h"

namespace VUKO::PLATFORM {

namespace {

constexpr int EXIT_NOT_STARTED = 127;
constexpr int SIGNALED_BASE = 128;

/// Takes the places of standard descriptors that the caller has closed, so that a pipe made meanwhile gets none of
/// them: whoever in the process writes to standard output or standard error would write into it. What holds the places
/// cannot be read or written.
class StandardPlaces {
public:
    bool Take() {
        for (int iFd = STDIN_FILENO; iFd <= STDERR_FILENO; ++iFd) {
            if (::fcntl(iFd, F_GETFD) < 0) {
                _afdHeld[iFd] = FileDescriptor(::open("/", O_PATH | O_CLOEXEC));
                if (!_afdHeld[iFd]) {
                    return false;
                }
            }
        }
        return true;
    }

private:
    FileDescriptor _afdHeld[STDERR_FILENO + 1];
};

/// The pipe on which a child tells why its program could not be started. It closes by itself when the program starts,
/// which is how the parent learns of success.
struct ReportPipe {
    FileDescriptor fdRead;
    FileDescriptor fdWrite;

    bool Open() {
        StandardPlaces places;
        int aiEnds[2];
        if (!places.Take() || ::pipe2(aiEnds, O_CLOEXEC) != 0) {
            return false;
        }
        fdRead = FileDescriptor(aiEnds[0]);
        fdWrite = FileDescriptor(aiEnds[1]);
        return true;
    }
};

/// What a program's process needs to know. All of it is written before the process is made.
struct ProgramStart {
    const char* szPath;
    char* const* aszArgv;
    int iReportFd;
    const VLIBCLaunchHooks* pHooks;
    sigset_t setSignals; ///< the mask that the program shall start with
};

/// Lets no handler of the caller's run in the program's process, whose memory is still the caller's. What is ignored
/// stays so.
void DropHandlers() {
    for (int iSignal = 1; iSignal < NSIG; ++iSignal) {
        struct sigaction action;
        if (::sigaction(iSignal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
            action.sa_handler != SIG_IGN) {
            action = {};
            action.sa_handler = SIG_DFL;
            ::sigaction(iSignal, &action, nullptr);
        }
    }
}

/// The child's part. Only async-signal-safe calls, and no change of memory that the caller reads again: the memory is
/// the caller's, whose other threads' locks are held by nobody here.
[[noreturn]] void BecomeProgram(const ProgramStart& start) {
    DropHandlers();
    CallHook(*start.pHooks, &VLIBCLaunchHooks::inChild);
    ::pthread_sigmask(SIG_SETMASK, &start.setSignals, nullptr);
    ::execve(start.szPath, start.aszArgv, environ);
    const int iCode = errno;
    const ssize_t iWritten = ::write(start.iReportFd, &iCode, sizeof(iCode));
    static_cast<void>(iWritten); // nobody is left to be told
    ::_exit(EXIT_NOT_STARTED);
}

/// Makes the program's process without a copy of this one's page tables, which may be large. It goes its way with every
/// signal blocked until its handlers are gone. What it has to tell goes through the pipe and not through the memory:
/// under some tools the two processes do not share it.
[[gnu::noinline]] pid_t ForkProgram(ProgramStart& start) {
    sigset_t setAll;
    ::sigfillset(&setAll);
    ::pthread_sigmask(SIG_SETMASK, &setAll, &start.setSignals);
    const pid_t pid = ::vfork();
    if (pid == 0) {
        BecomeProgram(start);
    }
    const ErrnoKeeper keeper;
    ::pthread_sigmask(SIG_SETMASK, &start.setSignals, nullptr);
    return pid;
}

/// @return 0 when the child has become its program, else the errno value that kept it from that.
int ReadReport(int iReportFd) {
    int iCode = 0;
    const ssize_t iRead = RetryInterrupted([&] { return ::read(iReportFd, &iCode, sizeof(iCode)); });
    return iRead == static_cast<ssize_t>(sizeof(iCode)) ? iCode : 0;
}

int WaitFor(pid_t pid, const VLIBCLaunchHooks& hooks) {
    int iStatus = 0;
    const pid_t iResult = hooks.wait != nullptr ? hooks.wait(hooks.context, pid, &iStatus)
                                                : RetryInterrupted([&] { return ::waitpid(pid, &iStatus, 0); });
    if (iResult < 0) {
        VUKO_SET_ERROR(errno);
        return -1;
    }
    return WIFSIGNALED(iStatus) ? SIGNALED_BASE + WTERMSIG(iStatus) : WEXITSTATUS(iStatus);
}

/// @return the pid of the process that has become the program; -1 when none has, which is told.
pid_t StartProgram(const char* szPath, char* const aszArgv[], const VLIBCLaunchHooks& hooks) {
    ReportPipe report;
    if (!report.Open()) {
        VUKO_SET_ERROR(errno);
        return -1;
    }
    ProgramStart start = {szPath, aszArgv, report.fdWrite.Get(), &hooks, {}};
    const pid_t pid = ForkProgram(start);
    if (pid < 0) {
        VUKO_SET_ERROR(errno);
        return -1;
    }
    report.fdWrite.Close();
    if (const int iCode = ReadReport(report.fdRead.Get()); iCode != 0) {
        RetryInterrupted([&] { return ::waitpid(pid, nullptr, 0); });
        VUKO_SET_ERROR(iCode);
        return -1;
    }
    return pid;
}

/// What VLIBCExecv() and VLIBCExec() have in common. It forks by itself: a program may have its own VLIBCProcForkEx().
int Execute(const char* szPath, char* const aszArgv[], bool bWait, const VLIBCLaunchHooks& hooks) {
    if (szPath == nullptr || aszArgv == nullptr) {
        VUKO_SET_ERROR(EFAULT);
        return -1;
    }
    const int iRefusal = hooks.beforeExec != nullptr ? hooks.beforeExec(hooks.context, szPath) : 0;
    if (iRefusal != 0) {
        VUKO_SET_ERROR(iRefusal);
        return -1;
    }
    const pid_t pid = StartProgram(szPath, aszArgv, hooks);
    if (pid < 0) {
        const ErrnoKeeper keeper;
        CallHook(hooks, &VLIBCLaunchHooks::notStarted, errno);
        return -1;
    }
    return bWait ? WaitFor(pid, hooks) : pid;
}

int ExecuteKeepingErrno(const char* szPath, char* const aszArgv[], bool bWait, const VLIBCLaunchHooks& hooks) {
    ErrnoKeeper keeper;
    const int iResult = Execute(szPath, aszArgv, bWait, hooks);
    if (iResult < 0) {
        keeper.LetGo();
    }
    return iResult;
}

} // namespace

} // namespace VUKO::PLATFORM

pid_t VLIBCProcForkEx(int /*flags*/) {
    // No handler of the parent's may run in the child before it has its own set-up, so nothing gets through until the
    // masks are what they shall be on both sides.
    sigset_t setAll;
    sigset_t setNone;
    sigset_t setBefore;
    sigfillset(&setAll);
    sigemptyset(&setNone);
    pthread_sigmask(SIG_SETMASK, &setAll, &setBefore);
    const pid_t pid = ::fork();
    const int iCode = errno;
    pthread_sigmask(SIG_SETMASK, pid == 0 ? &setNone : &setBefore, nullptr);
    if (pid < 0) {
        VUKO_SET_ERROR(iCode);
        return pid;
    }
    const VUKO::PLATFORM::ErrnoKeeper keeper;
    const VLIBCLaunchHooks& hooks = VUKO::PLATFORM::LaunchHooks();
    if (pid == 0) {
        VUKO::PLATFORM::CallHook(hooks, &VLIBCLaunchHooks::forkedChild);
    } else {
        VUKO::PLATFORM::CallHook(hooks, &VLIBCLaunchHooks::forkedParent, pid);
    }
    return pid;
}

int VLIBCExecv(const char* path, char* const argv[], int wait) {
    return VUKO::PLATFORM::ExecuteKeepingErrno(path, argv, wait != 0, VUKO::PLATFORM::LaunchHooks());
}

int VLIBCExec(const char* prog, ...) {
    if (prog == nullptr) { // then no argument need follow, not even the null pointer that ends them
        VUKO_SET_ERROR(EFAULT);
        return -1;
    }
    std::size_t uCount = 1;
    va_list arguments;
    va_start(arguments, prog);
    while (va_arg(arguments, char*) != nullptr) {
        ++uCount;
    }
    va_end(arguments);

    const std::unique_ptr<char*[]> aszArgv(new (std::nothrow) char*[uCount + 1]);
    if (aszArgv == nullptr) {
        VUKO_SET_ERROR(ENOMEM);
        return -1;
    }
    aszArgv[0] = const_cast<char*>(prog); // execve() takes what it does not change as char*
    va_start(arguments, prog);
    for (std::size_t uIndex = 1; uIndex <= uCount; ++uIndex) {
        aszArgv[uIndex] = va_arg(arguments, char*);
    }
    va_end(arguments);

    const int iStatus = VUKO::PLATFORM::ExecuteKeepingErrno(prog, aszArgv.get(), true, {});
    if (iStatus > 0) {
        const VUKO::PLATFORM::ErrnoKeeper keeper;
        VUKO_SET_ERROR(iStatus);
    }
    return iStatus;
}
