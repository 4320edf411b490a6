#include "service/definitions/folderwatch.h"

#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "crond/cronjob.h"
#include "service/definitions/definitionscan.h"
#include "service/logtext.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// The same for every folder: one that is the parent of another and holds definitions itself has one watch.
constexpr std::uint32_t EVENTS = IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_ATTRIB |
                                 IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

/// What is read at one go, and how often: a package that makes events without end costs no more than this each time.
constexpr std::size_t READ_SIZE = 16384;
constexpr int READINGS_MAX = 16;

/// How often a folder may come into being between the look for it and the watch on its parent.
constexpr int APPEARED_MAX = 10;

bool IsHidden(std::string_view strName) {
    return strName.empty() || strName.front() == '.';
}

std::string ParentOf(const std::string& strPath) {
    const std::size_t uSlash = strPath.find_last_of('/');
    return uSlash == 0 || uSlash == std::string::npos ? "/" : strPath.substr(0, uSlash);
}

std::string LastOf(const std::string& strPath) {
    return strPath.substr(strPath.find_last_of('/') + 1);
}

bool IsFolder(const std::string& strPath) {
    struct stat stPath = {};
    return stat(strPath.c_str(), &stPath) == 0 && S_ISDIR(stPath.st_mode);
}

/// What a watched folder is to the service. One may be several things at once.
struct Role {
    bool bHoldsFiles = false;      ///< definition files
    bool bHoldsPackages = false;   ///< sub-folders of packages
    std::set<std::string> setNext; ///< names in it on the way to a definition folder

    bool Concerns(std::string_view strName) const {
        return (bHoldsFiles && strName.ends_with(".conf") && !IsHidden(strName)) ||
               (bHoldsPackages && !IsHidden(strName)) || setNext.contains(std::string(strName));
    }
};

bool IsNotThere(int iErrno) {
    return iErrno == ENOENT || iErrno == ENOTDIR || iErrno == ELOOP;
}

} // namespace

struct FolderWatch::Private {
    UniqueFd fd;
    std::map<int, Role> mapRoles; ///< by watch descriptor
    std::map<int, Role> mapNext;  ///< those of a renewal under way
    std::set<std::string> setTold;
    std::set<std::string> setFailing; ///< problems of a renewal under way
    std::vector<std::string> vecProblems;

    Role* Add(const std::string& strPath, std::uint32_t uFlags = 0);
    void AddParent(const std::string& strFolder);
    void AddPackages(const std::string& strFolder);
    void TellProblem(const std::string& strPath, int iErrno);
    bool CallsForScan(const inotify_event& event, std::string_view strName) const;
    bool CallForScan(const char* pBytes, std::size_t uSize) const;
};

/// @return what the folder is, to be completed; null when it cannot be watched, with errno telling why.
Role* FolderWatch::Private::Add(const std::string& strPath, std::uint32_t uFlags) {
    const int iWatch = inotify_add_watch(fd.Get(), strPath.c_str(), EVENTS | uFlags);
    if (iWatch < 0) {
        if (!IsNotThere(errno)) {
            TellProblem(strPath, errno);
        }
        return nullptr;
    }
    return &mapNext[iWatch];
}

void FolderWatch::Private::TellProblem(const std::string& strPath, int iErrno) {
    // ENOSPC says "No space left on device", which sends people to look at their disks.
    const std::string strReason =
        iErrno == ENOSPC ? std::string("the limit fs.inotify.max_user_watches is reached") : strerror(iErrno);
    const std::string strProblem = Escaped(strPath) + " cannot be watched: " + strReason;
    setFailing.insert(strProblem);
    if (setTold.insert(strProblem).second) {
        vecProblems.push_back(strProblem);
    }
}

/// Watches the nearest folder above that exists, for the name that leads on. That of a folder that is there is watched,
/// too: another may take its place, or a link be turned.
void FolderWatch::Private::AddParent(const std::string& strFolder) {
    for (int iTry = 0; iTry < APPEARED_MAX; ++iTry) {
        std::string strNext = strFolder;
        Role* pRole = nullptr;
        while (pRole == nullptr && strNext != "/") {
            pRole = Add(ParentOf(strNext));
            if (pRole == nullptr) {
                strNext = ParentOf(strNext);
            }
        }
        if (pRole == nullptr) {
            return;
        }
        pRole->setNext.insert(LastOf(strNext));
        if (strNext == strFolder || !IsFolder(strNext)) {
            return;
        }
    }
}

void FolderWatch::Private::AddPackages(const std::string& strFolder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(strFolder.c_str()), closedir);
    std::size_t uFolders = 0;
    while (const dirent* const pEntry = dir ? readdir(dir.get()) : nullptr) {
        const bool bMayBeFolder = pEntry->d_type == DT_DIR || pEntry->d_type == DT_UNKNOWN;
        if (IsHidden(pEntry->d_name) || !bMayBeFolder) {
            continue;
        }
        if (Role* const pRole = Add(strFolder + "/" + pEntry->d_name, IN_DONT_FOLLOW); pRole != nullptr) {
            pRole->bHoldsFiles = true;
            ++uFolders;
        }
        if (uFolders >= PackageLimits::FOLDERS_MAX) {
            return; // those that a scan refuses may be among them: a watch too many does no harm
        }
    }
}

/// An event without a name is about the watched folder itself.
bool FolderWatch::Private::CallsForScan(const inotify_event& event, std::string_view strName) const {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        return true;
    }
    const auto itRole = mapRoles.find(event.wd);
    return itRole != mapRoles.end() && (strName.empty() || itRole->second.Concerns(strName));
}

bool FolderWatch::Private::CallForScan(const char* pBytes, std::size_t uSize) const {
    for (std::size_t uAt = 0; uAt + sizeof(inotify_event) <= uSize;) {
        inotify_event event = {}; // copied: the bytes are aligned for no type of their own
        memcpy(&event, pBytes + uAt, offsetof(inotify_event, name));
        const char* const szName = pBytes + uAt + offsetof(inotify_event, name);
        if (CallsForScan(event, std::string_view(szName, strnlen(szName, event.len)))) {
            return true;
        }
        uAt += offsetof(inotify_event, name) + event.len;
    }
    return false;
}

FolderWatch::FolderWatch() : _p(std::make_unique<Private>()) {
    _p->fd = UniqueFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!_p->fd) {
        throw std::system_error(errno, std::generic_category(), "inotify_init1");
    }
}

FolderWatch::~FolderWatch() = default;

void FolderWatch::Renew() {
    // Watching a folder once more gives the watch that is there, so what is new and what is left over comes out by
    // itself, and nothing has to be known of what happened to the folders since.
    _p->mapNext.clear();
    _p->setFailing.clear();
    for (const char* const szFolder :
         {SZF_CRON_FOLDER_BUILT_IN, SZF_CRON_FOLDER_BUILT_IN_DYN, SZF_CRON_FOLDER_PKG, SZF_CRON_FOLDER_PKG_NONROOT}) {
        _p->AddParent(szFolder); // before the folder itself: one that comes in between is told by its parent
        if (Role* const pRole = _p->Add(szFolder); pRole != nullptr) {
            const bool bPackages = szFolder == SZF_CRON_FOLDER_PKG_NONROOT;
            (bPackages ? pRole->bHoldsPackages : pRole->bHoldsFiles) = true;
        }
    }
    _p->AddPackages(SZF_CRON_FOLDER_PKG_NONROOT); // after the watch on what holds them, for the same reason
    for (const auto& [iWatch, role] : _p->mapRoles) {
        if (!_p->mapNext.contains(iWatch)) {
            inotify_rm_watch(_p->fd.Get(), iWatch); // fails for what the kernel has dropped itself
        }
    }
    _p->mapRoles.swap(_p->mapNext);
    _p->setTold = _p->setFailing; // what is mended is told again when it fails again
}

int FolderWatch::Descriptor() const {
    return _p->fd.Get();
}

bool FolderWatch::Consume() {
    bool bScan = false;
    for (int iReading = 0; iReading < READINGS_MAX; ++iReading) {
        char aBytes[READ_SIZE];
        const ssize_t iSize = read(_p->fd.Get(), aBytes, sizeof(aBytes));
        if (iSize <= 0) {
            break;
        }
        bScan = bScan || _p->CallForScan(aBytes, static_cast<std::size_t>(iSize));
    }
    return bScan;
}

std::vector<std::string> FolderWatch::TakeProblems() {
    return std::exchange(_p->vecProblems, {});
}

} // namespace VUKO::VUKOCrond::Service
