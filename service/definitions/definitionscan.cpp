#include "service/definitions/definitionscan.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "service/definitions/definitionfile.h"
#include "service/definitions/definitionpolicy.h"
#include "service/definitions/definitionreason.h"
#include "service/logtext.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// One file must not keep the service from its minutes, nor its refusals fill the system log.
constexpr Json::ArrayIndex DEFINITIONS_IN_FILE_MAX = 1000;

constexpr int OPEN_FOLDER = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

struct DefinitionFolder {
    const char* szKey;
    const char* szPath;
    bool bOfPackageAccounts;
};

/// Read when it is asked for: the constants may have been pointed elsewhere.
std::array<DefinitionFolder, 4> DefinitionFolders() {
    return {{{SZK_CRON_FOLDER_BUILT_IN, SZF_CRON_FOLDER_BUILT_IN, false},
             {SZK_CRON_FOLDER_BUILT_IN_DYN, SZF_CRON_FOLDER_BUILT_IN_DYN, false},
             {SZK_CRON_FOLDER_PKG, SZF_CRON_FOLDER_PKG, false},
             {SZK_CRON_FOLDER_PKG_NONROOT, SZF_CRON_FOLDER_PKG_NONROOT, true}}};
}

bool IsDefinitionName(const std::string& strName) {
    constexpr std::string_view strSuffix = ".conf";
    return strName.size() > strSuffix.size() && strName.ends_with(strSuffix);
}

/// Collects what one scan finds. The functions that walk the folders share it.
class Scanner {
public:
    void ScanFolder(const DefinitionFolder& folder);
    DefinitionScan Take() { return std::move(_scan); }

private:
    /// A folder held open while its entries are looked at.
    struct OpenFolder {
        std::string strPath;
        UniqueFd fd;
        DefinitionOrigin origin;
    };

    void ScanPackageFolder(const OpenFolder& parent, const std::string& strName);
    void RefuseNoFolder(const OpenFolder& parent, const std::string& strName, int iErrno);
    void ScanFiles(const OpenFolder& folder);
    void TakeDocument(const OpenFolder& folder, const std::string& strFile, const Json::Value& jsDocument);
    void TakeDefinition(const OpenFolder& folder, const std::string& strFile, const std::string& strWhere,
                        const Json::Value& jsDefinition);
    std::vector<std::string> NamesIn(const OpenFolder& folder);
    void Refuse(const std::string& strWhere, const std::string& strReason) {
        _scan.vecRefusals.push_back(strWhere + ": " + strReason);
    }

    DefinitionScan _scan;
};

void Scanner::ScanFolder(const DefinitionFolder& folder) {
    OpenFolder open{folder.szPath, UniqueFd(::open(folder.szPath, OPEN_FOLDER)), {}};
    open.origin.strFolder = folder.szKey;
    if (!open.fd) {
        if (errno != ENOENT) {
            Refuse(Escaped(open.strPath), std::string("cannot be opened: ") + strerror(errno));
        }
        return;
    }
    if (!folder.bOfPackageAccounts) {
        ScanFiles(open);
        return;
    }
    open.origin.bOfPackageAccount = true;
    for (const std::string& strName : NamesIn(open)) {
        ScanPackageFolder(open, strName);
    }
}

void Scanner::ScanPackageFolder(const OpenFolder& parent, const std::string& strName) {
    OpenFolder open{parent.strPath + "/" + strName,
                    UniqueFd(openat(parent.fd.Get(), strName.c_str(), OPEN_FOLDER | O_NOFOLLOW)), parent.origin};
    struct stat stFolder = {};
    if (!open.fd || fstat(open.fd.Get(), &stFolder) != 0) {
        RefuseNoFolder(parent, strName, errno);
        return;
    }
    const std::string strReason = WhyUntrusted(stFolder, stFolder.st_uid); // any account may own a package
    if (!strReason.empty()) {
        Refuse(Escaped(open.strPath), strReason);
        return;
    }
    open.origin.strPackage = strName;
    if (!IsTrustedOwner(stFolder.st_uid)) {
        open.origin.uidPackage = stFolder.st_uid;
    }
    ScanFiles(open);
}

/// A file that does not look like a definition, and an entry that has just gone, are nobody's mistake.
void Scanner::RefuseNoFolder(const OpenFolder& parent, const std::string& strName, int iErrno) {
    const std::string strPath = Escaped(parent.strPath + "/" + strName);
    struct stat stEntry = {};
    if (fstatat(parent.fd.Get(), strName.c_str(), &stEntry, AT_SYMLINK_NOFOLLOW) != 0) {
        return;
    }
    if (S_ISLNK(stEntry.st_mode)) {
        Refuse(strPath, "is a symbolic link");
    } else if (S_ISDIR(stEntry.st_mode)) {
        Refuse(strPath, std::string("cannot be opened: ") + strerror(iErrno));
    } else if (IsDefinitionName(strName)) {
        Refuse(strPath, "lies in no package's folder");
    }
}

void Scanner::ScanFiles(const OpenFolder& folder) {
    for (const std::string& strName : NamesIn(folder)) {
        if (!IsDefinitionName(strName)) {
            continue;
        }
        const std::string strFile = folder.strPath + "/" + strName;
        const DefinitionFile file = ReadDefinitionFile(folder.fd.Get(), strName, folder.origin.uidPackage);
        if (file.bGone) {
            continue;
        }
        if (!file.strReason.empty()) {
            Refuse(Escaped(strFile), file.strReason);
            continue;
        }
        TakeDocument(folder, strFile, file.jsDocument);
    }
}

void Scanner::TakeDocument(const OpenFolder& folder, const std::string& strFile, const Json::Value& jsDocument) {
    if (jsDocument.isObject()) {
        TakeDefinition(folder, strFile, Escaped(strFile), jsDocument);
        return;
    }
    if (!jsDocument.isArray()) {
        Refuse(Escaped(strFile), std::string("expected an object or an array of objects, found ") + KindOf(jsDocument));
        return;
    }
    if (jsDocument.size() > DEFINITIONS_IN_FILE_MAX) {
        Refuse(Escaped(strFile), "holds " + std::to_string(jsDocument.size()) + " definitions, at most " +
                                     std::to_string(DEFINITIONS_IN_FILE_MAX) + " are taken");
        return;
    }
    for (Json::ArrayIndex i = 0; i < jsDocument.size(); ++i) {
        std::string strWhere = Escaped(strFile) + ": definition " + std::to_string(i + 1);
        if (jsDocument[i].isObject() && jsDocument[i]["name"].isString()) {
            strWhere += " " + Quoted(jsDocument[i]["name"].asString());
        }
        TakeDefinition(folder, strFile, strWhere, jsDocument[i]);
    }
}

void Scanner::TakeDefinition(const OpenFolder& folder, const std::string& strFile, const std::string& strWhere,
                             const Json::Value& jsDefinition) {
    std::string strReason = WhyInvalid(jsDefinition);
    if (strReason.empty()) {
        strReason = WhyRefused(jsDefinition, folder.origin);
    }
    if (!strReason.empty()) {
        Refuse(strWhere, strReason);
        return;
    }
    JobId id{folder.origin.strFolder, folder.origin.strPackage, jsDefinition["name"].asString()};
    _scan.vecDefinitions.push_back({std::move(id), strFile, strWhere, jsDefinition});
}

/// Sorted by their bytes, so that the outcome does not depend on the file system.
std::vector<std::string> Scanner::NamesIn(const OpenFolder& folder) {
    std::vector<std::string> vecNames;
    UniqueFd fdList(openat(folder.fd.Get(), ".", OPEN_FOLDER)); // fdopendir() keeps what it is given
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(fdList ? fdopendir(fdList.Get()) : nullptr, closedir);
    if (!dir) {
        Refuse(Escaped(folder.strPath), std::string("cannot be listed: ") + strerror(errno));
        return vecNames;
    }
    (void)fdList.Release();
    for (errno = 0; const dirent* const pEntry = readdir(dir.get()); errno = 0) {
        if (pEntry->d_name[0] != '.') {
            vecNames.emplace_back(pEntry->d_name);
        }
    }
    if (errno != 0) {
        Refuse(Escaped(folder.strPath), std::string("cannot be listed: ") + strerror(errno));
    }
    std::sort(vecNames.begin(), vecNames.end());
    return vecNames;
}

} // namespace

DefinitionScan ScanDefinitions() {
    Scanner scanner;
    for (const DefinitionFolder& folder : DefinitionFolders()) {
        scanner.ScanFolder(folder);
    }
    return scanner.Take();
}

} // namespace VUKO::VUKOCrond::Service
