#include "service/trustedpath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "crond/cronjob.h"
#include "service/definitions/definitionfile.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// Names that may be taken: by what was moved aside before, or by somebody who guessed what comes.
constexpr int NAMES_MAX = 100;
/// How often something may come into the place between the look at it and the making of the folder.
constexpr int PUT_AGAIN_MAX = 10;
/// Passed through by the accounts whose programs lie in it, listed by nobody else.
constexpr mode_t STAGING_MODE = 0711;

/// @return why this is not what should stand there; empty when it is.
std::string WhyForeign(const struct stat& stEntry, mode_t eKind) {
    if (S_ISLNK(stEntry.st_mode)) {
        return "is a symbolic link";
    }
    if ((stEntry.st_mode & S_IFMT) != eKind) {
        return eKind == S_IFDIR ? "is not a folder" : "is not a regular file";
    }
    if (eKind == S_IFREG && stEntry.st_nlink > 1) {
        return "has " + std::to_string(stEntry.st_nlink) + " hard links";
    }
    if (!IsTrustedOwner(stEntry.st_uid)) {
        return "belongs to uid " + std::to_string(stEntry.st_uid);
    }
    return WhyUntrusted(stEntry, std::nullopt);
}

/// Never over something else, which might be of use to somebody: the new name has to be free.
/// @return the new name; empty, with errno telling why, when it stays where it is.
std::string MoveAside(const std::string& strPath) {
    const std::string strBase = strPath + ".foreign-" + std::to_string(time(nullptr)) + "-";
    for (int iName = 0; iName < NAMES_MAX; ++iName) {
        std::string strAside = strBase + std::to_string(iName);
        if (renameat2(AT_FDCWD, strPath.c_str(), AT_FDCWD, strAside.c_str(), RENAME_NOREPLACE) == 0) {
            return strAside;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return std::string();
}

/// What stands in a place after it has been looked at, and cleared where it was somebody else's.
enum class Standing { Good, Nothing, Foreign };

Standing LookAt(const std::string& strPath, mode_t eKind, std::vector<std::string>& vecProblems) {
    struct stat stEntry = {};
    if (lstat(strPath.c_str(), &stEntry) != 0) {
        return Standing::Nothing; // or nothing that anybody could get at
    }
    const std::string strReason = WhyForeign(stEntry, eKind);
    if (strReason.empty()) {
        return Standing::Good;
    }
    const std::string strAside = MoveAside(strPath);
    vecProblems.push_back(Escaped(strPath) + " " + strReason + ": " +
                          (strAside.empty() ? std::string("it cannot be moved aside: ") + strerror(errno)
                                            : "moved aside to " + Escaped(strAside)));
    return strAside.empty() ? Standing::Foreign : Standing::Nothing;
}

void SecureStagingFolder(const std::string& strFolder, std::vector<std::string>& vecProblems) {
    for (int iTry = 0; iTry < PUT_AGAIN_MAX; ++iTry) {
        if (LookAt(strFolder, S_IFDIR, vecProblems) != Standing::Nothing ||
            mkdir(strFolder.c_str(), STAGING_MODE) == 0) {
            return;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    vecProblems.push_back(Escaped(strFolder) + " cannot be made: " + strerror(errno));
}

} // namespace

std::vector<std::string> SecureLogStaging() {
    std::vector<std::string> vecProblems;
    LookAt(CronJob::gLogger._strMemLogPath, S_IFREG, vecProblems);
    SecureStagingFolder(SZF_TMP_BIN_FOLDER, vecProblems);
    return vecProblems;
}

} // namespace VUKO::VUKOCrond::Service
