#include "service/state/statefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

#include "service/logtext.h"
#include "service/state/statestore.h"

namespace VUKO::VUKOCrond::Service {

namespace {

namespace fs = std::filesystem;

/// What SQLite keeps beside a database.
constexpr std::array<const char*, 3> JOURNALS = {"-journal", "-wal", "-shm"};
/// For whoever wants to look at what happened; each may be as large as the state.
constexpr std::size_t SET_ASIDE_MAX = 3;

[[noreturn]] void Fail(const std::string& strPath, const char* szWhat, int iErrno) {
    throw StateError(Escaped(strPath) + ": cannot " + szWhat + ": " + strerror(iErrno));
}

void RemoveJournals(const std::string& strPath) {
    for (const char* const szJournal : JOURNALS) {
        const std::string strJournal = strPath + szJournal;
        if (unlink(strJournal.c_str()) != 0 && errno != ENOENT) {
            Fail(strJournal, "remove", errno);
        }
    }
}

/// An empty one says nothing: SQLite leaves it where a writer was killed between two transactions.
void MoveJournal(const std::string& strFrom, const std::string& strTo) {
    struct stat stFile = {};
    if (lstat(strFrom.c_str(), &stFile) != 0) {
        return;
    }
    if (S_ISREG(stFile.st_mode) && stFile.st_size == 0) {
        unlink(strFrom.c_str());
    } else {
        rename(strFrom.c_str(), strTo.c_str());
    }
}

std::string WhyNotTrusted(const struct stat& stFile) {
    if (S_ISLNK(stFile.st_mode)) {
        return "is a symbolic link";
    }
    if (!S_ISREG(stFile.st_mode)) {
        return "is not a regular file";
    }
    if ((stFile.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "is writable by group or others";
    }
    if (stFile.st_uid != 0 && stFile.st_uid != geteuid()) {
        return "belongs to uid " + std::to_string(stFile.st_uid);
    }
    if (stFile.st_nlink != 1) {
        return "has " + std::to_string(stFile.st_nlink) + " hard links";
    }
    return std::string();
}

/// When a file was set aside, and the how manieth it was in that second.
using Stamp = std::pair<std::int64_t, std::int64_t>;

bool TakeNumber(std::string_view& svText, std::int64_t& iNumber) {
    const auto [szEnd, eError] = std::from_chars(svText.data(), svText.data() + svText.size(), iNumber);
    if (eError != std::errc() || iNumber < 0) {
        return false;
    }
    svText.remove_prefix(static_cast<std::size_t>(szEnd - svText.data()));
    return true;
}

/// Reads EPOCH or EPOCH-N; nothing for any other text.
std::optional<Stamp> ReadStamp(std::string_view svText) {
    Stamp stamp = {0, 0};
    if (!TakeNumber(svText, stamp.first)) {
        return std::nullopt;
    }
    if (!svText.empty() && svText.front() == '-') {
        svText.remove_prefix(1);
        if (!TakeNumber(svText, stamp.second)) {
            return std::nullopt;
        }
    }
    return svText.empty() ? std::optional(stamp) : std::nullopt;
}

std::vector<std::pair<Stamp, std::string>> ListSetAside(const std::string& strPrefix) {
    const fs::path pathPrefix(strPrefix);
    const std::string strStart = pathPrefix.filename().string();
    std::vector<std::pair<Stamp, std::string>> vecFound;
    std::error_code error;
    fs::directory_iterator it(pathPrefix.parent_path(), error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        const std::string strName = it->path().filename().string();
        if (strName.starts_with(strStart)) {
            if (const auto stamp = ReadStamp(std::string_view(strName).substr(strStart.size()))) {
                vecFound.emplace_back(*stamp, it->path().string());
            }
        }
    }
    std::sort(vecFound.begin(), vecFound.end());
    return vecFound;
}

/// A folder that is not empty was somebody's mistake, and is his to remove.
void RemoveOldest(const std::string& strPrefix) {
    const auto vecFound = ListSetAside(strPrefix);
    for (std::size_t i = 0; i + SET_ASIDE_MAX < vecFound.size(); ++i) {
        const std::string& strPath = vecFound[i].second;
        std::remove(strPath.c_str());
        for (const char* const szJournal : JOURNALS) {
            unlink((strPath + szJournal).c_str());
        }
    }
}

void SyncFolderOf(const std::string& strPath) {
    const std::string strFolder = fs::path(strPath).parent_path().string();
    const UniqueFd fd(open(strFolder.empty() ? "." : strFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || fsync(fd.Get()) != 0) {
        Fail(strFolder, "sync", errno);
    }
}

} // namespace

bool IsThere(const std::string& strPath) {
    struct stat stFile = {};
    if (lstat(strPath.c_str(), &stFile) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        Fail(strPath, "look at", errno);
    }
    return false;
}

// Names are looked at and nothing is opened: SQLite's lock of a file goes when its process closes any descriptor of it.
std::string WhyNoStateFile(const std::string& strPath) {
    struct stat stFile = {};
    if (lstat(strPath.c_str(), &stFile) != 0) {
        return std::string("cannot be looked at: ") + strerror(errno);
    }
    std::string strWhy = WhyNotTrusted(stFile);
    for (const char* const szJournal : JOURNALS) {
        if (strWhy.empty() && lstat((strPath + szJournal).c_str(), &stFile) == 0) {
            strWhy = WhyNotTrusted(stFile);
            if (!strWhy.empty()) {
                strWhy = std::string("has a journal that ") + strWhy;
            }
        }
    }
    return strWhy;
}

std::string SetAside(const std::string& strPath) {
    const std::string strPrefix = strPath + ".damaged-";
    const std::string strStamp = strPrefix + std::to_string(time(nullptr));
    std::string strNew = strStamp;
    for (int i = 1; IsThere(strNew); ++i) {
        strNew = strStamp + "-" + std::to_string(i);
    }
    // The file goes first: were it left without its journal, it would seem whole where it is not.
    if (rename(strPath.c_str(), strNew.c_str()) != 0) {
        Fail(strPath, "set aside", errno);
    }
    for (const char* const szJournal : JOURNALS) {
        MoveJournal(strPath + szJournal, strNew + szJournal);
    }
    RemoveOldest(strPrefix);
    return strNew;
}

NewFile::NewFile(std::string strTarget) : _strTarget(std::move(strTarget)), _strPath(_strTarget + ".new") {
    constexpr mode_t MODE = 0600;
    if (unlink(_strPath.c_str()) != 0 && errno != ENOENT) {
        Fail(_strPath, "remove", errno);
    }
    RemoveJournals(_strPath);
    _fd = UniqueFd(open(_strPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, MODE));
    if (!_fd) {
        Fail(_strPath, "make", errno);
    }
    if (fchmod(_fd.Get(), MODE) != 0) {
        const int iErrno = errno;
        unlink(_strPath.c_str());
        Fail(_strPath, "set the mode of", iErrno);
    }
}

NewFile::~NewFile() {
    if (!_bPut) {
        unlink(_strPath.c_str());
    }
}

void NewFile::Put(bool bDurable) {
    if (bDurable && fsync(_fd.Get()) != 0) {
        Fail(_strPath, "sync", errno);
    }
    // A journal of the file that stood here would be taken for the new one's.
    RemoveJournals(_strTarget);
    if (rename(_strPath.c_str(), _strTarget.c_str()) != 0) {
        Fail(_strTarget, "replace", errno);
    }
    _bPut = true;
    if (bDurable) {
        SyncFolderOf(_strTarget);
    }
}

} // namespace VUKO::VUKOCrond::Service
