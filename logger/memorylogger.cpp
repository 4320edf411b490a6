#include "logger/memorylogger.h"

#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "base/syslog_line.h"
#include "logger/staginglock.h"

namespace VUKO {

namespace {

constexpr const char* szLogSource = "memorylogger";

using SharableMutex = boost::interprocess::interprocess_sharable_mutex;
using ExclusiveLock = boost::interprocess::scoped_lock<SharableMutex>;
using SharedLock = boost::interprocess::sharable_lock<SharableMutex>;

bool IsLink(const std::string& strPath) {
    struct stat stPath = {};
    return ::lstat(strPath.c_str(), &stPath) == 0 && S_ISLNK(stPath.st_mode);
}

/// Opens the memory log file, but nothing that a stranger has put in its place, and no pipe at all: opening that would
/// wait for ever for somebody at its other end, and the job with it.
template <typename Stream>
void OpenStaged(Stream& fs, const std::string& strPath, std::ios::openmode mode, const StagingLock& lock) {
    const int iErrno = errno;
    if (lock.IsForeign()) {
        errno = EPERM;
        fs.setstate(std::ios::failbit);
        return;
    }
    struct stat stPath = {};
    if (::stat(strPath.c_str(), &stPath) == 0 && S_ISFIFO(stPath.st_mode)) {
        errno = ENXIO;
        fs.setstate(std::ios::failbit);
        return;
    }
    errno = iErrno; // that there is no file yet is no news
    fs.open(strPath, mode);
}

} // namespace

MemoryLogger::MemoryLogger(const std::string& strLogPath, const std::string& strMemLogPath,
                           unsigned long ulMemLogLimitKB)
    : _strLogPath(strLogPath), _strMemLogPath(strMemLogPath), _ulMemLogLimitKB(ulMemLogLimitKB) {}

MemoryLogger::~MemoryLogger() = default;

void MemoryLogger::SoftFlush() {
    {
        const ExclusiveLock lockMemLog(_mutexMemLog);
        const StagingLock lockFile(_strMemLogPath, StagingLock::IfMissing::Create);
        std::ofstream fsMem;
        OpenStaged(fsMem, _strMemLogPath, std::ios::out | std::ios::app, lockFile);
        if (!fsMem) {
            VUKO_LOG(LOG_ERR, 68, "open memory logger failed");
        } else {
            // An empty buffer inserts nothing and leaves the file stream failed; there is nothing to lose then.
            fsMem << _ssLog.rdbuf();
            fsMem.close();
            _ssLog.str(std::string());
            // A writer's failed insertion must not silence every line after it.
            _ssLog.clear();
        }
    }
    // The size is looked at without the lock: Flush takes _mutexLog first, and nobody may wait for that one while
    // holding _mutexMemLog.
    struct stat stMem = {};
    if (::stat(_strMemLogPath.c_str(), &stMem) != 0) {
        return;
    }
    if (static_cast<unsigned long>(stMem.st_size) > (_ulMemLogLimitKB << 10)) {
        Flush();
    }
}

void MemoryLogger::Flush() {
    const ExclusiveLock lockLog(_mutexLog);
    const SharedLock lockMemLog(_mutexMemLog);
    const StagingLock lockFile(_strMemLogPath, StagingLock::IfMissing::Leave);
    std::ofstream fs(_strLogPath, std::ios::out | std::ios::app);
    const int iErrnoLog = errno;
    std::ifstream fsMem;
    if (lockFile.WasMissing()) {
        errno = ENOENT; // not opened: if there is one by now, another process has just begun it
        fsMem.setstate(std::ios::failbit);
    } else {
        OpenStaged(fsMem, _strMemLogPath, std::ios::in, lockFile);
    }
    if (!fs) {
        errno = iErrnoLog; // the reason to report is the log's own, not that of the second file
    }
    if (VUKO_FAILED(49, !fs) || VUKO_FAILED(50, !fsMem)) {
        // nothing can be copied
    } else {
        fs << fsMem.rdbuf();
        static_cast<void>(VUKO_FAILED(53, chmod(_strLogPath.c_str(), 0600)));
    }
    fs.close();
    fsMem.close();
    // Deleted whatever happened above: staged text that cannot be moved on is given up, so that the staging file, which
    // lies in memory on an appliance, cannot grow without bound. A file that has come since is not this call's; a link
    // to nothing is, and the next line must not be written through it.
    if (!lockFile.WasMissing() || IsLink(_strMemLogPath)) {
        static_cast<void>(::unlink(_strMemLogPath.c_str()));
    }
}

void MemoryLogger::FlushAll() {
    SoftFlush();
    Flush();
}

std::string MemoryLogger::GetNewLine() {
    const time_t tNow = time(nullptr);
    const struct tm* const pLocal = localtime(&tNow);
    if (pLocal == nullptr) {
        return std::string();
    }
    const struct tm tmLocal = *pLocal; // localtime's storage is shared by the whole process
    char szTime[128] = {};
    if (strftime(szTime, sizeof(szTime), "%Y-%m-%dT%H:%M:%S", &tmLocal) == 0) {
        return std::string();
    }
    const long lOffset = tmLocal.tm_gmtoff;
    const long lAbsolute = labs(lOffset);
    char szOffset[32] = {};
    static_cast<void>(snprintf(szOffset, sizeof(szOffset), "%c%02ld:%02ld", lOffset < 0 ? '-' : '+', lAbsolute / 3600,
                               (lAbsolute % 3600) / 60));
    return std::string(szTime) + szOffset + " ";
}

} // namespace VUKO
