#include "tests/logger/file_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

namespace fake {

FileCalls& Files() {
    static FileCalls calls;
    return calls;
}

namespace {

void Tell(const std::string& strCall) {
    const int iErrno = errno;
    if (const auto onCall = Files().onCall) { // a copy: it may replace itself
        onCall(strCall);
    }
    errno = iErrno;
}

/// What the program would have called without this file.
template <typename Function>
Function* Real(const char* szName) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, szName));
}

void LeaveErrno(int iErrno) {
    if (iErrno != 0) {
        errno = iErrno;
    }
}

} // namespace

} // namespace fake

using fake::Files;

extern "C" {

/// What the standard library's file streams open with.
FILE* fopen64(const char* szPath, const char* szMode) {
    fake::Tell("open " + std::string(szPath));
    if (!Files().strFailOpen.empty() && Files().strFailOpen == szPath) {
        fake::LeaveErrno(Files().iOpenErrno);
        return nullptr;
    }
    static auto* const pReal = fake::Real<FILE*(const char*, const char*)>("fopen64");
    return pReal(szPath, szMode);
}

int chmod(const char* szPath, mode_t uMode) noexcept {
    char szOctal[16] = {};
    static_cast<void>(snprintf(szOctal, sizeof(szOctal), "%o", static_cast<unsigned>(uMode)));
    fake::Tell("chmod " + std::string(szPath) + " " + szOctal);
    if (Files().bFailChmod) {
        fake::LeaveErrno(Files().iChmodErrno);
        return -1;
    }
    return fchmodat(AT_FDCWD, szPath, uMode, 0);
}

int stat(const char* szPath, struct stat* pResult) noexcept {
    fake::Tell("stat " + std::string(szPath));
    return fstatat(AT_FDCWD, szPath, pResult, 0);
}

int flock(int iFd, int iOperation) noexcept {
    fake::Tell("flock");
    if (Files().iFlockErrno != 0) {
        errno = Files().iFlockErrno;
        return -1;
    }
    static auto* const pReal = fake::Real<int(int, int)>("flock");
    return pReal(iFd, iOperation);
}

std::size_t strftime(char* szBuffer, std::size_t uSize, const char* szFormat, const struct tm* pTime) noexcept {
    if (Files().bFailStrftime) {
        return 0;
    }
    static auto* const pReal = fake::Real<std::size_t(char*, std::size_t, const char*, const struct tm*)>("strftime");
    return pReal(szBuffer, uSize, szFormat, pTime);
}
}
