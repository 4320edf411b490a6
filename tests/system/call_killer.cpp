// usage: call_killer PID CALL FORKS COMMAND
// Kills a process just before its CALL-th system call, counted from the moment at which this program says "watching".
// Runs COMMAND at the end of the process's FORKS-th fork. Ends after the kill, or on SIGTERM and leaves the process be;
// its last line is the number of calls that were made.
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int SYSCALL_STOP = SIGTRAP | 0x80;

volatile std::sig_atomic_t g_iAskedToEnd = 0;

void Require(bool bDone, const char* szWhat) {
    if (!bDone) {
        std::fprintf(stderr, "%s: %s\n", szWhat, std::strerror(errno));
        std::exit(EXIT_FAILURE);
    }
}

/// @return the signal that it stopped at, or 0 when this program is to end.
int WaitForStop(pid_t pid, int& iStatus) {
    while (waitpid(pid, &iStatus, __WALL) == -1) {
        Require(errno == EINTR, "waitpid");
        if (g_iAskedToEnd != 0) {
            return 0;
        }
    }
    Require(WIFSTOPPED(iStatus), "the process ended by itself");
    return WSTOPSIG(iStatus);
}

bool IsFork(std::uint64_t uCall) {
    return uCall == SYS_clone || uCall == SYS_clone3 || uCall == SYS_fork || uCall == SYS_vfork;
}

class Watch {
public:
    Watch(pid_t pid, int iCall, int iForks, const char* szCommand)
        : _pid(pid), _iCall(iCall), _iForks(iForks), _szCommand(szCommand) {}

    /// Lets the process run until it has been killed or there is nothing more to be done.
    void Run() {
        int iStatus = 0;
        int iSignal = 0;
        for (bool bGoesOn = true; bGoesOn;) {
            Require(ptrace(PTRACE_SYSCALL, _pid, nullptr, iSignal) == 0, "PTRACE_SYSCALL");
            const int iStop = WaitForStop(_pid, iStatus);
            bGoesOn = iStop != 0 && (iStop != SYSCALL_STOP || HandleCall());
            const bool bOfTrace = iStop == SYSCALL_STOP || iStatus >> 16 == PTRACE_EVENT_STOP;
            iSignal = bOfTrace ? 0 : iStop;
        }
        std::printf("%d\n", _iCalls);
    }

private:
    bool HandleCall() {
        __ptrace_syscall_info info = {};
        Require(ptrace(PTRACE_GET_SYSCALL_INFO, _pid, sizeof(info), &info) > 0, "PTRACE_GET_SYSCALL_INFO");
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            _bInFork = IsFork(info.entry.nr);
            if (++_iCalls == _iCall) {
                kill(_pid, SIGKILL);
                return false;
            }
        } else if (_bInFork && --_iForks == 0) {
            Require(std::system(_szCommand) == 0, _szCommand);
        }
        return true;
    }

    pid_t _pid;
    int _iCall;
    int _iForks;
    const char* _szCommand;
    int _iCalls = 0;
    bool _bInFork = false;
};

} // namespace

int main(int iCount, char** aArguments) {
    Require(iCount == 5, "usage: call_killer PID CALL FORKS COMMAND");
    struct sigaction action = {};
    action.sa_handler = [](int) { g_iAskedToEnd = 1; };
    sigaction(SIGTERM, &action, nullptr); // without SA_RESTART: it is to end a wait
    const pid_t pid = std::atoi(aArguments[1]);
    Require(ptrace(PTRACE_SEIZE, pid, nullptr, PTRACE_O_TRACESYSGOOD) == 0, "PTRACE_SEIZE");
    Require(ptrace(PTRACE_INTERRUPT, pid, nullptr, nullptr) == 0, "PTRACE_INTERRUPT");
    int iStatus = 0;
    WaitForStop(pid, iStatus);
    std::puts("watching");
    std::fflush(stdout);
    Watch(pid, std::atoi(aArguments[2]), std::atoi(aArguments[3]), aArguments[4]).Run();
    return EXIT_SUCCESS;
}
