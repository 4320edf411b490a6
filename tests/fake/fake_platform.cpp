#include "tests/fake/fake_platform.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <new>

#include "platform/vlibc.h"
#include "platform/vukosdk.h"
#include "tests/fake/call_record.h"

namespace fake {

PlatformState& Platform() {
    static PlatformState state;
    return state;
}

ScopedPlatform::ScopedPlatform() {
    Platform() = PlatformState();
    ClearCalls();
}

ScopedPlatform::~ScopedPlatform() {
    Platform() = PlatformState();
    ClearCalls();
}

namespace {

void Note(const std::string& strCall) {
    const int iErrno = errno;
    if (Platform().onCall) {
        Platform().onCall();
    }
    RecordCall(strCall);
    errno = iErrno;
}

int FailOrPass(int iErrno) {
    if (iErrno == 0) {
        return 0;
    }
    errno = iErrno;
    return -1;
}

} // namespace

} // namespace fake

using fake::Note;
using fake::Platform;

extern "C" {

pid_t VLIBCProcForkEx(int iFlags) {
    Note("fork " + std::to_string(iFlags));
    switch (Platform().eFork) {
    case fake::PlatformState::Fork::Fail:
        errno = Platform().iForkErrno;
        return -1;
    case fake::PlatformState::Fork::ActAsChild:
        return 0;
    case fake::PlatformState::Fork::Real:
        break;
    }
    return fork();
}

int VLIBCExecv(const char* szPath, char* const aArgs[], int iWait) {
    std::string strCall = "execv " + std::string(szPath == nullptr ? "(null)" : szPath);
    for (char* const* pArg = aArgs; *pArg != nullptr; ++pArg) {
        strCall += " [" + std::string(*pArg) + "]";
    }
    Note(strCall + " wait=" + std::to_string(iWait));
    if (Platform().iExecvErrno != 0) {
        errno = Platform().iExecvErrno;
    }
    return Platform().iExecvResult;
}

int VUKOUserGetUGID(const char* szName, uid_t* pUid, gid_t* pGid) {
    Note("account " + std::string(szName));
    const auto it = Platform().mapAccounts.find(szName);
    if (it == Platform().mapAccounts.end()) {
        if (Platform().iAccountErrno != 0) {
            errno = Platform().iAccountErrno;
        }
        return -1;
    }
    *pUid = it->second.first;
    *pGid = it->second.second;
    return Platform().iAccountResult;
}

int initgroups(const char* szUser, gid_t gid) {
    Note("initgroups " + std::string(szUser) + " " + std::to_string(gid));
    return fake::FailOrPass(Platform().iInitgroupsErrno);
}

int setgid(gid_t gid) noexcept {
    Note("setgid " + std::to_string(gid));
    return fake::FailOrPass(Platform().iSetgidErrno);
}

int setuid(uid_t uid) noexcept {
    Note("setuid " + std::to_string(uid));
    return fake::FailOrPass(Platform().iSetuidErrno);
}

unsigned sleep(unsigned uSeconds) {
    Note("sleep " + std::to_string(uSeconds));
    return 0;
}

__sighandler_t signal(int iSignal, __sighandler_t handler) noexcept {
    Note("signal " + std::to_string(iSignal) + (handler == SIG_DFL ? " default" : " handler"));
    return SIG_DFL;
}

__attribute__((noreturn)) void _exit(int iStatus) {
    Note("_exit " + std::to_string(iStatus));
    for (;;) {
        syscall(SYS_exit_group, iStatus);
    }
}
}

void* operator new[](std::size_t uSize, const std::nothrow_t&) noexcept {
    if (Platform().bNoMemoryForVectors) {
        return nullptr;
    }
    try {
        return ::operator new[](uSize);
    } catch (...) {
        return nullptr;
    }
}
