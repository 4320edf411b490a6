#include "service/definitions/definitionscan.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>
#include <utility>

#include "crond/cronjob.h"
#include "service/definitions/definitionfile.h"
#include "service/definitions/definitionpolicy.h"
#include "service/definitions/definitionreason.h"
#include "service/logtext.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

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

/// What a definition looks like in one line, as the service keeps it.
class CompactWriter {
public:
    CompactWriter() {
        Json::StreamWriterBuilder builder;
        builder["commentStyle"] = "None";
        builder["indentation"] = "";
        builder["emitUTF8"] = true;
        _writer.reset(builder.newStreamWriter());
    }

    std::string Text(const Json::Value& jsValue) {
        _ss.str(std::string());
        _writer->write(jsValue, &_ss);
        return _ss.str();
    }

private:
    std::unique_ptr<Json::StreamWriter> _writer;
    std::ostringstream _ss;
};

/// What is left of a package's limits while its sub-folder is read.
class Budget {
public:
    /// @return what there would be too much of with this file; empty when there is room for it.
    std::string Take(std::size_t uBytes, std::size_t uDefinitions) {
        _uFiles += 1;
        _uDefinitions += uDefinitions;
        _uBytes += uBytes;
        if (_uFiles > PackageLimits::FILES_MAX) {
            return std::to_string(PackageLimits::FILES_MAX) + " definition files";
        }
        if (_uDefinitions > PackageLimits::DEFINITIONS_MAX) {
            return std::to_string(PackageLimits::DEFINITIONS_MAX) + " definitions";
        }
        return _uBytes > PackageLimits::BYTES_MAX ? std::to_string(PackageLimits::BYTES_MAX) + " bytes" : std::string();
    }

private:
    std::size_t _uFiles = 0;
    std::size_t _uDefinitions = 0;
    std::size_t _uBytes = 0;
};

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

    /// What a refusal is about.
    struct Place {
        std::string strFile;
        std::uint64_t uState = 0;
    };

    void ScanPackageFolders(const OpenFolder& parent);
    bool ScanPackageFolder(const OpenFolder& parent, const std::string& strName);
    void RefuseNoFolder(const OpenFolder& parent, const std::string& strName, int iErrno);
    void ScanFiles(const OpenFolder& folder);
    bool ScanFile(const OpenFolder& folder, const std::string& strName, Budget& budget);
    void TakeDocument(const OpenFolder& folder, const Place& place, Json::Value jsDocument);
    void TakeDefinition(const OpenFolder& folder, const Place& place, const std::string& strWhere,
                        Json::Value jsDefinition);
    std::vector<std::string> NamesIn(const OpenFolder& folder, bool (*pIsWanted)(const std::string&));

    void Refuse(const Place& place, const std::string& strWhere, const std::string& strReason) {
        _scan.vecRefusals.push_back({place.strFile, strWhere + ": " + strReason, place.uState});
    }
    void Refuse(const Place& place, const std::string& strReason) { Refuse(place, Escaped(place.strFile), strReason); }

    DefinitionScan _scan;
    CompactWriter _writer;
};

void Scanner::ScanFolder(const DefinitionFolder& folder) {
    OpenFolder open{folder.szPath, UniqueFd(::open(folder.szPath, OPEN_FOLDER)), {}};
    open.origin.strFolder = folder.szKey;
    open.origin.bOfPackageAccount = folder.bOfPackageAccounts;
    if (!open.fd) {
        if (errno != ENOENT) {
            Refuse({open.strPath}, std::string("cannot be opened: ") + strerror(errno));
        }
        return;
    }
    if (folder.bOfPackageAccounts) {
        ScanPackageFolders(open);
    } else {
        ScanFiles(open);
    }
}

void Scanner::ScanPackageFolders(const OpenFolder& parent) {
    std::size_t uFolders = 0;
    for (const std::string& strName : NamesIn(parent, [](const std::string&) { return true; })) {
        if (uFolders == PackageLimits::FOLDERS_MAX) {
            Refuse({parent.strPath}, "holds more than " + std::to_string(PackageLimits::FOLDERS_MAX) +
                                         " folders: " + Quoted(strName) + " and what follows by name is refused");
            return;
        }
        uFolders += ScanPackageFolder(parent, strName) ? 1 : 0;
    }
}

/// @return whether this is a folder, be it a good one or not.
bool Scanner::ScanPackageFolder(const OpenFolder& parent, const std::string& strName) {
    OpenFolder open{parent.strPath + "/" + strName,
                    UniqueFd(openat(parent.fd.Get(), strName.c_str(), OPEN_FOLDER | O_NOFOLLOW)), parent.origin};
    struct stat stFolder = {};
    if (!open.fd || fstat(open.fd.Get(), &stFolder) != 0) {
        RefuseNoFolder(parent, strName, errno);
        return false;
    }
    std::string strReason = WhyBadName(strName); // it stands in log lines and file names, too
    if (strReason.empty()) {
        strReason = WhyUntrusted(stFolder, stFolder.st_uid); // any account may own a package
    }
    if (!strReason.empty()) {
        Refuse({open.strPath, StateOf(stFolder)}, strReason);
        return true;
    }
    open.origin.strPackage = strName;
    if (!IsTrustedOwner(stFolder.st_uid)) {
        open.origin.uidPackage = stFolder.st_uid;
        open.origin.lookUp = LookUpFewBeside(stFolder.st_uid);
    }
    ScanFiles(open);
    return true;
}

/// A file that does not look like a definition, and an entry that has just gone, are nobody's mistake.
void Scanner::RefuseNoFolder(const OpenFolder& parent, const std::string& strName, int iErrno) {
    struct stat stEntry = {};
    if (fstatat(parent.fd.Get(), strName.c_str(), &stEntry, AT_SYMLINK_NOFOLLOW) != 0) {
        return;
    }
    const Place place{parent.strPath + "/" + strName, StateOf(stEntry)};
    if (S_ISLNK(stEntry.st_mode)) {
        Refuse(place, "is a symbolic link");
    } else if (S_ISDIR(stEntry.st_mode)) {
        Refuse(place, std::string("cannot be opened: ") + strerror(iErrno));
    } else if (IsDefinitionFileName(strName)) {
        Refuse(place, "lies in no package's folder");
    }
}

void Scanner::ScanFiles(const OpenFolder& folder) {
    Budget budget;
    for (const std::string& strName : NamesIn(folder, IsDefinitionFileName)) {
        if (!ScanFile(folder, strName, budget)) {
            return;
        }
    }
}

/// @return false when nothing more of this folder is to be read.
bool Scanner::ScanFile(const OpenFolder& folder, const std::string& strName, Budget& budget) {
    DefinitionFile file = ReadDefinitionFile(folder.fd.Get(), strName, folder.origin.uidPackage);
    if (file.bGone) {
        return true;
    }
    const Place place{folder.strPath + "/" + strName, file.uState};
    const std::size_t uDefinitions = file.strReason.empty() && file.jsDocument.isArray() ? file.jsDocument.size() : 1;
    const std::string strTooMuch =
        folder.origin.bOfPackageAccount ? budget.Take(file.uBytes, uDefinitions) : std::string();
    if (!strTooMuch.empty()) {
        Refuse({folder.strPath},
               "holds more than " + strTooMuch + ": " + Quoted(strName) + " and what follows by name is refused");
        return false;
    }
    if (file.strReason.empty()) {
        TakeDocument(folder, place, std::move(file.jsDocument));
    } else {
        Refuse(place, file.strReason);
    }
    return true;
}

void Scanner::TakeDocument(const OpenFolder& folder, const Place& place, Json::Value jsDocument) {
    const std::string strFile = Escaped(place.strFile);
    if (jsDocument.isObject()) {
        TakeDefinition(folder, place, strFile, std::move(jsDocument));
        return;
    }
    if (!jsDocument.isArray()) {
        Refuse(place, std::string("expected an object or an array of objects, found ") + KindOf(jsDocument));
        return;
    }
    if (jsDocument.size() > DEFINITIONS_IN_FILE_MAX) {
        Refuse(place, "holds " + std::to_string(jsDocument.size()) + " definitions, at most " +
                          std::to_string(DEFINITIONS_IN_FILE_MAX) + " are taken");
        return;
    }
    for (Json::ArrayIndex i = 0; i < jsDocument.size(); ++i) {
        TakeDefinition(folder, place, strFile + ": " + LabelOf(i, jsDocument[i]), jsDocument[i]);
    }
}

void Scanner::TakeDefinition(const OpenFolder& folder, const Place& place, const std::string& strWhere,
                             Json::Value jsDefinition) {
    std::string strReason = WhyInvalid(jsDefinition);
    if (strReason.empty()) {
        strReason = WhyRefused(jsDefinition, folder.origin);
    }
    if (!strReason.empty()) {
        Refuse(place, strWhere, strReason);
        return;
    }
    JobId id{folder.origin.strFolder, folder.origin.strPackage, jsDefinition["name"].asString()};
    std::string strText = _writer.Text(jsDefinition);
    _scan.vecDefinitions.push_back(
        {std::move(id), place.strFile, strWhere, std::move(jsDefinition), std::move(strText)});
}

/// Sorted by their bytes, so that the outcome does not depend on the file system.
std::vector<std::string> Scanner::NamesIn(const OpenFolder& folder, bool (*pIsWanted)(const std::string&)) {
    std::vector<std::string> vecNames;
    UniqueFd fdList(openat(folder.fd.Get(), ".", OPEN_FOLDER)); // fdopendir() keeps what it is given
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(fdList ? fdopendir(fdList.Get()) : nullptr, closedir);
    if (!dir) {
        Refuse({folder.strPath}, std::string("cannot be listed: ") + strerror(errno));
        return vecNames;
    }
    (void)fdList.Release();
    std::size_t uEntries = 0;
    for (errno = 0; const dirent* const pEntry = readdir(dir.get()); errno = 0) {
        if (folder.origin.uidPackage && ++uEntries > PackageLimits::ENTRIES_MAX) {
            Refuse({folder.strPath}, "holds more than " + std::to_string(PackageLimits::ENTRIES_MAX) + " entries");
            return {};
        }
        if (pEntry->d_name[0] != '.' && pIsWanted(pEntry->d_name)) {
            vecNames.emplace_back(pEntry->d_name);
        }
    }
    if (errno != 0) {
        Refuse({folder.strPath}, std::string("cannot be listed: ") + strerror(errno));
    }
    std::sort(vecNames.begin(), vecNames.end());
    // A name that is renamed over while the folder is listed may be given twice.
    vecNames.erase(std::unique(vecNames.begin(), vecNames.end()), vecNames.end());
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
