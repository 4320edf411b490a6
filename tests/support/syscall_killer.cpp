#include "tests/support/syscall_killer.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string>

namespace support {

namespace {

constexpr int SYSCALL_STOP = SIGTRAP | 0x80;
constexpr int BODY_THREW = 99;

[[noreturn]] void Fail(const std::string& strWhat) {
    throw std::runtime_error(strWhat + ": " + std::strerror(errno));
}

/// A child under trace. It is killed and reaped with this object at the latest.
class TracedChild {
public:
    explicit TracedChild(const TracedBody& body) {
        _pid = fork();
        if (_pid == -1) {
            Fail("fork");
        }
        if (_pid == 0) {
            RunBody(body);
        }
        WaitForStop();
        if (ptrace(PTRACE_SETOPTIONS, _pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) == -1) {
            Fail("PTRACE_SETOPTIONS");
        }
    }

    ~TracedChild() { Kill(); }
    TracedChild(const TracedChild&) = delete;
    TracedChild& operator=(const TracedChild&) = delete;

    /// Lets the child run to its next stop at a system call.
    /// @return false when its body is through.
    bool Next() {
        int iSignal = 0;
        do {
            if (ptrace(PTRACE_SYSCALL, _pid, nullptr, iSignal) == -1) {
                Fail("PTRACE_SYSCALL");
            }
            iSignal = WaitForStop();
        } while (iSignal != SYSCALL_STOP);
        if (ptrace(PTRACE_GET_SYSCALL_INFO, _pid, sizeof(_info), &_info) <= 0) {
            Fail("PTRACE_GET_SYSCALL_INFO");
        }
        if (IsEntry()) {
            _lNumber = static_cast<long>(_info.entry.nr);
        }
        return _lNumber != SYS_exit_group || IsFailedBody();
    }

    bool IsEntry() const { return _info.op == PTRACE_SYSCALL_INFO_ENTRY; }
    long Number() const { return _lNumber; }

    /// At an entry: the kernel is to do nothing.
    void SkipCall() { SetRegister(offsetof(user_regs_struct, orig_rax), -1); }
    /// At the exit: what the child gets back.
    void SetResult(long lResult) { SetRegister(offsetof(user_regs_struct, rax), lResult); }

    void Kill() {
        if (_pid != 0) {
            kill(_pid, SIGKILL);
            while (waitpid(_pid, nullptr, __WALL) == -1 && errno == EINTR) {
            }
            _pid = 0;
        }
    }

private:
    [[noreturn]] static void RunBody(const TracedBody& body) {
        long lStatus = BODY_THREW;
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        syscall(SYS_kill, syscall(SYS_getpid), SIGSTOP);
        try {
            body();
            lStatus = 0;
        } catch (...) {
        }
        for (;;) {
            syscall(SYS_exit_group, lStatus);
        }
    }

    /// @return the signal that the child stopped at.
    int WaitForStop() {
        int iStatus = 0;
        while (waitpid(_pid, &iStatus, __WALL) == -1) {
            if (errno != EINTR) {
                Fail("waitpid");
            }
        }
        if (!WIFSTOPPED(iStatus)) {
            _pid = 0;
            throw std::runtime_error("the traced child came to an end of its own, status " + std::to_string(iStatus));
        }
        return WSTOPSIG(iStatus);
    }

    bool IsFailedBody() const {
        if (_info.entry.args[0] != 0) {
            throw std::runtime_error("an exception came out of the traced body");
        }
        return false;
    }

    void SetRegister(std::size_t uOffset, long lValue) {
        if (ptrace(PTRACE_POKEUSER, _pid, uOffset, lValue) == -1) {
            Fail("PTRACE_POKEUSER");
        }
    }

    pid_t _pid = 0;
    long _lNumber = -1;
    __ptrace_syscall_info _info = {};
};

} // namespace

bool KillAtStop(const TracedBody& body, int iStop) {
    TracedChild child(body);
    for (int i = 0; i < iStop; ++i) {
        if (!child.Next()) {
            return false;
        }
    }
    child.Kill();
    return true;
}

std::optional<FailedCall> FailCall(const TracedBody& body, int iCall, int iErrno,
                                   const std::function<bool(long)>& isMeant) {
    TracedChild child(body);
    std::optional<FailedCall> failed;
    std::vector<long> vecBefore;
    int iMeant = 0;
    while (child.Next()) {
        if (failed || !child.IsEntry()) {
            continue;
        }
        if (!isMeant(child.Number()) || ++iMeant != iCall) {
            vecBefore.push_back(child.Number());
            continue;
        }
        failed = FailedCall{child.Number(), vecBefore};
        child.SkipCall();
        if (child.Next()) {
            child.SetResult(-iErrno);
        }
    }
    return failed;
}

std::vector<long> SystemCallsOf(const TracedBody& body) {
    TracedChild child(body);
    std::vector<long> vecCalls;
    while (child.Next()) {
        if (child.IsEntry()) {
            vecCalls.push_back(child.Number());
        }
    }
    return vecCalls;
}

} // namespace support
