#include "logger/staginglock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <thread>

namespace VUKO {

namespace {

/// Between two tries; it grows, so that hundreds of jobs that start at once do not keep the holder from running.
constexpr std::chrono::microseconds FIRST_PAUSE{250};
constexpr std::chrono::microseconds LONGEST_PAUSE{8000};

/// How often a file may turn out to have been replaced while it was waited for. Each time somebody else got on.
constexpr int REPLACED_MAX = 10000;

/// How often something that a stranger put in the file's place is taken away. They may be quick to put it there again.
constexpr int FOREIGN_MAX = 10;

/// The pauses that are left. They are counted and no clock is asked: clocks stand still in tests, and jump elsewhere.
class Pauses {
public:
    explicit Pauses(std::chrono::microseconds total) : _left(total) {}

    /// @return false, at once, when none is left.
    bool Pause() {
        if (_left <= std::chrono::microseconds::zero()) {
            return false;
        }
        std::this_thread::sleep_for(_next);
        _left -= _next;
        _next = std::min(2 * _next, LONGEST_PAUSE);
        return true;
    }

private:
    std::chrono::microseconds _left;
    std::chrono::microseconds _next = FIRST_PAUSE;
};

bool Lock(int iFd, Pauses& pauses) {
    while (flock(iFd, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || !pauses.Pause()) {
            return false;
        }
    }
    return true;
}

/// Whether others may make files in the folder of a path.
bool IsInSharedFolder(const std::string& strPath) {
    const std::size_t uSlash = strPath.find_last_of('/');
    const std::string strFolder = uSlash == std::string::npos ? "." : strPath.substr(0, uSlash + 1);
    struct stat stFolder = {};
    return fstatat(AT_FDCWD, strFolder.c_str(), &stFolder, 0) == 0 && (stFolder.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

bool IsOwn(const struct stat& stFile) {
    return S_ISREG(stFile.st_mode) && (stFile.st_uid == 0 || stFile.st_uid == geteuid()) && stFile.st_nlink <= 1;
}

bool IsThere(const std::string& strPath, struct stat& stPath) {
    return fstatat(AT_FDCWD, strPath.c_str(), &stPath, AT_SYMLINK_NOFOLLOW) == 0;
}

/// Looked at once more by its path: another process may have put its own there since.
bool TakeForeignAway(const std::string& strPath) {
    struct stat stPath = {};
    return !IsThere(strPath, stPath) || IsOwn(stPath) || unlink(strPath.c_str()) == 0;
}

bool StandsAt(const std::string& strPath, int iFd) {
    struct stat stFile = {};
    struct stat stPath = {};
    return fstat(iFd, &stFile) == 0 && ::stat(strPath.c_str(), &stPath) == 0 && stFile.st_dev == stPath.st_dev &&
           stFile.st_ino == stPath.st_ino;
}

} // namespace

StagingLock::StagingLock(const std::string& strPath, IfMissing eIfMissing, std::chrono::milliseconds patience) {
    const int iErrno = errno;
    const bool bShared = IsInSharedFolder(strPath);
    const bool bCreate = eIfMissing == IfMissing::Create;
    // O_NONBLOCK: a pipe at the path must not be waited for. O_CLOEXEC: the lock is not the job's to inherit.
    const int iFlags = O_CLOEXEC | O_NONBLOCK | (bCreate ? O_WRONLY | O_APPEND | O_CREAT : O_RDONLY);
    Pauses pauses(patience);
    int iForeign = 0;
    for (int iReplaced = 0; iReplaced < REPLACED_MAX; ++iReplaced) {
        Open(strPath, iFlags, bShared);
        if (_bForeign && bCreate && iForeign++ < FOREIGN_MAX && TakeForeignAway(strPath)) {
            continue;
        }
        if (_iFd == -1) {
            return;
        }
        const bool bLocked = Lock(_iFd, pauses);
        if (bLocked && StandsAt(strPath, _iFd)) {
            break;
        }
        Close();
        if (!bLocked) {
            break;
        }
        // Deleted by the holder that was waited for: another file may stand there.
    }
    errno = iErrno;
}

/// Leaves the file's descriptor, or what is known of the reason why there is none.
void StagingLock::Open(const std::string& strPath, int iFlags, bool bShared) {
    _iFd = open(strPath.c_str(), iFlags | (bShared ? O_NOFOLLOW : 0), 0666);
    _bMissing = _iFd == -1 && errno == ENOENT;
    if (!bShared || _bMissing) {
        return;
    }
    struct stat stFile = {};
    const int iErrno = errno;
    const bool bKnown = _iFd != -1 ? fstat(_iFd, &stFile) == 0 : IsThere(strPath, stFile);
    errno = iErrno;
    _bForeign = bKnown && !IsOwn(stFile);
    if (_bForeign) {
        Close();
        errno = EPERM;
    }
}

StagingLock::~StagingLock() {
    Close();
}

void StagingLock::Close() {
    if (_iFd != -1) {
        flock(_iFd, LOCK_UN); // a child forked meanwhile by another thread has the descriptor too, and with it the lock
        close(_iFd);
        _iFd = -1;
    }
}

} // namespace VUKO
