#include "platform/vukosdk.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "platform/linux/filedescriptor.h"
#include "platform/linux/lasterror.h"

namespace VUKO::PLATFORM {

namespace {

constexpr mode_t MODE_IN_THE_MAKING = 0700;
constexpr mode_t MODE_BITS = 07777;

struct Identity {
    uid_t uid;
    gid_t gid;
    mode_t mode;
};

/// Enters a folder. Search permission is all it takes, as for any path that leads through it.
FileDescriptor EnterFolder(int iParentFd, const char* szName) {
    return FileDescriptor(::openat(iParentFd, szName, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

FileDescriptor OpenMadeFolder(int iParentFd, const char* szName) {
    const int iFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    FileDescriptor fd(::openat(iParentFd, szName, iFlags));
    if (!fd && errno == EACCES && ::fchmodat(iParentFd, szName, MODE_IN_THE_MAKING, AT_SYMLINK_NOFOLLOW) == 0) {
        fd = FileDescriptor(::openat(iParentFd, szName, iFlags)); // the umask had taken our own rights
    }
    return fd;
}

/// Owner first: a change of owner may clear mode bits. The mode is set by its own call because mkdir() leaves out
/// what the umask says.
bool GiveIdentity(int iFolderFd, const Identity& identity) {
    return ::fchown(iFolderFd, identity.uid, identity.gid) == 0 && ::fchmod(iFolderFd, identity.mode) == 0;
}

FileDescriptor MakeFolder(int iParentFd, const char* szName, const Identity& identity) {
    if (::mkdirat(iParentFd, szName, MODE_IN_THE_MAKING) != 0) {
        // Somebody else was faster: theirs will do, as it is.
        return errno == EEXIST ? EnterFolder(iParentFd, szName) : FileDescriptor();
    }
    FileDescriptor fd = OpenMadeFolder(iParentFd, szName);
    if (!fd || !GiveIdentity(fd.Get(), identity)) {
        const ErrnoKeeper keeper;
        fd.Close();
        ::unlinkat(iParentFd, szName, AT_REMOVEDIR);
    }
    return fd;
}

/// Looks first and makes second: a folder that exists is found even where nothing could be made.
FileDescriptor EnterOrMake(int iParentFd, const char* szName, const Identity& identity) {
    FileDescriptor fd = EnterFolder(iParentFd, szName);
    if (!fd && errno == ENOENT) {
        fd = MakeFolder(iParentFd, szName, identity);
    }
    return fd;
}

/// Walks down the path by descriptors, one name at a time.
bool MakePath(const char* szPath, const Identity& identity) {
    FileDescriptor fdHere = EnterFolder(AT_FDCWD, *szPath == '/' ? "/" : ".");
    for (const char* pRest = szPath; fdHere && *(pRest += std::strspn(pRest, "/")) != '\0';) {
        char szName[NAME_MAX + 1] = {};
        const std::size_t uLength = std::strcspn(pRest, "/");
        if (uLength > NAME_MAX) {
            errno = ENAMETOOLONG;
            return false;
        }
        std::memcpy(szName, pRest, uLength);
        fdHere = EnterOrMake(fdHere.Get(), szName, identity);
        pRest += uLength;
    }
    return static_cast<bool>(fdHere);
}

} // namespace

} // namespace VUKO::PLATFORM

int VUKOFSMkdirP(const char* path, int /*iReserved1*/, int /*iReserved2*/, uid_t uid, gid_t gid, mode_t mode) {
    VUKO::PLATFORM::ErrnoKeeper keeper;
    if (path == nullptr || *path == '\0') {
        VUKO_SET_ERROR(path == nullptr ? EFAULT : ENOENT);
        keeper.LetGo();
        return -1;
    }
    if (!VUKO::PLATFORM::MakePath(path, {uid, gid, mode & VUKO::PLATFORM::MODE_BITS})) {
        VUKO_SET_ERROR(errno);
        keeper.LetGo();
        return -1;
    }
    return 0;
}
