#include "service/definitions/definitionfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/vukojson.h"
#include "service/definitions/jsonfault.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// How often a file that is changed while it is read is read again. Whoever writes it says so when it is done.
constexpr int READINGS_MAX = 3;

std::string ReadingFailure(int iErrno) {
    return iErrno == EFBIG ? "is too large" : std::string("cannot be read: ") + strerror(iErrno);
}

/// Reads what is held. A file that is held is there, so only the way to it can be missing.
void ReadHeld(int iHold, DefinitionFile& file) {
    errno = 0;
    const std::string strHold = "/proc/self/fd/" + std::to_string(iHold);
    if (JSON::fromFile(file.jsDocument, strHold)) {
        return;
    }
    if (errno == ENOENT) {
        file.strReason = "cannot be read: /proc is not mounted";
    } else {
        file.strReason = errno == EBADMSG ? "is not JSON: " + WhyFileIsNotJson(strHold) : ReadingFailure(errno);
    }
}

bool IsUnchanged(const struct stat& stBefore, const struct stat& stAfter) {
    return stBefore.st_size == stAfter.st_size && stBefore.st_ctim.tv_sec == stAfter.st_ctim.tv_sec &&
           stBefore.st_ctim.tv_nsec == stAfter.st_ctim.tv_nsec;
}

} // namespace

std::uint64_t StateOf(const struct stat& stEntry) {
    std::uint64_t uState = 14695981039346656037ULL; // FNV-1a, a word at a time
    for (const auto uPart :
         {static_cast<std::uint64_t>(stEntry.st_dev), static_cast<std::uint64_t>(stEntry.st_ino),
          static_cast<std::uint64_t>(stEntry.st_mode), static_cast<std::uint64_t>(stEntry.st_uid),
          static_cast<std::uint64_t>(stEntry.st_size), static_cast<std::uint64_t>(stEntry.st_ctim.tv_sec),
          static_cast<std::uint64_t>(stEntry.st_ctim.tv_nsec)}) {
        uState = (uState ^ uPart) * 1099511628211ULL;
    }
    return uState;
}

bool IsTrustedOwner(uid_t uid) {
    return uid == 0 || uid == geteuid();
}

std::string WhyUntrusted(const struct stat& stEntry, PackageOwner uidPackage) {
    if ((stEntry.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "is writable by group or others";
    }
    if (!IsTrustedOwner(stEntry.st_uid) && stEntry.st_uid != uidPackage) {
        return "belongs to uid " + std::to_string(stEntry.st_uid) + ", which may not define jobs here";
    }
    return std::string();
}

bool IsDefinitionFileName(const std::string& strName) {
    constexpr std::string_view strSuffix = ".conf";
    return strName.size() > strSuffix.size() && strName.ends_with(strSuffix) && strName.front() != '.';
}

std::string WhyNoDefinitionFile(const struct stat& stFile, PackageOwner uidPackage) {
    if (S_ISLNK(stFile.st_mode)) {
        return "is a symbolic link";
    }
    if (!S_ISREG(stFile.st_mode)) {
        return "is not a regular file";
    }
    if (stFile.st_nlink > 1) {
        return "has " + std::to_string(stFile.st_nlink) + " hard links";
    }
    if (stFile.st_size > DEFINITION_FILE_SIZE_MAX) {
        return "is too large: " + std::to_string(stFile.st_size) + " bytes, at most " +
               std::to_string(DEFINITION_FILE_SIZE_MAX);
    }
    return WhyUntrusted(stFile, uidPackage);
}

namespace {

/// What is replaced or removed while it is held counts as gone.
DefinitionFile ReadEntry(int iFolder, const std::string& strName, PackageOwner uidPackage) {
    DefinitionFile file;
    // O_PATH only takes hold of the entry: nothing is opened, so nothing can block or be set off, and a link is held
    // itself. The reading then goes through that hold and not by the name once more.
    const UniqueFd fd(openat(iFolder, strName.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat stFile = {};
    if (!fd || fstat(fd.Get(), &stFile) != 0) {
        file.bGone = errno == ENOENT;
        file.strReason = ReadingFailure(errno);
        return file;
    }
    for (int iReading = 0; iReading < READINGS_MAX; ++iReading) {
        file.bGone = stFile.st_nlink == 0;
        file.uState = StateOf(stFile);
        file.uBytes = static_cast<std::size_t>(stFile.st_size);
        file.strReason = WhyNoDefinitionFile(stFile, uidPackage);
        if (!file.strReason.empty()) {
            return file;
        }
        ReadHeld(fd.Get(), file);
        const struct stat stBefore = stFile;
        if (fstat(fd.Get(), &stFile) == 0 && IsUnchanged(stBefore, stFile)) {
            return file;
        }
    }
    file.strReason = "is changed again and again while it is read";
    return file;
}

} // namespace

DefinitionFile ReadDefinitionFile(int iFolder, const std::string& strName, PackageOwner uidPackage) {
    DefinitionFile file = ReadEntry(iFolder, strName, uidPackage);
    for (int iReading = 1; file.bGone && iReading < READINGS_MAX; ++iReading) {
        file = ReadEntry(iFolder, strName, uidPackage); // another one may have its name by now
    }
    return file;
}

} // namespace VUKO::VUKOCrond::Service
