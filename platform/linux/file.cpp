#include "platform/vlibc.h"

#include <sys/stat.h>

#include "platform/linux/lasterror.h"

namespace VUKO::PLATFORM {

namespace {

/// @return whether something is at the path. That there is nothing is an answer; all else that keeps us from looking
///         is a failure.
bool LookAt(const char* szPath, struct stat& stFound) {
    if (szPath == nullptr) {
        VUKO_SET_ERROR(EFAULT);
        return false;
    }
    if (::stat(szPath, &stFound) == 0) {
        return true;
    }
    if (errno != ENOENT && errno != ENOTDIR) {
        VUKO_SET_ERROR(errno);
    }
    return false;
}

} // namespace

} // namespace VUKO::PLATFORM

int VLIBCFileExist(const char* path) {
    struct stat stFound = {};
    return VUKO::PLATFORM::LookAt(path, stFound) ? 1 : 0;
}

int VLIBCFileCheckDir(const char* path) {
    struct stat stFound = {};
    if (!VUKO::PLATFORM::LookAt(path, stFound)) {
        return 0;
    }
    if (!S_ISDIR(stFound.st_mode)) {
        errno = ENOTDIR;
        return 0;
    }
    return 1;
}
