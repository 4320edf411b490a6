#include "ctl/filechanges.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <set>
#include <thread>
#include <utility>

#include "crond/configmanager.h"
#include "crond/cronjob.h"
#include "crond/pkgconfigmanager.h"
#include "ctl/actas.h"
#include "ctl/stagedfiles.h"
#include "ctl/toolerror.h"
#include "platform/vlibc.h"
#include "platform/vukosdk.h"
#include "service/definitions/definitionreason.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr mode_t FOLDER_MODE = 0755;

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

/// The library takes a link that leads nowhere for nothing at all, and leaves it there. Its folder is the same one at
/// all times: nobody but root can put another one in the place of a package's.
bool RemoveDeadLink(const std::string& strPath) {
    struct stat stFile = {};
    if (lstat(strPath.c_str(), &stFile) != 0) {
        return errno == ENOENT;
    }
    return !S_ISLNK(stFile.st_mode) || unlink(strPath.c_str()) == 0;
}

/// What replaces a file takes its owner and mode over, which is no good where these are why it is refused, and which
/// only root can do with somebody else's: of what a package has brought, its account makes a file of its own.
int Write(const FileName& file, const FileContent& before, const std::optional<Json::Value>& after) {
    const bool bInherits = before.bIsSound && (geteuid() == 0 || geteuid() == before.uidOwner);
    return WithStore(file, before, [&](auto& store) {
        const bool bCleared = (after && bInherits) || (store.Remove() && RemoveDeadLink(file.Path()));
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

/// The library makes a folder that is missing for root alone, and what is missing above it too: nobody else would come
/// through to the folders of packages.
void MakeFolders(const std::set<Place>& setPlaces) {
    for (const Place& place : setPlaces) {
        if (!place.IsOfPackageAccount() && VLIBCFileCheckDir(place.Path().c_str()) == 0) {
            (void)VUKOFSMkdirP(place.Path().c_str(), 0, 1, geteuid(), getegid(),
                               FOLDER_MODE); // the write tells why not
        }
    }
}

/// Changes that several tools make at a time are made one after the other: each looks at what is there and writes what
/// it has made of it, and the library locks nothing. Whoever may read a folder could hold its lock for ever, so nobody
/// is waited for any longer than a change can take.
class FolderLocks {
public:
    explicit FolderLocks(const std::set<Place>& setPlaces) {
        for (const Place& place : setPlaces) { // in one order for all
            bool bLocked = false;
            _vecFolders.emplace_back(open(place.Path().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            const auto end = std::chrono::steady_clock::now() + PATIENCE;
            while (_vecFolders.back() && !(bLocked = flock(_vecFolders.back().Get(), LOCK_EX | LOCK_NB) == 0) &&
                   std::chrono::steady_clock::now() < end) {
                std::this_thread::sleep_for(STEP);
            }
            _bAll = _bAll && bLocked;
        }
    }
    bool AreAllHeld() const { return _bAll; }

private:
    static constexpr std::chrono::milliseconds PATIENCE{2000};
    static constexpr std::chrono::milliseconds STEP{10};

    std::vector<Service::UniqueFd> _vecFolders; ///< locked for as long as they are open
    bool _bAll = true;
};

/// Who presses Ctrl-C, or closes the terminal, ends the tool before the first write or after the last one.
class SignalsPutOff {
public:
    SignalsPutOff() {
        sigset_t set = {};
        sigemptyset(&set);
        for (const int iSignal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP, SIGXFSZ}) {
            sigaddset(&set, iSignal);
        }
        sigprocmask(SIG_BLOCK, &set, &_before);
    }
    ~SignalsPutOff() { sigprocmask(SIG_SETMASK, &_before, nullptr); }
    SignalsPutOff(const SignalsPutOff&) = delete;
    SignalsPutOff& operator=(const SignalsPutOff&) = delete;

private:
    sigset_t _before = {};
};

ToolError ChangedMeanwhile(const FileName& file) {
    return ToolError(EXIT_WRONG, file.Path() + " was changed by somebody else meanwhile: nothing is stored");
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
    // What takes its place was made of what had been found, so that has to be there still.
    if (!jsDocument.isArray()) {
        if (found.definition && jsDocument != *found.definition) {
            throw ChangedMeanwhile(found.file);
        }
        change.after = jsDefinition;
        return;
    }
    const auto itOne = std::find(jsDocument.begin(), jsDocument.end(), *found.definition);
    if (itOne == jsDocument.end()) {
        throw ChangedMeanwhile(found.file);
    }
    *itOne = jsDefinition;
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
            throw ChangedMeanwhile(file);
        }
    }
}

void FileChanges::Commit() {
    std::set<Place> setPlaces;
    for (const auto& [file, change] : _mapChanges) {
        setPlaces.insert(file.place);
    }
    MakeFolders(setPlaces);
    const FolderLocks locks(setPlaces);
    const SignalsPutOff signalsPutOff;
    RequireUnchanged();
    const DefinedJobs former;
    std::vector<FileName> vecWritten;
    try {
        if (locks.AreAllHeld() && CanBeStaged()) {
            WriteStaged(vecWritten);
        } else {
            WriteEach(vecWritten);
        }
        const DefinedJobs now;
        for (const FileName& file : vecWritten) {
            if (const std::vector<std::string> vecRefusals = now.NewRefusals(former, file); !vecRefusals.empty()) {
                throw ToolError(EXIT_WRONG, "the service would refuse it: " + vecRefusals.front());
            }
        }
    } catch (const ToolError& error) {
        const std::string strLeft = TakeBack(vecWritten);
        throw ToolError(error.Status(),
                        error.what() + std::string(strLeft.empty() ? ". Nothing is changed" : ". " + strLeft));
    }
}

bool FileChanges::CanBeStaged() const {
    return _mapChanges.size() > 1 && std::all_of(_mapChanges.begin(), _mapChanges.end(), [&](const auto& change) {
               return change.first.place == _mapChanges.begin()->first.place && !change.second.before.IsThere() &&
                      change.second.after && !StagedFiles::HiddenStem(change.first.strStem).empty();
           });
}

void FileChanges::WriteStaged(std::vector<FileName>& vecWritten) {
    const Place place = _mapChanges.begin()->first.place;
    const StagedFiles staged(place);
    staged.Begin();
    int iErrno = 0;
    for (const auto& [file, change] : _mapChanges) {
        const FileName hidden{place, StagedFiles::HiddenStem(file.strStem)};
        if (iErrno = Write(hidden, change.before, change.after); iErrno != 0) {
            staged.GiveUp();
            throw Failure(file, false, iErrno);
        }
    }
    if (iErrno = staged.Decide(); iErrno != 0) {
        staged.GiveUp();
        throw Failure(_mapChanges.begin()->first, false, iErrno);
    }
    std::vector<std::string> vecShown;
    iErrno = staged.Show(vecShown);
    for (const std::string& strStem : vecShown) {
        if (FileName file{place, strStem}; _mapChanges.contains(file)) { // a package may put others there
            vecWritten.push_back(std::move(file));
        }
    }
    if (iErrno != 0) {
        const auto itMissing = std::find_if(_mapChanges.begin(), _mapChanges.end(), [&](const auto& change) {
            return std::find(vecWritten.begin(), vecWritten.end(), change.first) == vecWritten.end();
        });
        throw Failure(itMissing == _mapChanges.end() ? _mapChanges.begin()->first : itMissing->first, false, iErrno);
    }
}

void FileChanges::WriteEach(std::vector<FileName>& vecWritten) {
    for (const auto& [file, change] : _mapChanges) {
        vecWritten.push_back(file); // also one that fails: it may stand there and not be safe on the disk
        if (const int iErrno = Write(file, change.before, change.after); iErrno != 0) {
            throw Failure(file, !change.after, iErrno);
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
