#include "service/role/rolefile.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "service/logtext.h"
#include "service/replacefile.h"
#include "service/role/rolehistory.h"
#include "service/role/rolestatement.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::size_t FILE_BYTES_MAX = 256;
constexpr mode_t ROLE_FILE_MODE = 0644;
constexpr std::int64_t USEC_PER_SEC = 1000000;
constexpr std::int64_t ALWAYS = std::numeric_limits<std::int64_t>::min();
/// A file system's clock moves in steps: two changes within one of them may leave the same stamps.
constexpr std::int64_t STAMP_STEP_USEC = 20000;
/// The file is replaced by others, so its folder is what is watched.
constexpr std::uint32_t FOLDER_EVENTS =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
/// The folder's name leads elsewhere from now on.
constexpr std::uint32_t FOLDER_GONE = IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF;

std::int64_t ToUsec(const timespec& ts) {
    return static_cast<std::int64_t>(ts.tv_sec) * USEC_PER_SEC + ts.tv_nsec / 1000;
}

std::int64_t RealTimeUsec() {
    timespec tsNow = {};
    clock_gettime(CLOCK_REALTIME, &tsNow);
    return ToUsec(tsNow);
}

/// What tells one state of a file from another without reading it. All zero for a file that is not there.
struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t iSize = 0;
    std::int64_t iChangedNsec = 0;
    std::int64_t iModifiedNsec = 0;

    bool operator==(const FileStamp&) const = default;
};

std::int64_t ToNsec(const timespec& ts) {
    return static_cast<std::int64_t>(ts.tv_sec) * 1000 * USEC_PER_SEC + ts.tv_nsec;
}

FileStamp StampOf(const struct stat& stFile) {
    return {stFile.st_dev, stFile.st_ino, stFile.st_size, ToNsec(stFile.st_ctim), ToNsec(stFile.st_mtim)};
}

FileStamp StampOf(const std::string& strPath) {
    struct stat stFile = {};
    return lstat(strPath.c_str(), &stFile) == 0 ? StampOf(stFile) : FileStamp();
}

/// Why a file that is there is not to be trusted; empty when it is.
std::string WhyNotTrusted(const struct stat& stFile) {
    if (!S_ISREG(stFile.st_mode)) {
        return "is not a regular file";
    }
    if (stFile.st_uid != 0 && stFile.st_uid != geteuid()) {
        return "belongs to uid " + std::to_string(stFile.st_uid);
    }
    if ((stFile.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "is writable by group or others";
    }
    return stFile.st_size > static_cast<off_t>(FILE_BYTES_MAX) ? "is too large" : std::string();
}

} // namespace

struct RoleFile::Private {
    explicit Private(std::string strFile, Clock fnClock)
        : strPath(std::move(strFile)), clock(std::move(fnClock)), watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (!watch) {
            throw std::system_error(errno, std::generic_category(), "inotify_init1");
        }
    }

    int WatchFolder();
    bool DrainWatch();
    void Refresh();
    void Read();
    std::string ReadTrusted(int iFd, struct stat& stFile, std::string& strText);
    void Miss();
    void Refuse(const std::string& strReason);
    void Accept(const RoleStatement& statement, const struct stat& stFile);

    std::string strPath;
    Clock clock;
    UniqueFd watch;
    int iWatched = -1;
    bool bLookAgain = true;
    FileStamp stamp; ///< of the file as it was read
    RoleHistory history;
    Role eTold = Role::Passive;
    std::string strProblem;
    std::optional<FileStamp> stampOfProblem; ///< of the file that was told of last, if it still is a problem
};

/// @return 0, also for a folder that is not there yet; else the errno value of what keeps it from being watched.
int RoleFile::Private::WatchFolder() {
    if (iWatched >= 0) {
        return 0;
    }
    const std::filesystem::path path(strPath);
    const std::string strFolder = path.has_parent_path() ? path.parent_path().string() : ".";
    iWatched = inotify_add_watch(watch.Get(), strFolder.c_str(), FOLDER_EVENTS);
    if (iWatched < 0) {
        return errno == ENOENT || errno == ENOTDIR ? 0 : errno;
    }
    bLookAgain = true; // for what happened while nobody watched
    return 0;
}

/// @return whether the file may have changed.
bool RoleFile::Private::DrainWatch() {
    const std::string strName = std::filesystem::path(strPath).filename();
    alignas(inotify_event) std::array<char, 4096> aBuffer;
    bool bChanged = false;
    for (;;) {
        const ssize_t iBytes = read(watch.Get(), aBuffer.data(), aBuffer.size());
        if (iBytes <= 0) {
            return bChanged;
        }
        for (ssize_t iAt = 0; iAt < iBytes;) {
            inotify_event event = {};
            std::memcpy(&event, aBuffer.data() + iAt, sizeof(event));
            const char* szName = event.len > 0 ? aBuffer.data() + iAt + sizeof(event) : "";
            // One without a name is about the folder itself, or about events that were lost.
            bChanged = bChanged || event.len == 0 || strName == szName;
            if (event.wd == iWatched && (event.mask & FOLDER_GONE) != 0) {
                inotify_rm_watch(watch.Get(), iWatched);
                iWatched = -1;
            }
            iAt += static_cast<ssize_t>(sizeof(event) + event.len);
        }
    }
}

/// Looks at the file as cheaply as can be, and reads it when it is another one.
void RoleFile::Private::Refresh() {
    WatchFolder(); // where that fails, looking at each call does
    if (bLookAgain || StampOf(strPath) != stamp) {
        bLookAgain = false;
        Read();
    }
}

void RoleFile::Private::Read() {
    const UniqueFd fd(open(strPath.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat stFile = {};
    if (!fd) {
        const int iErrno = errno;
        stamp = StampOf(strPath);
        if (iErrno == ENOENT) {
            Miss();
        } else {
            Refuse(iErrno == ELOOP ? "is a symbolic link" : std::string("cannot be opened: ") + strerror(iErrno));
        }
        return;
    }
    std::string strText;
    const std::string strReason = ReadTrusted(fd.Get(), stFile, strText);
    stamp = StampOf(stFile);
    bLookAgain = clock() - ToUsec(stFile.st_ctim) < STAMP_STEP_USEC;
    const std::optional<RoleStatement> statement = strReason.empty() ? ParseRole(strText) : std::nullopt;
    if (statement) {
        Accept(*statement, stFile);
    } else {
        Refuse(strReason.empty() ? "says " + Quoted(strText.substr(0, strText.find('\n'))) + ", which is no role"
                                 : strReason);
    }
}

/// @return why not; empty when the text is there.
std::string RoleFile::Private::ReadTrusted(int iFd, struct stat& stFile, std::string& strText) {
    if (fstat(iFd, &stFile) != 0) {
        return std::string("cannot be read: ") + strerror(errno);
    }
    std::string strReason = WhyNotTrusted(stFile);
    if (!strReason.empty()) {
        return strReason;
    }
    std::array<char, FILE_BYTES_MAX + 1> aBuffer;
    const ssize_t iBytes = pread(iFd, aBuffer.data(), aBuffer.size(), 0);
    if (iBytes < 0) {
        return std::string("cannot be read: ") + strerror(errno);
    }
    if (iBytes > static_cast<ssize_t>(FILE_BYTES_MAX)) {
        return "is too large";
    }
    strText.assign(aBuffer.data(), static_cast<std::size_t>(iBytes));
    return std::string();
}

void RoleFile::Private::Miss() {
    strProblem.clear();
    stampOfProblem.reset();
    history.Change(Role::Active, history.IsEmpty() ? ALWAYS : clock());
}

void RoleFile::Private::Refuse(const std::string& strReason) {
    std::string strLine = "role file " + Escaped(strPath) + " " + strReason;
    if (history.IsEmpty()) {
        history.Change(Role::Passive, ALWAYS);
        strLine += "; passive until it says a role";
    } else {
        strLine += "; the last good role holds";
    }
    if (std::exchange(stampOfProblem, stamp) != stamp) {
        strProblem = strLine;
    }
}

void RoleFile::Private::Accept(const RoleStatement& statement, const struct stat& stFile) {
    strProblem.clear();
    stampOfProblem.reset();
    const std::int64_t iNow = clock();
    const std::int64_t iFrom = statement.fromUsec.value_or(std::min(ToUsec(stFile.st_mtim), iNow));
    if (history.IsEmpty()) {
        history.Change(statement.eRole == Role::Active ? Role::Passive : Role::Active, ALWAYS);
    }
    // What the file before this one announced holds no longer from the moment that this one took its place.
    history.CutOff(std::min(ToUsec(stFile.st_ctim), iNow));
    history.Change(statement.eRole, iFrom);
}

RoleFile::RoleFile(std::string strPath) : RoleFile(std::move(strPath), RealTimeUsec) {}

RoleFile::RoleFile(std::string strPath, Clock clock)
    : _p(std::make_unique<Private>(std::move(strPath), std::move(clock))) {
    if (const int iErrno = _p->WatchFolder(); iErrno != 0) {
        throw std::system_error(iErrno, std::generic_category(), "cannot watch the folder of " + _p->strPath);
    }
    _p->Refresh();
    _p->eTold = _p->history.At(_p->clock());
}

RoleFile::~RoleFile() = default;

int RoleFile::Descriptor() const {
    return _p->watch.Get();
}

bool RoleFile::Consume() {
    _p->bLookAgain = _p->DrainWatch() || _p->bLookAgain;
    _p->Refresh();
    const Role eNow = _p->history.At(_p->clock()); // read after the file: it may hold from this very moment
    return std::exchange(_p->eTold, eNow) != eNow;
}

Role RoleFile::RoleAt(std::int64_t iInstantUsec) {
    _p->Refresh();
    return _p->history.At(iInstantUsec);
}

std::string RoleFile::Write(Role eRole) {
    return ReplaceFile(_p->strPath, std::string(ToText(eRole)) + "\n", ROLE_FILE_MODE, Durability::Synced);
}

std::string RoleFile::TakeProblem() {
    return std::exchange(_p->strProblem, std::string());
}

} // namespace VUKO::VUKOCrond::Service
