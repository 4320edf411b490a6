#include "ctl/definitionfiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

#include "crond/cronjob.h"
#include "ctl/stagedfiles.h"
#include "ctl/toolerror.h"
#include "service/definitions/definitionfile.h"
#include "service/logtext.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

constexpr off_t EDITED_SIZE_MAX = off_t{4} << 20;

FileName FileNameOf(const Definition& definition) {
    return {PlaceOf(definition.id), std::filesystem::path(definition.strFile).stem().string()};
}

/// Every place that holds definitions now.
std::vector<Place> AllPlaces() {
    std::vector<Place> vecPlaces = {
        {SZK_CRON_FOLDER_BUILT_IN, ""}, {SZK_CRON_FOLDER_BUILT_IN_DYN, ""}, {SZK_CRON_FOLDER_PKG, ""}};
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(SZF_CRON_FOLDER_PKG_NONROOT, error)) {
        vecPlaces.push_back({SZK_CRON_FOLDER_PKG_NONROOT, entry.path().filename().string()});
    }
    std::sort(vecPlaces.begin() + 3, vecPlaces.end());
    return vecPlaces;
}

std::vector<Place> OwnPlaces() {
    std::vector<Place> vecPlaces;
    for (const std::string& strPackage : OwnPackages()) {
        vecPlaces.push_back({SZK_CRON_FOLDER_PKG_NONROOT, strPackage});
    }
    return vecPlaces;
}

/// There may be anything in a folder that one may not read.
void RequireReadable(const std::vector<Place>& vecPlaces, const std::string& strJob) {
    for (const Place& place : vecPlaces) {
        if (faccessat(AT_FDCWD, place.Path().c_str(), R_OK | X_OK, AT_EACCESS) != 0 && errno == EACCES) {
            throw ToolError(EXIT_DENIED, "no definition file that this account may read holds a job " + Quoted(strJob) +
                                             ", and it may not read " + place.Path() + " (try sudo)");
        }
    }
}

std::string Names(const std::vector<Found>& vecFound) {
    std::string strNames;
    for (const Found& found : vecFound) {
        strNames += (strNames.empty() ? "" : ", ") + ToText(found.id);
    }
    return strNames;
}

} // namespace

FileContent ReadContent(const FileName& file) {
    FileContent content;
    const UniqueFd fdFolder(open(file.place.Path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat stFile = {};
    if (!fdFolder || fstatat(fdFolder.Get(), (file.strStem + ".conf").c_str(), &stFile, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            content.strReason = "cannot be reached: " + std::string(strerror(errno));
        }
        return content;
    }
    const std::optional<uid_t> uidPackage = OriginOf(file.place).uidPackage;
    content.uidOwner = stFile.st_uid;
    content.bIsSound = S_ISREG(stFile.st_mode) && stFile.st_nlink == 1 && WhyUntrusted(stFile, uidPackage).empty();
    DefinitionFile read = ReadDefinitionFile(fdFolder.Get(), file.strStem + ".conf", uidPackage);
    content.strReason = read.bGone ? std::string() : read.strReason;
    if (!read.bGone && read.strReason.empty()) {
        content.document = std::move(read.jsDocument);
    }
    return content;
}

std::string ReadText(const FileName& file) {
    // Not by the name once more than this: in a package's folder it may mean something else the next moment.
    const UniqueFd fd(open(file.Path().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat stFile = {};
    if (!fd && errno == ELOOP) {
        throw ToolError(EXIT_WRONG, file.Path() + " is a link: it can be removed, not edited");
    }
    if (!fd || fstat(fd.Get(), &stFile) != 0) {
        throw ToolError(errno == EACCES ? EXIT_DENIED : EXIT_WRONG,
                        file.Path() + " cannot be read: " + std::string(strerror(errno)));
    }
    if (!S_ISREG(stFile.st_mode) || stFile.st_size > EDITED_SIZE_MAX) {
        throw ToolError(EXIT_WRONG, file.Path() + " is no definition file: it can be removed, not edited");
    }
    std::string strText(static_cast<std::size_t>(stFile.st_size), '\0');
    const ssize_t iRead = read(fd.Get(), strText.data(), strText.size());
    strText.resize(iRead > 0 ? static_cast<std::size_t>(iRead) : 0);
    return strText;
}

DefinedJobs::DefinedJobs() {
    for (const Place& place : MayChangeSystem() ? AllPlaces() : OwnPlaces()) {
        StagedFiles::Complete(place);
    }
    _scan = ScanDefinitions();
}

/// A file of which nothing is accepted holds no job that could be found by its name: what counts then is the file's
/// own.
std::optional<Found> DefinedJobs::FindRefused(const JobId& id) const {
    const FileName file{PlaceOf(id), id.strName};
    if (!WhyBadName(id.strName).empty()) {
        return std::nullopt;
    }
    return IsRefused(file) ? std::optional<Found>({id, file, std::nullopt}) : std::nullopt;
}

std::string DefinedJobs::WhyRefused(const FileName& file) const {
    const std::string strPath = file.Path();
    const auto itRefusal = std::find_if(_scan.vecRefusals.begin(), _scan.vecRefusals.end(),
                                        [&](const Refusal& refusal) { return refusal.strFile == strPath; });
    return itRefusal != _scan.vecRefusals.end() ? itRefusal->strText : std::string();
}

bool DefinedJobs::IsRefused(const FileName& file) const {
    const std::string strPath = file.Path();
    return !WhyRefused(file).empty() &&
           std::none_of(_scan.vecDefinitions.begin(), _scan.vecDefinitions.end(),
                        [&](const Definition& definition) { return definition.strFile == strPath; });
}

std::vector<Found> DefinedJobs::FindAll(const JobId& id) const {
    std::vector<Found> vecFound;
    for (const Definition& definition : _scan.vecDefinitions) {
        if (definition.id == id && (vecFound.empty() || vecFound.back().file.Path() != definition.strFile)) {
            vecFound.push_back({id, FileNameOf(definition), definition.jsDefinition});
        }
    }
    if (vecFound.empty()) {
        if (std::optional<Found> refused = FindRefused(id); refused) {
            vecFound.push_back(*std::move(refused));
        }
    }
    return vecFound;
}

std::optional<Found> DefinedJobs::Find(const JobId& id) const {
    const std::vector<Found> vecFound = FindAll(id);
    return vecFound.empty() ? std::nullopt : std::optional<Found>(vecFound.front());
}

std::vector<Found> DefinedJobs::FindByName(const std::string& strName, const std::vector<Place>& vecPlaces) const {
    std::vector<Found> vecFound;
    for (const Place& place : vecPlaces) {
        if (std::optional<Found> found = Find(place.IdOf(strName)); found) {
            vecFound.push_back(*std::move(found));
        }
    }
    return vecFound;
}

Found DefinedJobs::Find(const std::string& strJob) const {
    std::vector<Found> vecFound;
    const JobId id = IdFromText(strJob);
    const std::vector<Place> vecAll = AllPlaces();
    const bool bPlaced = std::find(vecAll.begin(), vecAll.end(), PlaceOf(id)) != vecAll.end();
    if (bPlaced) {
        vecFound = FindByName(id.strName, {PlaceOf(id)});
    } else {
        vecFound = FindByName(strJob, OwnPlaces());
        vecFound = vecFound.empty() ? FindByName(strJob, vecAll) : vecFound;
    }
    if (vecFound.empty()) {
        RequireReadable(bPlaced ? std::vector<Place>{PlaceOf(id)} : vecAll, strJob);
        throw ToolError(EXIT_WRONG, "no definition file holds a job " + Quoted(strJob));
    }
    if (vecFound.size() > 1) {
        throw ToolError(EXIT_BAD_USAGE,
                        "several jobs are named " + Quoted(strJob) + ": " + Names(vecFound) + "; say which of them");
    }
    return vecFound.front();
}

std::vector<Found> DefinedJobs::FindToChange(const std::vector<std::string>& vecNames) const {
    std::vector<Found> vecFound;
    std::set<JobId> setTaken;
    for (const std::string& strName : vecNames) {
        Found found = Find(strName);
        RequireWritable(PlaceOf(found.id), ToText(found.id));
        if (setTaken.insert(found.id).second) {
            vecFound.push_back(std::move(found));
        }
    }
    return vecFound;
}

std::vector<std::string> DefinedJobs::NewRefusals(const DefinedJobs& former, const FileName& file) const {
    std::vector<std::string> vecNew;
    for (const Refusal& refusal : _scan.vecRefusals) {
        const bool bConcerns = refusal.strFile == file.Path() || refusal.strFile == file.place.Path();
        const bool bIsOld = std::any_of(former._scan.vecRefusals.begin(), former._scan.vecRefusals.end(),
                                        [&](const Refusal& old) { return old.strText == refusal.strText; });
        if (bConcerns && !bIsOld) {
            vecNew.push_back(refusal.strText);
        }
    }
    return vecNew;
}

} // namespace VUKO::VUKOCrond::Ctl
