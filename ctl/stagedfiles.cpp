#include "ctl/stagedfiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "ctl/actas.h"
#include "ctl/toolerror.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::UniqueFd;

constexpr const char* HIDDEN = ".vukocronctl-new-"; // the service reads no name that begins with a dot
constexpr const char* ENDING = ".conf";
constexpr const char* MARK = ".vukocronctl-decided";
constexpr std::size_t STEM_BYTES_MAX = 255 - 17 - 5 - 1;

UniqueFd OpenFolder(const Place& place) {
    return UniqueFd(open(place.Path().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

uid_t WriterOf(const Place& place) {
    return place.IsOfPackageAccount() ? OwnerOf(place) : 0;
}

/// The files that wait for their names, by the stems of these.
std::vector<std::string> StemsIn(const Place& place) {
    const std::string strHidden = HIDDEN;
    const std::string strEnding = ENDING;
    std::vector<std::string> vecStems;
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(place.Path().c_str()), closedir);
    while (const dirent* const pEntry = dir ? readdir(dir.get()) : nullptr) {
        const std::string strName = pEntry->d_name;
        if (strName.starts_with(strHidden) && strName.ends_with(strEnding)) {
            vecStems.push_back(strName.substr(strHidden.size(), strName.size() - strHidden.size() - strEnding.size()));
        }
    }
    return vecStems;
}

std::string HiddenName(const std::string& strStem) {
    return HIDDEN + strStem + ENDING;
}

bool IsDecided(const Place& place) {
    return faccessat(AT_FDCWD, (place.Path() + "/" + MARK).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

/// @return 0 or the errno value: EEXIST where the name is taken.
int GiveName(int iFolder, const std::string& strStem) {
    const std::string strHidden = HiddenName(strStem);
    const std::string strName = strStem + ENDING;
    if (renameat2(iFolder, strHidden.c_str(), iFolder, strName.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    if (faccessat(iFolder, strName.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) { // not every file system knows better
        return EEXIST;
    }
    return renameat(iFolder, strHidden.c_str(), iFolder, strName.c_str()) == 0 ? 0 : errno;
}

} // namespace

std::string StagedFiles::HiddenStem(const std::string& strStem) {
    return strStem.size() <= STEM_BYTES_MAX ? HIDDEN + strStem : std::string();
}

void StagedFiles::Begin() const {
    if (IsDecided(_place)) {
        std::vector<std::string> vecShown;
        (void)Show(vecShown);
    }
    GiveUp();
}

void StagedFiles::GiveUp() const {
    const ActAs account(WriterOf(_place));
    const UniqueFd fdFolder = OpenFolder(_place);
    for (const std::string& strStem : StemsIn(_place)) {
        unlinkat(fdFolder.Get(), HiddenName(strStem).c_str(), 0);
    }
}

int StagedFiles::Decide() const {
    const ActAs account(WriterOf(_place));
    const UniqueFd fdFolder = OpenFolder(_place);
    const UniqueFd fdMark(openat(fdFolder.Get(), MARK, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (fdMark && fsync(fdFolder.Get()) == 0) {
        return 0;
    }
    const int iErrno = errno;
    if (fdMark) { // or what is written next would count as decided
        unlinkat(fdFolder.Get(), MARK, 0);
    }
    return iErrno;
}

int StagedFiles::Show(std::vector<std::string>& vecShown) const {
    const ActAs account(WriterOf(_place));
    const UniqueFd fdFolder = OpenFolder(_place);
    int iErrno = 0;
    for (const std::string& strStem : StemsIn(_place)) {
        const int iOne = GiveName(fdFolder.Get(), strStem);
        if (iOne == 0) {
            vecShown.push_back(strStem);
        } else {
            iErrno = iErrno == 0 ? iOne : iErrno;
            unlinkat(fdFolder.Get(), HiddenName(strStem).c_str(), 0);
        }
    }
    fsync(fdFolder.Get());
    unlinkat(fdFolder.Get(), MARK, 0);
    return iErrno;
}

void StagedFiles::Complete(const Place& place) {
    const UniqueFd fdFolder = IsDecided(place) ? OpenFolder(place) : UniqueFd();
    if (!fdFolder || flock(fdFolder.Get(), LOCK_EX | LOCK_NB) != 0) {
        return;
    }
    try {
        StagedFiles(place).Begin();
    } catch (const ToolError&) { // a package's folder that the service does not read either
    }
}

} // namespace VUKO::VUKOCrond::Ctl
