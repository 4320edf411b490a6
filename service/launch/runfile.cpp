#include "service/launch/runfile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <unordered_set>

#include "base/syslog_line.h"
#include "service/logtext.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "runfile";

constexpr std::uint64_t MAGIC = 0x4e55524f4b555601; // "\1VUKORUN" where the lowest byte comes first
constexpr std::uint32_t VERSION = 1;
constexpr mode_t FILE_MODE = 0600;

[[noreturn]] void Throw(const std::string& strPath, const char* szWhat) {
    throw std::system_error(errno, std::generic_category(), Escaped(strPath) + ": " + szWhat);
}

/// Why a file is not one that this service has made; null when it may be.
const char* FaultOfFile(const struct stat& stFile, std::size_t uSize) {
    if (!S_ISREG(stFile.st_mode)) {
        return "it is no regular file";
    }
    if (stFile.st_uid != geteuid() && stFile.st_uid != 0) {
        return "it has another owner";
    }
    if ((stFile.st_mode & 07777) != FILE_MODE) {
        return "its mode is not 0600";
    }
    if (stFile.st_nlink != 1) {
        return "it has another name, too";
    }
    return static_cast<std::size_t>(stFile.st_size) == uSize ? nullptr : "it is of another size";
}

void SetAside(const std::string& strPath, const std::string& strFault) {
    const std::string strStem = strPath + ".damaged-" + std::to_string(time(nullptr)) + "-";
    for (int i = 0; i < 1000; ++i) {
        const std::string strAside = strStem + std::to_string(i);
        if (renameat2(AT_FDCWD, strPath.c_str(), AT_FDCWD, strAside.c_str(), RENAME_NOREPLACE) == 0) {
            VUKO_LOG_PLAIN(LOG_WARNING, 1, "%s is no run table of this service: %s; it is kept as %s",
                           Escaped(strPath).c_str(), strFault.c_str(), Escaped(strAside).c_str());
            return;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    Throw(strPath, "cannot be set aside");
}

} // namespace

RunFile::RunFile(const std::string& strPath, const std::string& strBootId) {
    if (strBootId.size() >= sizeof(Layout::szBootId)) {
        throw std::runtime_error("a boot id of this length does not fit the run table");
    }
    static_assert(offsetof(Layout, aSlots) == sizeof(RunSlot));
    std::string strFault;
    try {
        const Found eFound = OpenExisting(strPath, strBootId, strFault);
        if (eFound == Found::Unusable) {
            SetAside(strPath, strFault);
        }
        if (eFound != Found::FromThisBoot) {
            Make(strPath, strBootId);
        }
    } catch (...) {
        Unmap();
        throw;
    }
}

RunFile::~RunFile() {
    Unmap();
}

RunFile::Found RunFile::OpenExisting(const std::string& strPath, const std::string& strBootId, std::string& strFault) {
    const UniqueFd fd(open(strPath.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd && errno == ENOENT) {
        return Found::Nothing;
    }
    if (!fd) {
        if (errno != ELOOP && errno != EISDIR && errno != ENXIO && errno != EACCES) {
            Throw(strPath, "cannot be opened");
        }
        strFault = strerror(errno);
        return Found::Unusable;
    }
    struct stat stFile = {};
    if (fstat(fd.Get(), &stFile) != 0) {
        Throw(strPath, "cannot be looked at");
    }
    const char* szFault = FaultOfFile(stFile, sizeof(Layout));
    if (szFault == nullptr) {
        Map(fd.Get());
        szFault = FaultOfContent();
    }
    if (szFault != nullptr) {
        strFault = szFault;
        return Found::Unusable;
    }
    return strBootId == _pLayout->szBootId ? Found::FromThisBoot : Found::FromAnotherBoot;
}

void RunFile::LetGoOfMemory() {
    madvise(_pLayout, sizeof(Layout), MADV_DONTNEED);
}

/// It gets its name when it is whole, so that whoever is killed in between leaves none that is not.
void RunFile::Make(const std::string& strPath, const std::string& strBootId) {
    Unmap();
    const std::string strNew = strPath + ".new";
    if (unlink(strNew.c_str()) != 0 && errno != ENOENT) {
        Throw(strNew, "cannot be removed");
    }
    const UniqueFd fd(open(strNew.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, FILE_MODE));
    if (!fd || fchmod(fd.Get(), FILE_MODE) != 0) {
        Throw(strNew, "cannot be made");
    }
    // Room for all of it now: a page that cannot be had later would end the service by a signal.
    if (const int iCode = posix_fallocate(fd.Get(), 0, sizeof(Layout)); iCode != 0) {
        errno = iCode;
        Throw(strNew, "cannot be given its size");
    }
    Map(fd.Get());
    _pLayout->uMagic = MAGIC;
    _pLayout->uVersion = VERSION;
    _pLayout->uSlots = RUN_SLOTS;
    strBootId.copy(_pLayout->szBootId, sizeof(_pLayout->szBootId) - 1);
    if (rename(strNew.c_str(), strPath.c_str()) != 0) {
        Throw(strPath, "cannot be put in place");
    }
    _bNew = true;
}

void RunFile::Map(int iFd) {
    void* const pMemory = mmap(nullptr, sizeof(Layout), PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0);
    if (pMemory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "the run table cannot be mapped");
    }
    _pLayout = static_cast<Layout*>(pMemory);
}

void RunFile::Unmap() {
    if (_pLayout != nullptr) {
        munmap(_pLayout, sizeof(Layout));
        _pLayout = nullptr;
    }
}

const char* RunFile::FaultOfContent() const {
    if (_pLayout->uMagic != MAGIC || _pLayout->uVersion != VERSION || _pLayout->uSlots != RUN_SLOTS ||
        memchr(_pLayout->szBootId, '\0', sizeof(_pLayout->szBootId)) == nullptr) {
        return "its head is of another kind";
    }
    std::unordered_set<RunId> setRuns;
    for (RunSlot& slot : _pLayout->aSlots) {
        const std::uint64_t uState = Shared(slot.uState).load(std::memory_order_acquire);
        if (uState == 0) {
            continue;
        }
        const auto iEndKind = Shared(slot.iEndKind).load(std::memory_order_relaxed);
        const bool bGoodStage = StageOf(uState) != RunStage::Free && StageOf(uState) <= RunStage::Revoked;
        const bool bGoodEnd =
            iEndKind >= static_cast<int>(EndKind::Open) && iEndKind <= static_cast<int>(EndKind::Lost);
        if (!bGoodStage || !bGoodEnd || RunOf(uState) == 0 || !setRuns.insert(RunOf(uState)).second) {
            return "it holds what cannot be";
        }
    }
    return nullptr;
}

} // namespace VUKO::VUKOCrond::Service
