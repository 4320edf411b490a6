#include "platform/linux/pidfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/linux/filedescriptor.h"
#include "platform/linux/interrupt.h"

namespace VUKO::PLATFORM {

namespace {

constexpr std::size_t COMM_MAX = 15;

/// Whether nobody but root, or the user we are, could have written the file.
int CheckTrusted(int iFd) {
    struct stat stFile = {};
    if (::fstat(iFd, &stFile) != 0) {
        return errno;
    }
    if (!S_ISREG(stFile.st_mode)) {
        return EINVAL;
    }
    const bool bOwned = stFile.st_uid == 0 || stFile.st_uid == ::geteuid();
    return bOwned && (stFile.st_mode & (S_IWGRP | S_IWOTH)) == 0 ? 0 : EPERM;
}

/// @return the process with a write lock on the file; 0 when there is none, or none with a pid here: holders in
///         another pid namespace show as 0, locks that belong to an open file instead of a process as -1.
pid_t LockHolder(int iFd) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (::fcntl(iFd, F_GETLK, &lock) != 0 || lock.l_type != F_WRLCK || lock.l_pid <= 0) {
        return 0;
    }
    return lock.l_pid;
}

bool IsNamed(pid_t pid, const std::string& strName) {
    const std::string strPath = "/proc/" + std::to_string(pid) + "/comm";
    const FileDescriptor fd(::open(strPath.c_str(), O_RDONLY | O_CLOEXEC));
    char szComm[COMM_MAX + 2] = {};
    const ssize_t iRead = fd ? RetryInterrupted([&] { return ::read(fd.Get(), szComm, sizeof(szComm)); }) : -1;
    return iRead > 0 && std::string(szComm, static_cast<std::size_t>(iRead)) == strName.substr(0, COMM_MAX) + "\n";
}

/// The numbers are checked after the process has been pinned by a descriptor: a process that ends and leaves its number
/// to another one in between is then either noticed by its lock or out of the signal's reach.
int SignalLockHolder(int iFd, const std::string& strService, int iSignal) {
    const pid_t pid = LockHolder(iFd);
    if (pid == 0) {
        return ESRCH;
    }
    const FileDescriptor fdProcess(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0U)));
    if (!fdProcess) {
        return errno;
    }
    if (!IsNamed(pid, strService) || LockHolder(iFd) != pid) {
        return ESRCH;
    }
    return ::syscall(SYS_pidfd_send_signal, fdProcess.Get(), iSignal, nullptr, 0U) == 0 ? 0 : errno;
}

} // namespace

int SignalHolderOfPidFile(const std::string& strService, int iSignal) {
    const std::string strPath = "/var/run/" + strService + ".pid";
    const FileDescriptor fd(::open(strPath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd) {
        return errno;
    }
    if (const int iCode = CheckTrusted(fd.Get()); iCode != 0) {
        return iCode;
    }
    return SignalLockHolder(fd.Get(), strService, iSignal);
}

} // namespace VUKO::PLATFORM
