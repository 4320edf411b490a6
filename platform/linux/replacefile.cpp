#include "platform/linux/replacefile.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

#include "platform/linux/entropy.h"
#include "platform/linux/filedescriptor.h"
#include "platform/linux/interrupt.h"
#include "platform/linux/lasterror.h"

namespace VUKO::PLATFORM {

namespace {

constexpr mode_t MODE_PRIVATE = 0600;
constexpr mode_t MODE_BITS = 07777;
constexpr int NAME_ATTEMPTS = 100;

struct Place {
    std::string strFolder;
    std::string strName;
};

/// Splits the path, so that all steps take place in one and the same folder, even if its path changes meanwhile.
bool SplitPath(const std::string& strPath, Place& place) {
    const std::size_t uSlash = strPath.rfind('/');
    if (uSlash == std::string::npos) {
        place = {".", strPath};
    } else {
        place = {strPath.substr(0, uSlash + 1), strPath.substr(uSlash + 1)};
    }
    if (strPath.empty() || strPath.find('\0') != std::string::npos) {
        VUKO_SET_ERROR(strPath.empty() ? ENOENT : EINVAL);
        return false;
    }
    if (place.strName.empty() || place.strName == "." || place.strName == "..") {
        VUKO_SET_ERROR(EISDIR);
        return false;
    }
    return true;
}

/// A new file that goes away with this object, unless it has been given its final name.
class TemporaryFile {
public:
    explicit TemporaryFile(int iFolderFd) : _iFolderFd(iFolderFd) {}
    ~TemporaryFile() {
        if (_fd) {
            const ErrnoKeeper keeper;
            ::unlinkat(_iFolderFd, _strName.c_str(), 0);
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int Fd() const { return _fd.Get(); }

    bool Make() {
        const int iFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        for (int iAttempt = 0; iAttempt < NAME_ATTEMPTS; ++iAttempt) {
            _strName = NewName();
            _fd = FileDescriptor(::openat(_iFolderFd, _strName.c_str(), iFlags, MODE_PRIVATE));
            if (_fd || (errno != EEXIST && errno != EINTR)) {
                break;
            }
        }
        if (!_fd) {
            VUKO_SET_ERROR(errno);
            return false;
        }
        if (::fchmod(_fd.Get(), MODE_PRIVATE) != 0) { // the umask may have left less than that
            VUKO_SET_ERROR(errno);
            return false;
        }
        return true;
    }

    bool RenameTo(const std::string& strName) {
        if (::renameat(_iFolderFd, _strName.c_str(), _iFolderFd, strName.c_str()) != 0) {
            VUKO_SET_ERROR(errno);
            return false;
        }
        _fd.Close();
        return true;
    }

private:
    /// Hidden, without the suffix of any file that somebody reads, and short, whatever the final name is.
    static std::string NewName() {
        std::uint64_t uRandom = 0;
        FillWithEntropy(&uRandom, sizeof(uRandom));
        return ".vuko-" + std::to_string(uRandom) + ".tmp";
    }

    const int _iFolderFd;
    FileDescriptor _fd;
    std::string _strName;
};

/// Hands the identity of the file that is about to be replaced on. Owner first: its change may clear mode bits.
bool TakeIdentityOver(int iFolderFd, const std::string& strName, int iFd) {
    struct stat stOld = {};
    struct stat stNew = {};
    if (::fstatat(iFolderFd, strName.c_str(), &stOld, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) {
            return true;
        }
        VUKO_SET_ERROR(errno);
        return false;
    }
    if (S_ISLNK(stOld.st_mode)) {
        return true;
    }
    if (!S_ISREG(stOld.st_mode)) {
        VUKO_SET_ERROR(S_ISDIR(stOld.st_mode) ? EISDIR : EINVAL);
        return false;
    }
    if (::fstat(iFd, &stNew) != 0) {
        VUKO_SET_ERROR(errno);
        return false;
    }
    const bool bSameOwner = stOld.st_uid == stNew.st_uid && stOld.st_gid == stNew.st_gid;
    if (!bSameOwner && ::fchown(iFd, stOld.st_uid, stOld.st_gid) != 0) {
        VUKO_SET_ERROR(errno);
        return false;
    }
    if (::fchmod(iFd, stOld.st_mode & MODE_BITS) != 0) {
        VUKO_SET_ERROR(errno);
        return false;
    }
    return true;
}

bool WriteAll(int iFd, const std::string& strText) {
    for (std::size_t uDone = 0; uDone < strText.size();) {
        const ssize_t iWritten =
            RetryInterrupted([&] { return ::write(iFd, strText.data() + uDone, strText.size() - uDone); });
        if (iWritten < 0) {
            VUKO_SET_ERROR(errno);
            return false;
        }
        uDone += static_cast<std::size_t>(iWritten);
    }
    return true;
}

bool Sync(int iFd) {
    if (RetryInterrupted([&] { return ::fsync(iFd); }) != 0) {
        VUKO_SET_ERROR(errno);
        return false;
    }
    return true;
}

} // namespace

bool ReplaceFile(const std::string& strPath, const std::string& strText, bool bDurable) {
    Place place;
    if (!SplitPath(strPath, place)) {
        return false;
    }
    // A folder that is not to be synced need not be readable either.
    const int iFlags = (bDurable ? O_RDONLY : O_PATH) | O_DIRECTORY | O_CLOEXEC;
    const FileDescriptor fdFolder(::open(place.strFolder.c_str(), iFlags));
    if (!fdFolder) {
        VUKO_SET_ERROR(errno);
        return false;
    }
    TemporaryFile file(fdFolder.Get());
    return file.Make() && WriteAll(file.Fd(), strText) && TakeIdentityOver(fdFolder.Get(), place.strName, file.Fd()) &&
           Sync(file.Fd()) && file.RenameTo(place.strName) && (!bDurable || Sync(fdFolder.Get()));
}

} // namespace VUKO::PLATFORM
