#include "tests/platform/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <map>

#include "base/export.h"

namespace support {

namespace {

struct Fault {
    int iErrno;
    int iSpared;
};

struct State {
    std::map<std::string, Fault> mapFaults;
    std::vector<std::string> vecCalls;
    std::size_t uPiece = 0;
    bool bInterrupt = false;
    std::function<void()> afterFstat;
};

/// Never destroyed: calls come until the very end of the program.
State& TheState() {
    static State& state = *new State;
    return state;
}

/// Notes a call; true, with errno set, when it shall fail.
bool Fails(const char* szCall) {
    State& state = TheState();
    state.vecCalls.push_back(szCall);
    const auto itFault = state.mapFaults.find(szCall);
    if (itFault == state.mapFaults.end() || itFault->second.iSpared-- > 0) {
        return false;
    }
    itFault->second.iSpared = 0;
    errno = itFault->second.iErrno;
    return true;
}

/// The C library's own function behind a wrapper.
template <typename Function>
Function Real(const char* szName) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, szName));
}

} // namespace

void ResetFaults() {
    TheState() = State();
}

void Fail(const std::string& strCall, int iErrno, int iSpared) {
    TheState().mapFaults[strCall] = {iErrno, iSpared};
}

void WriteInPieces(std::size_t uBytes) {
    TheState().uPiece = uBytes;
}

void AfterFstat(std::function<void()> action) {
    TheState().afterFstat = std::move(action);
}

const std::vector<std::string>& Calls() {
    return TheState().vecCalls;
}

} // namespace support

// Visible, so that they stand before those of the C library for the shared library under test too.
extern "C" {

VUKO_API pid_t fork() noexcept {
    return support::Fails("fork") ? -1 : support::Real<pid_t (*)()>("fork")();
}

/// A wrapper cannot return twice in one memory: what it makes is a process with a copy.
VUKO_API pid_t vfork() noexcept {
    return support::Fails("vfork") ? -1 : support::Real<pid_t (*)()>("fork")();
}

VUKO_API int fstat(int iFd, struct stat* pStat) noexcept {
    if (support::Fails("fstat")) {
        return -1;
    }
    const int iResult = support::Real<int (*)(int, struct stat*)>("fstat")(iFd, pStat);
    if (const std::function<void()> action = support::TheState().afterFstat) {
        action();
    }
    return iResult;
}

VUKO_API ssize_t getrandom(void* pBuffer, size_t uSize, unsigned uFlags) {
    return support::Fails("getrandom") ? -1 : syscall(SYS_getrandom, pBuffer, uSize, uFlags);
}

VUKO_API int open(const char* szPath, int iFlags, ...) {
    va_list arguments;
    va_start(arguments, iFlags);
    const mode_t mode = (iFlags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return support::Fails("open") ? -1 : static_cast<int>(syscall(SYS_open, szPath, iFlags, mode));
}

VUKO_API ssize_t write(int iFd, const void* pBytes, size_t uSize) {
    if (support::Fails("write")) {
        return -1;
    }
    support::State& state = support::TheState();
    if (state.uPiece != 0) {
        state.bInterrupt = !state.bInterrupt;
        if (state.bInterrupt) {
            errno = EINTR;
            return -1;
        }
        uSize = std::min(uSize, state.uPiece);
    }
    return syscall(SYS_write, iFd, pBytes, uSize);
}

VUKO_API int fsync(int iFd) {
    return support::Fails("fsync") ? -1 : static_cast<int>(syscall(SYS_fsync, iFd));
}

VUKO_API int fchown(int iFd, uid_t uid, gid_t gid) noexcept {
    return support::Fails("fchown") ? -1 : static_cast<int>(syscall(SYS_fchown, iFd, uid, gid));
}

VUKO_API int fchmod(int iFd, mode_t mode) noexcept {
    return support::Fails("fchmod") ? -1 : static_cast<int>(syscall(SYS_fchmod, iFd, mode));
}

VUKO_API int renameat(int iOldFd, const char* szOld, int iNewFd, const char* szNew) noexcept {
    return support::Fails("renameat") ? -1 : static_cast<int>(syscall(SYS_renameat, iOldFd, szOld, iNewFd, szNew));
}
}
