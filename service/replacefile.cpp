#include "service/replacefile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "service/logtext.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr mode_t MODE_UNTIL_WHOLE = 0600;

/// A new file in a folder, gone with this object unless it has been given its final name.
class TemporaryFile {
public:
    explicit TemporaryFile(int iFolderFd) : _iFolderFd(iFolderFd), _strName(NewName()) {
        const int iFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        _fd = UniqueFd(openat(_iFolderFd, _strName.c_str(), iFlags, MODE_UNTIL_WHOLE));
    }
    ~TemporaryFile() {
        if (_fd) {
            const int iErrno = errno;
            unlinkat(_iFolderFd, _strName.c_str(), 0);
            errno = iErrno;
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool IsThere() const { return static_cast<bool>(_fd); }

    bool Write(std::string_view strText) {
        while (!strText.empty()) {
            const ssize_t iWritten = write(_fd.Get(), strText.data(), strText.size());
            if (iWritten < 0 && errno != EINTR) {
                return false;
            }
            strText.remove_prefix(iWritten < 0 ? 0 : static_cast<std::size_t>(iWritten));
        }
        return true;
    }
    bool SetMode(mode_t uMode) { return fchmod(_fd.Get(), uMode) == 0; }
    bool Sync() { return fsync(_fd.Get()) == 0; }
    bool RenameTo(const std::string& strName) {
        if (renameat(_iFolderFd, _strName.c_str(), _iFolderFd, strName.c_str()) != 0) {
            return false;
        }
        _fd = UniqueFd();
        return true;
    }

private:
    static std::string NewName() {
        std::uint64_t uRandom = 0;
        // A name that is taken already fails, it does no harm.
        [[maybe_unused]] const ssize_t iRead = getrandom(&uRandom, sizeof(uRandom), 0);
        return ".vuko-" + std::to_string(uRandom) + ".tmp";
    }

    int _iFolderFd;
    std::string _strName;
    UniqueFd _fd;
};

/// Root may rename over a device as well, and /dev/null would be a file from then on.
bool MayBeReplaced(int iFolderFd, const std::string& strName) {
    struct stat stOld = {};
    if (fstatat(iFolderFd, strName.c_str(), &stOld, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT;
    }
    errno = EEXIST;
    return S_ISREG(stOld.st_mode) || S_ISLNK(stOld.st_mode);
}

bool Replace(const std::string& strPath, std::string_view strText, mode_t uMode, bool bSync) {
    const std::filesystem::path path(strPath);
    const std::string strName = path.filename();
    const std::string strFolder = path.has_parent_path() ? path.parent_path().string() : ".";
    const UniqueFd fdFolder(open(strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fdFolder || !MayBeReplaced(fdFolder.Get(), strName)) {
        return false;
    }
    TemporaryFile file(fdFolder.Get());
    return file.IsThere() && file.Write(strText) && file.SetMode(uMode) && (!bSync || file.Sync()) &&
           file.RenameTo(strName) && (!bSync || fsync(fdFolder.Get()) == 0);
}

} // namespace

std::string ReplaceFile(const std::string& strPath, std::string_view strText, mode_t uMode, Durability eDurability) {
    if (Replace(strPath, strText, uMode, eDurability == Durability::Synced)) {
        return std::string();
    }
    return Escaped(strPath) + " cannot be written: " + strerror(errno);
}

} // namespace VUKO::VUKOCrond::Service
