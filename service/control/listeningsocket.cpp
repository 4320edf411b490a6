#include "service/control/listeningsocket.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <system_error>
#include <utility>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr mode_t SOCKET_MODE = 0666;
constexpr int NAME_ATTEMPTS = 16;

[[noreturn]] void Fail(int iErrno, const std::string& strWhat) {
    throw std::system_error(iErrno, std::generic_category(), strWhat);
}

/// A name beside another one. Random, as one that a stranger can foresee could be taken before.
std::string NameBeside(const std::string& strPath) {
    std::uint32_t uRandom = 0;
    if (getrandom(&uRandom, sizeof(uRandom), 0) != static_cast<ssize_t>(sizeof(uRandom))) {
        Fail(errno, "getrandom");
    }
    char szSuffix[16];
    snprintf(szSuffix, sizeof(szSuffix), ".%08x", uRandom);
    return strPath + szSuffix;
}

int BindTo(int iFd, const std::string& strPath) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strPath.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    strPath.copy(address.sun_path, strPath.size());
    return bind(iFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

std::string BindBeside(int iFd, const std::string& strPath) {
    for (int i = 0; i < NAME_ATTEMPTS; ++i) {
        const std::string strTemporary = NameBeside(strPath);
        if (BindTo(iFd, strTemporary) == 0) {
            return strTemporary;
        }
        if (errno != EADDRINUSE) {
            break;
        }
    }
    Fail(errno, "cannot make the socket " + strPath);
}

/// Removes a name unless it has been given up.
class TemporaryName {
public:
    explicit TemporaryName(std::string strName) : _strName(std::move(strName)) {}
    ~TemporaryName() {
        if (!_strName.empty()) {
            unlink(_strName.c_str());
        }
    }
    TemporaryName(const TemporaryName&) = delete;
    TemporaryName& operator=(const TemporaryName&) = delete;

    const char* Get() const { return _strName.c_str(); }
    void GiveUp() { _strName.clear(); }

private:
    std::string _strName;
};

void CheckMayReplace(const std::string& strPath) {
    struct stat stOld = {};
    if (lstat(strPath.c_str(), &stOld) != 0) {
        if (errno != ENOENT) {
            Fail(errno, strPath);
        }
        return;
    }
    if (!S_ISSOCK(stOld.st_mode) || (stOld.st_uid != 0 && stOld.st_uid != geteuid())) {
        Fail(EEXIST, strPath + " is no socket of this service");
    }
}

} // namespace

ListeningSocket::ListeningSocket(std::string strPath)
    : _strPath(std::move(strPath)), _fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (!_fd) {
        Fail(errno, "socket");
    }
    CheckMayReplace(_strPath);
    TemporaryName name(BindBeside(_fd.Get(), _strPath));
    struct stat stSocket = {};
    // The mode is set by name: that of a bound socket does not follow the descriptor's, and bind() heeds the umask.
    if (fchmodat(AT_FDCWD, name.Get(), SOCKET_MODE, AT_SYMLINK_NOFOLLOW) != 0 || lstat(name.Get(), &stSocket) != 0 ||
        listen(_fd.Get(), SOMAXCONN) != 0 || rename(name.Get(), _strPath.c_str()) != 0) {
        Fail(errno, "cannot make the socket " + _strPath);
    }
    name.GiveUp();
    _device = stSocket.st_dev;
    _inode = stSocket.st_ino;
}

ListeningSocket::~ListeningSocket() {
    struct stat stNamed = {};
    if (lstat(_strPath.c_str(), &stNamed) == 0 && stNamed.st_dev == _device && stNamed.st_ino == _inode) {
        unlink(_strPath.c_str());
    }
}

} // namespace VUKO::VUKOCrond::Service
