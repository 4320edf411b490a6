#include "ctl/filechanges.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "crond/configmanager.h"
#include "crond/cronjob.h"
#include "crond/pkgconfigmanager.h"
#include "ctl/actas.h"
#include "ctl/toolerror.h"
#include "service/definitions/definitionreason.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// Whose rights are enough: a package's own for what is its own. What is somebody else's there, nobody but root can put
/// another file in the place of, and hand its owner on.
uid_t WriterOf(const FileName& file, const FileContent& before) {
    if (!file.place.IsOfPackageAccount()) {
        return 0;
    }
    const uid_t uidFolder = OwnerOf(file.place);
    return before.IsThere() && before.uidOwner != uidFolder ? 0 : uidFolder;
}

/// Does something with the library's handle on the file, whichever of the two stores it is in. @return 0 or errno.
template <typename Act>
int WithStore(const FileName& file, const FileContent& before, const Act& act) {
    const ActAs account(WriterOf(file, before));
    bool bDone = false;
    if (file.place.IsOfPackageAccount()) {
        PkgConfigManager store(file.place.strPackage, file.strStem);
        errno = 0;
        bDone = act(store);
    } else {
        ConfigManager store(file.strStem, file.place.strFolder == SZK_CRON_FOLDER_PKG);
        errno = 0;
        bDone = act(store);
    }
    return bDone ? 0 : errno != 0 ? errno : EBADMSG;
}

/// What replaces a file takes its owner and mode over, which is no good where these are why it is refused.
int Write(const FileName& file, const FileContent& before, const std::optional<Json::Value>& after) {
    return WithStore(file, before, [&](auto& store) {
        const bool bCleared = (after && before.bIsSound) || store.Remove();
        return bCleared && (!after || store.Save(*after));
    });
}

ToolError Failure(const FileName& file, bool bRemoved, int iErrno) {
    std::string strHint;
    if (iErrno == EACCES || iErrno == EPERM) {
        strHint = geteuid() == 0 ? "" : " (try sudo)";
    } else if (iErrno == EINVAL || iErrno == EISDIR) {
        strHint = " (what stands there is no regular file: take it away)";
    }
    return ToolError(iErrno == EACCES || iErrno == EPERM ? EXIT_DENIED : EXIT_WRONG,
                     file.Path() + (bRemoved ? " cannot be removed: " : " cannot be written: ") + strerror(iErrno) +
                         strHint);
}

bool IsNamed(const Json::Value& jsDefinition, const std::string& strName) {
    return jsDefinition.isObject() && jsDefinition["name"] == strName;
}

/// The library takes a file as a whole or not at all.
void RequireValidOthers(const FileName& file, const Json::Value& jsDocument) {
    for (Json::ArrayIndex i = 0; jsDocument.isArray() && i < jsDocument.size(); ++i) {
        if (const std::string strReason = Service::WhyInvalid(jsDocument[i]); !strReason.empty()) {
            throw ToolError(EXIT_WRONG, file.Path() + ": definition " + std::to_string(i + 1) + ": " + strReason +
                                            ": repair that first, as the file is written as a whole");
        }
    }
}

} // namespace

FileChanges::Change& FileChanges::ChangeOf(const FileName& file) {
    const auto [itChange, bNew] = _mapChanges.try_emplace(file);
    if (bNew) {
        itChange->second.before = ReadContent(file);
        itChange->second.after = itChange->second.before.document;
    }
    return itChange->second;
}

void FileChanges::Replace(const Found& found, const Json::Value& jsDefinition) {
    Change& change = ChangeOf(found.file);
    Json::Value jsDocument = change.after.value_or(Json::Value());
    if (jsDocument.isArray() && !found.definition) {
        throw ToolError(EXIT_WRONG, found.file.Path() +
                                        " holds several definitions, which are refused: repair it first "
                                        "(vukocronctl edit " +
                                        ToText(found.id) + ")");
    }
    if (!jsDocument.isArray()) {
        change.after = jsDefinition;
        return;
    }
    for (Json::Value& jsOne : jsDocument) {
        if (IsNamed(jsOne, found.id.strName)) {
            jsOne = jsDefinition;
            break; // the first one counts
        }
    }
    RequireValidOthers(found.file, jsDocument);
    change.after = jsDocument;
}

void FileChanges::Remove(const Found& found) {
    Change& change = ChangeOf(found.file);
    Json::Value jsLeft(Json::arrayValue);
    for (const Json::Value& jsOne : change.after&& change.after->isArray() ? *change.after : Json::Value()) {
        if (!IsNamed(jsOne, found.id.strName)) {
            jsLeft.append(jsOne);
        }
    }
    if (jsLeft.empty() || !found.definition) {
        change.after.reset();
        return;
    }
    RequireValidOthers(found.file, jsLeft);
    change.after = jsLeft;
}

void FileChanges::Add(const FileName& file, const Json::Value& jsDefinition) {
    Change& change = ChangeOf(file);
    if (change.before.IsThere()) {
        throw ToolError(EXIT_WRONG, file.Path() +
                                        " is where this job would be stored, and holds something else: nothing "
                                        "is stored; choose another name");
    }
    change.after = jsDefinition;
}

void FileChanges::Rewrite(const FileName& file, const Json::Value& jsDocument) {
    ChangeOf(file).after = jsDocument;
}

void FileChanges::RequireUnchanged() const {
    for (const auto& [file, change] : _mapChanges) {
        if (!(ReadContent(file) == change.before)) {
            throw ToolError(EXIT_WRONG, file.Path() + " was changed by somebody else meanwhile: nothing is stored");
        }
    }
}

void FileChanges::Commit() {
    RequireUnchanged();
    const DefinedJobs former;
    std::vector<FileName> vecWritten;
    const auto fail = [&](const ToolError& error) {
        const std::string strLeft = TakeBack(vecWritten);
        throw ToolError(error.Status(),
                        error.what() + std::string(strLeft.empty() ? ". Nothing is changed" : ". " + strLeft));
    };
    for (const auto& [file, change] : _mapChanges) {
        vecWritten.push_back(file); // also one that fails: it may stand there and not be safe on the disk
        if (const int iErrno = Write(file, change.before, change.after); iErrno != 0) {
            fail(Failure(file, !change.after, iErrno));
        }
    }
    const DefinedJobs now;
    for (const FileName& file : vecWritten) {
        if (const std::vector<std::string> vecRefusals = now.NewRefusals(former, file); !vecRefusals.empty()) {
            fail(ToolError(EXIT_WRONG, "the service would refuse it: " + vecRefusals.front()));
        }
    }
}

std::string FileChanges::TakeBack(const std::vector<FileName>& vecWritten) {
    std::string strLeft;
    for (auto itFile = vecWritten.rbegin(); itFile != vecWritten.rend(); ++itFile) {
        const FileContent& before = _mapChanges.at(*itFile).before;
        const FileContent now = ReadContent(*itFile);
        if (now == before) {
            continue;
        }
        const bool bLost = !before.strReason.empty(); // what it held was no JSON, and the library writes nothing else
        if (bLost || Write(*itFile, now, before.document) != 0) {
            strLeft += (strLeft.empty() ? "" : "; ") + itFile->Path() + " could not be put back";
        }
    }
    return strLeft;
}

} // namespace VUKO::VUKOCrond::Ctl
