#include "service/pidfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr mode_t PID_FILE_MODE = 0644;
constexpr int ATTEMPTS = 100;

struct flock WholeFileForWriting() {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

/// @return 0 when nobody holds it (any more) or the holder cannot be seen from here.
pid_t HolderOf(int iFd) {
    struct flock lock = WholeFileForWriting();
    if (fcntl(iFd, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) {
        return 0;
    }
    return lock.l_pid;
}

bool IsLockedForReading(int iFd) {
    struct flock lock = WholeFileForWriting();
    return fcntl(iFd, F_GETLK, &lock) == 0 && lock.l_type == F_RDLCK;
}

bool WriteWhole(int iFd, const std::string& strText) {
    return ftruncate(iFd, 0) == 0 &&
           pwrite(iFd, strText.data(), strText.size(), 0) == static_cast<ssize_t>(strText.size());
}

} // namespace

PidFile::PidFile(const std::string& strPath) : _strPath(strPath) {
    // The instance before may remove the file between our opening and our locking it: what we hold then has no name.
    for (int i = 0; i < ATTEMPTS && TakeOnce(); ++i) {
    }
    if (!_fd && _strWhyNot.empty()) {
        _strWhyNot = Escaped(_strPath) + " is replaced again and again";
    }
}

PidFile::~PidFile() {
    if (_fd && IsStillOurs(_fd.Get())) {
        unlink(_strPath.c_str());
    }
}

/// @return true when it has to be tried once more.
bool PidFile::TakeOnce() {
    UniqueFd fd(open(_strPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, PID_FILE_MODE));
    struct stat stFile = {};
    if (!fd || fstat(fd.Get(), &stFile) != 0) {
        return Fail("cannot be opened");
    }
    if (!S_ISREG(stFile.st_mode)) {
        errno = 0;
        return Fail("is not a regular file");
    }
    struct flock lock = WholeFileForWriting();
    if (fcntl(fd.Get(), F_SETLK, &lock) != 0) {
        if (errno != EACCES && errno != EAGAIN) {
            return Fail("cannot be locked");
        }
        if (IsLockedForReading(fd.Get())) {
            // No instance's lock: anybody who may read the file can take that one. He may keep this file.
            return unlink(_strPath.c_str()) == 0 || Fail("is locked by a reader and cannot be removed");
        }
        const pid_t pidHolder = HolderOf(fd.Get());
        _strWhyNot = "another instance is running: process " +
                     (pidHolder > 0 ? std::to_string(pidHolder) : std::string("of another container")) + " holds " +
                     Escaped(_strPath);
        return false;
    }
    if (!IsStillOurs(fd.Get())) {
        return true;
    }
    if (!WriteWhole(fd.Get(), std::to_string(getpid()) + "\n")) {
        const int iErrno = errno;
        unlink(_strPath.c_str()); // half a PID file would name nobody, or somebody else
        errno = iErrno;
        return Fail("cannot be written");
    }
    _fd = std::move(fd);
    return false;
}

bool PidFile::Fail(const char* szWhat) {
    _strWhyNot = Escaped(_strPath) + " " + szWhat;
    if (errno != 0) {
        _strWhyNot += std::string(": ") + strerror(errno);
    }
    return false;
}

/// Whether the path still leads to the file behind the descriptor.
bool PidFile::IsStillOurs(int iFd) const {
    struct stat stHeld = {};
    struct stat stNamed = {};
    return fstat(iFd, &stHeld) == 0 && lstat(_strPath.c_str(), &stNamed) == 0 && stHeld.st_dev == stNamed.st_dev &&
           stHeld.st_ino == stNamed.st_ino;
}

} // namespace VUKO::VUKOCrond::Service
