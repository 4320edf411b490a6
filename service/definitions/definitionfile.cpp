#include "service/definitions/definitionfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/vukojson.h"
#include "service/definitions/jsonfault.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// More than any definition that somebody wrote by hand. Reading one must not keep the service from its minutes.
constexpr off_t FILE_SIZE_MAX = off_t{256} * 1024;

std::string ReadingFailure(int iErrno) {
    return iErrno == EFBIG ? "is too large" : std::string("cannot be read: ") + strerror(iErrno);
}

std::string WhyNoDefinitionFile(const struct stat& stFile, PackageOwner uidPackage) {
    if (S_ISLNK(stFile.st_mode)) {
        return "is a symbolic link";
    }
    if (!S_ISREG(stFile.st_mode)) {
        return "is not a regular file";
    }
    if (stFile.st_size > FILE_SIZE_MAX) {
        return "is too large: " + std::to_string(stFile.st_size) + " bytes, at most " + std::to_string(FILE_SIZE_MAX);
    }
    return WhyUntrusted(stFile, uidPackage);
}

} // namespace

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

DefinitionFile ReadDefinitionFile(int iFolder, const std::string& strName, PackageOwner uidPackage) {
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
    file.strReason = WhyNoDefinitionFile(stFile, uidPackage);
    if (!file.strReason.empty()) {
        return file;
    }
    errno = 0;
    const std::string strHold = "/proc/self/fd/" + std::to_string(fd.Get());
    if (!JSON::fromFile(file.jsDocument, strHold)) {
        file.strReason = errno == EBADMSG ? "is not JSON: " + WhyFileIsNotJson(strHold) : ReadingFailure(errno);
    }
    return file;
}

} // namespace VUKO::VUKOCrond::Service
