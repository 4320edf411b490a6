#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ctl/review.h"
#include "ctl/sourcetext.h"

namespace VUKO::VUKOCrond::Ctl {

/// A definition file and what there is to say about it and the definitions in it.
struct CheckedFile {
    std::string strFile;
    SourceText source{std::string()};
    Review review = {};
    bool bDenied = false; ///< one may not read it
};

/// Looks at definition files. What the service has against a file itself (who may write it, its name) is told of files
/// that lie where the service reads: there it is refused, elsewhere it is a draft.
class FileChecker {
public:
    /// Looks at a file ("-": standard input), or at each file in a folder that the service would read there.
    void Check(const std::string& strPath);
    std::vector<CheckedFile> Take() { return std::move(_vecFiles); }

private:
    struct Folder;

    static Folder FolderOf(const std::string& strFile);
    void CheckFolder(const std::string& strFolder);
    void CheckFile(const std::string& strFile);
    void ForgetNamesOf(const std::string& strPath);
    static Review LookAtFile(const std::string& strFile, const Folder& folder);
    /// @param bIsTaken  the service has nothing against the file itself.
    void LookAtDocument(CheckedFile& file, const Folder& folder, const Json::Value& jsDocument, bool bIsTaken);
    void LookAtName(Review& review, const CheckedFile& file, const Folder& folder,
                    const Json::Value& jsDefinition) const;

    std::vector<CheckedFile> _vecFiles;
    /// Folder and name of each good definition that was met, and its file, as it was named and its path.
    std::map<std::pair<std::string, std::string>, std::pair<std::string, std::string>> _mapTaken;
};

} // namespace VUKO::VUKOCrond::Ctl
