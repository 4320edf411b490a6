#include "ctl/place.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

#include "crond/cronjob.h"
#include "ctl/toolerror.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string FolderPath(const std::string& strKey) {
    const std::map<std::string, const char*> mapFolders = {{SZK_CRON_FOLDER_BUILT_IN, SZF_CRON_FOLDER_BUILT_IN},
                                                           {SZK_CRON_FOLDER_BUILT_IN_DYN, SZF_CRON_FOLDER_BUILT_IN_DYN},
                                                           {SZK_CRON_FOLDER_PKG, SZF_CRON_FOLDER_PKG},
                                                           {SZK_CRON_FOLDER_PKG_NONROOT, SZF_CRON_FOLDER_PKG_NONROOT}};
    const auto itFolder = mapFolders.find(strKey);
    if (itFolder == mapFolders.end()) {
        throw ToolError(EXIT_WRONG, "there is no folder " + Service::Quoted(strKey));
    }
    return itFolder->second;
}

std::string InWords(uid_t uid) {
    const passwd* const pAccount = getpwuid(uid);
    return pAccount != nullptr ? std::string("account ") + pAccount->pw_name : "uid " + std::to_string(uid);
}

} // namespace

bool Place::IsOfPackageAccount() const {
    return strFolder == SZK_CRON_FOLDER_PKG_NONROOT;
}

std::string Place::Path() const {
    return FolderPath(strFolder) + (strPackage.empty() ? std::string() : "/" + strPackage);
}

Place PlaceOf(const Service::JobId& id) {
    return {id.strFolder, id.strPackage};
}

uid_t OwnerOf(const Place& place) {
    if (const std::string strReason = Service::WhyBadName(place.strPackage); !strReason.empty()) {
        throw ToolError(EXIT_WRONG, "the package's name " + strReason);
    }
    struct stat stFolder = {};
    // A link is no package's folder for the service, and would lead elsewhere.
    if (lstat(place.Path().c_str(), &stFolder) != 0) {
        throw ToolError(errno == EACCES ? EXIT_DENIED : EXIT_WRONG,
                        "the package has no folder " + place.Path() + ": " + strerror(errno) +
                            " (root makes it: install -d -m 755 -o ACCOUNT " + place.Path() + ")");
    }
    if (!S_ISDIR(stFolder.st_mode)) {
        throw ToolError(EXIT_WRONG, place.Path() + " is no folder, so the service reads nothing there");
    }
    if ((stFolder.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw ToolError(EXIT_WRONG, place.Path() +
                                        " is writable by group or others, so the service reads nothing there (chmod "
                                        "go-w " +
                                        place.Path() + ")");
    }
    return stFolder.st_uid;
}

std::vector<std::string> OwnPackages() {
    std::vector<std::string> vecPackages;
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(SZF_CRON_FOLDER_PKG_NONROOT), closedir);
    while (const dirent* const pEntry = dir && geteuid() != 0 ? readdir(dir.get()) : nullptr) {
        struct stat stEntry = {};
        if (pEntry->d_name[0] != '.' && fstatat(dirfd(dir.get()), pEntry->d_name, &stEntry, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(stEntry.st_mode) && stEntry.st_uid == geteuid()) {
            vecPackages.emplace_back(pEntry->d_name);
        }
    }
    std::sort(vecPackages.begin(), vecPackages.end());
    return vecPackages;
}

bool MayChangeSystem() {
    struct stat stFolder = {};
    return geteuid() == 0 || (stat(SZF_CRON_FOLDER_BUILT_IN_DYN, &stFolder) == 0 && stFolder.st_uid == geteuid());
}

Place PlaceForNew(const std::string& strPackage) {
    if (!strPackage.empty()) {
        return {SZK_CRON_FOLDER_PKG_NONROOT, strPackage};
    }
    if (MayChangeSystem()) {
        return {SZK_CRON_FOLDER_BUILT_IN_DYN, ""};
    }
    const std::vector<std::string> vecOwn = OwnPackages();
    if (vecOwn.size() > 1) {
        throw ToolError(EXIT_BAD_USAGE, "this account owns the packages " + vecOwn[0] + ", " + vecOwn[1] +
                                            (vecOwn.size() > 2 ? ", ..." : "") + ": say which by --package");
    }
    if (vecOwn.empty()) {
        throw ToolError(EXIT_DENIED, std::string("only root may add a job of the system (try sudo), and this account "
                                                 "owns no package's folder in ") +
                                         SZF_CRON_FOLDER_PKG_NONROOT);
    }
    return {SZK_CRON_FOLDER_PKG_NONROOT, vecOwn.front()};
}

void RequireWritable(const Place& place, const std::string& strWhat) {
    if (place.strFolder == SZK_CRON_FOLDER_BUILT_IN) {
        throw ToolError(EXIT_WRONG, strWhat +
                                        " comes with the system and is not changed by vukocronctl. Root may edit " +
                                        place.Path() +
                                        " by hand, for example with \"enabled\": false, until the system is updated; "
                                        "or add a job of another name");
    }
    if (!place.IsOfPackageAccount()) {
        if (!MayChangeSystem()) {
            throw ToolError(EXIT_DENIED, strWhat + " belongs to the system: only root may change it (try sudo)");
        }
        return;
    }
    const uid_t uidOwner = OwnerOf(place);
    if (geteuid() != 0 && geteuid() != uidOwner) {
        throw ToolError(EXIT_DENIED, strWhat + " belongs to a package: only root and " + InWords(uidOwner) +
                                         ", which owns " + place.Path() + ", may change it");
    }
}

Service::DefinitionOrigin OriginOf(const Place& place) {
    Service::DefinitionOrigin origin;
    origin.strFolder = place.strFolder;
    origin.strPackage = place.strPackage;
    origin.bOfPackageAccount = place.IsOfPackageAccount();
    if (origin.bOfPackageAccount) {
        const uid_t uidOwner = OwnerOf(place);
        origin.uidPackage = uidOwner != 0 ? std::optional<uid_t>(uidOwner) : std::nullopt;
    }
    return origin;
}

std::string AccountName(uid_t uid) {
    const passwd* const pAccount = getpwuid(uid);
    if (pAccount == nullptr) {
        throw ToolError(EXIT_WRONG, "uid " + std::to_string(uid) + " has no account");
    }
    return pAccount->pw_name;
}

} // namespace VUKO::VUKOCrond::Ctl
