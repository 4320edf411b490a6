#include "logger/staginglock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

namespace VUKO {

namespace {

/// Between two tries; it grows, so that hundreds of jobs that start at once do not keep the holder from running.
constexpr std::chrono::microseconds FIRST_PAUSE{250};
constexpr std::chrono::microseconds LONGEST_PAUSE{8000};

/// How often a file may turn out to have been replaced while it was waited for. Each time somebody else got on.
constexpr int REPLACED_MAX = 10000;

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

bool StandsAt(const std::string& strPath, int iFd) {
    struct stat stFile = {};
    struct stat stPath = {};
    return fstat(iFd, &stFile) == 0 && ::stat(strPath.c_str(), &stPath) == 0 && stFile.st_dev == stPath.st_dev &&
           stFile.st_ino == stPath.st_ino;
}

} // namespace

StagingLock::StagingLock(const std::string& strPath, IfMissing eIfMissing, std::chrono::milliseconds patience) {
    const int iErrno = errno;
    // O_NONBLOCK: a pipe at the path must not be waited for. O_CLOEXEC: the lock is not the job's to inherit.
    const int iFlags =
        O_CLOEXEC | O_NONBLOCK | (eIfMissing == IfMissing::Create ? O_WRONLY | O_APPEND | O_CREAT : O_RDONLY);
    Pauses pauses(patience);
    for (int iReplaced = 0; iReplaced < REPLACED_MAX; ++iReplaced) {
        _iFd = open(strPath.c_str(), iFlags, 0666);
        if (_iFd == -1) {
            _bMissing = errno == ENOENT;
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
