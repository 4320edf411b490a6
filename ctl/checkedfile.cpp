#include "ctl/checkedfile.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "crond/cronjob.h"
#include "ctl/document.h"
#include "ctl/text.h"
#include "service/definitions/definitionfile.h"
#include "service/definitions/definitionpolicy.h"
#include "service/definitions/definitionreason.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace fs = std::filesystem;

using Service::Quoted;

namespace {

fs::path Canonical(const fs::path& path) {
    std::error_code error;
    return fs::weakly_canonical(path.empty() ? fs::path(".") : path, error);
}

bool IsFolder(const std::string& strPath) {
    std::error_code error;
    return fs::is_directory(strPath, error);
}

void Warn(Review& review, const char* szCode, const std::string& strText) {
    review.vecWarnings.push_back({{szCode, strText, {}}});
}

/// The entries that the service reads, in its order; sub-folders where it reads these.
std::vector<std::string> EntriesOf(const std::string& strFolder, bool bFolders) {
    std::vector<std::string> vecPaths;
    std::error_code error;
    for (fs::directory_iterator it(strFolder, error), itEnd; !error && it != itEnd; it.increment(error)) {
        const std::string strName = it->path().filename().string();
        const bool bWanted =
            bFolders ? strName.front() != '.' && IsFolder(it->path().string()) : Service::IsDefinitionFileName(strName);
        if (bWanted) {
            vecPaths.push_back((fs::path(strFolder) / strName).string());
        }
    }
    std::sort(vecPaths.begin(), vecPaths.end());
    return vecPaths;
}

/// The stores, and whoever uses them, know a job's file by the job's name.
void LookAtFileName(Review& review, const CheckedFile& file, const Json::Value& jsDefinition) {
    const std::string strFileName = fs::path(file.strFile).filename().string();
    if (jsDefinition["name"].isString() && strFileName != jsDefinition["name"].asString() + ".conf") {
        review.vecWarnings.push_back({{"file-name",
                                       "the job is looked for in " + Quoted(jsDefinition["name"].asString() + ".conf") +
                                           " by whoever replaces or removes it",
                                       {"name"}}});
    }
}

} // namespace

/// What the place of a file means for it.
struct FileChecker::Folder {
    std::string strPath;     ///< canonical
    bool bOfService = false; ///< whether the service reads here
    Service::DefinitionOrigin origin = {};
    std::string strReason = {}; ///< why nothing here is taken

    /// The same for each name of one file, but for links to it.
    std::string PathOf(const std::string& strFile) const {
        return strPath + "/" + fs::path(strFile).filename().string();
    }
};

FileChecker::Folder FileChecker::FolderOf(const std::string& strFile) {
    const fs::path path = Canonical(fs::path(strFile).parent_path());
    Folder folder{path.string()};
    for (const auto& [szKey, szPath] : {std::pair(SZK_CRON_FOLDER_BUILT_IN, SZF_CRON_FOLDER_BUILT_IN),
                                        {SZK_CRON_FOLDER_BUILT_IN_DYN, SZF_CRON_FOLDER_BUILT_IN_DYN},
                                        {SZK_CRON_FOLDER_PKG, SZF_CRON_FOLDER_PKG}}) {
        if (path == Canonical(szPath)) {
            folder.bOfService = true;
            folder.origin.strFolder = szKey;
        }
    }
    const fs::path parent = Canonical(SZF_CRON_FOLDER_PKG_NONROOT);
    if (path == parent) {
        folder.bOfService = true;
        folder.strReason = "lies in no package's folder";
    } else if (path.parent_path() == parent) {
        struct stat stFolder = {};
        folder.bOfService = true;
        folder.origin.strFolder = SZK_CRON_FOLDER_PKG_NONROOT;
        folder.origin.strPackage = path.filename().string();
        folder.origin.bOfPackageAccount = true;
        if (stat(path.c_str(), &stFolder) == 0) {
            folder.strReason = Service::WhyUntrusted(stFolder, stFolder.st_uid);
            folder.strReason.insert(0, folder.strReason.empty() ? "" : "its folder ");
            if (stFolder.st_uid != 0) {
                folder.origin.uidPackage = stFolder.st_uid;
            }
        }
    }
    return folder;
}

void FileChecker::Check(const std::string& strPath) {
    if (strPath != "-" && IsFolder(strPath)) {
        CheckFolder(strPath);
    } else {
        CheckFile(strPath);
    }
}

void FileChecker::CheckFolder(const std::string& strFolder) {
    std::error_code error;
    (void)fs::directory_iterator(strFolder, error);
    if (error) {
        _vecFiles.push_back({strFolder});
        _vecFiles.back().review.vecErrors.push_back({"cannot be read: " + error.message()});
        _vecFiles.back().bDenied = error == std::errc::permission_denied;
        return;
    }
    const std::size_t uBefore = _vecFiles.size();
    if (Canonical(strFolder) == Canonical(SZF_CRON_FOLDER_PKG_NONROOT)) {
        for (const std::string& strPackage : EntriesOf(strFolder, true)) {
            CheckFolder(strPackage);
        }
    }
    for (const std::string& strFile : EntriesOf(strFolder, false)) {
        CheckFile(strFile);
    }
    if (_vecFiles.size() == uBefore) {
        _vecFiles.push_back({strFolder});
        Warn(_vecFiles.back().review, "no-definitions", "the folder holds no definition file NAME.conf");
    }
}

void FileChecker::CheckFile(const std::string& strFile) {
    Document document = ReadDocument(strFile);
    CheckedFile file{strFile, SourceText(std::move(document.strText))};
    const Folder folder = strFile == "-" ? Folder{"-"} : FolderOf(strFile);
    ForgetNamesOf(folder.PathOf(strFile));
    Review ofFile = LookAtFile(strFile, folder);
    if (document.strReason.empty()) {
        LookAtDocument(file, folder, document.jsValue, ofFile.vecWarnings.empty());
    } else {
        file.review.vecErrors.push_back(WhyNoDocument(document, file.source));
        file.bDenied = document.bDenied;
    }
    TakeOver(file.review, std::move(ofFile), std::string());
    _vecFiles.push_back(std::move(file));
}

/// What the service has against the file itself. That bears on none of the definitions in it.
Review FileChecker::LookAtFile(const std::string& strFile, const Folder& folder) {
    Review review;
    struct stat stFile = {};
    if (!folder.bOfService || lstat(strFile.c_str(), &stFile) != 0) {
        return review;
    }
    if (!Service::IsDefinitionFileName(fs::path(strFile).filename().string())) {
        Warn(review, "not-read", "the service does not read it: its name is not NAME.conf, or begins with a dot");
        return review;
    }
    std::string strReason = folder.strReason;
    if (strReason.empty()) {
        strReason = Service::WhyNoDefinitionFile(stFile, folder.origin.uidPackage);
    }
    if (!strReason.empty()) {
        Warn(review, "file-refused", "the service refuses the file: " + strReason);
    }
    return review;
}

void FileChecker::LookAtDocument(CheckedFile& file, const Folder& folder, const Json::Value& jsDocument,
                                 bool bIsTaken) {
    const bool bArray = jsDocument.isArray();
    if (!bArray && !jsDocument.isObject()) {
        file.review.vecErrors.push_back(
            {std::string("expected an object or an array of objects, found ") + Service::KindOf(jsDocument)});
        FindSpans(file.review, jsDocument, file.source);
        return;
    }
    const auto uSize = static_cast<off_t>(file.source.Text().size());
    if (uSize > Service::DEFINITION_FILE_SIZE_MAX) {
        file.review.vecErrors.push_back({"is too large: " + std::to_string(uSize) + " bytes, at most " +
                                         std::to_string(Service::DEFINITION_FILE_SIZE_MAX)});
    }
    if (bArray && jsDocument.size() > Service::DEFINITIONS_IN_FILE_MAX) {
        file.review.vecErrors.push_back({"holds " + std::to_string(jsDocument.size()) + " definitions, at most " +
                                         std::to_string(Service::DEFINITIONS_IN_FILE_MAX) + " are taken"});
    }
    if (bArray && jsDocument.empty()) {
        Warn(file.review, "no-definitions", "the file holds no definition");
    }
    const bool bCounts = bIsTaken && file.review.vecErrors.empty();
    const Json::ArrayIndex uCount = bArray ? jsDocument.size() : 1;
    for (Json::ArrayIndex i = 0; i < std::min<Json::ArrayIndex>(uCount, Service::DEFINITIONS_IN_FILE_MAX); ++i) {
        const Json::Value& jsDefinition = bArray ? jsDocument[i] : jsDocument;
        Review review = ReviewDefinition(jsDefinition, folder.origin);
        LookAtName(review, file, folder, jsDefinition);
        if (bCounts && review.vecErrors.empty()) { // what is refused takes nobody's name
            _mapTaken.emplace(std::pair(folder.strPath, jsDefinition["name"].asString()),
                              std::pair(file.strFile, folder.PathOf(file.strFile)));
        }
        if (!bArray && folder.bOfService && jsDefinition.isObject()) {
            LookAtFileName(review, file, jsDefinition);
        }
        FindSpans(review, jsDefinition, file.source);
        TakeOver(file.review, std::move(review), bArray ? Service::LabelOf(i, jsDefinition) + ": " : std::string());
    }
}

/// One who names a file twice has it looked at twice, and defines nothing twice.
void FileChecker::ForgetNamesOf(const std::string& strPath) {
    std::erase_if(_mapTaken, [&](const auto& taken) { return taken.second.second == strPath; });
}

/// What a name has to do with those of other definitions.
void FileChecker::LookAtName(Review& review, const CheckedFile& file, const Folder& folder,
                             const Json::Value& jsDefinition) const {
    if (!jsDefinition.isObject() || !jsDefinition["name"].isString()) {
        return;
    }
    const std::string strName = jsDefinition["name"].asString();
    const auto itTaken = _mapTaken.find(std::pair(folder.strPath, strName));
    if (itTaken != _mapTaken.end()) {
        const std::string& strFirst = itTaken->second.first;
        const std::string strOther = strFirst == file.strFile ? "before" : "in " + Readable(strFirst);
        review.vecWarnings.push_back(
            {{"repeated-name",
              Quoted(strName) + " is defined " + strOther + " already, and the first one holds",
              {"name"}}});
    }
}

} // namespace VUKO::VUKOCrond::Ctl
