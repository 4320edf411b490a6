#include "platform/linux/wholefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/linux/filedescriptor.h"
#include "platform/linux/interrupt.h"

namespace VUKO::PLATFORM {

namespace {

constexpr std::size_t ROOM_MIN = 4096;

int CheckReadable(int iFd, std::size_t uLimit, std::size_t& uSize) {
    struct stat stFile = {};
    if (::fstat(iFd, &stFile) != 0) {
        return errno;
    }
    if (!S_ISREG(stFile.st_mode)) {
        return S_ISDIR(stFile.st_mode) ? EISDIR : EINVAL;
    }
    uSize = static_cast<std::size_t>(stFile.st_size);
    return uSize > uLimit ? EFBIG : 0;
}

} // namespace

int ReadWholeFile(const std::string& strPath, std::size_t uLimit, std::string& strText) {
    // Not blocked by a pipe without a writer, and no controlling terminal got by a line: the path may be anything.
    const int iFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const FileDescriptor fd(RetryInterrupted([&] { return ::open(strPath.c_str(), iFlags); }));
    if (!fd) {
        return errno;
    }
    std::size_t uSize = 0;
    if (const int iCode = CheckReadable(fd.Get(), uLimit, uSize); iCode != 0) {
        return iCode;
    }
    // Room for one byte more than expected: a file that has grown shows itself, and one that has not ends the loop. The
    // size is a hint only, and 0 for files that the kernel makes up as they are read.
    strText.assign(std::max(uSize + 1, ROOM_MIN), '\0');
    for (std::size_t uFilled = 0;;) {
        const ssize_t iRead =
            RetryInterrupted([&] { return ::read(fd.Get(), strText.data() + uFilled, strText.size() - uFilled); });
        if (iRead < 0) {
            return errno;
        }
        uFilled += static_cast<std::size_t>(iRead);
        if (iRead == 0 || uFilled > uLimit) {
            strText.resize(uFilled);
            return iRead == 0 ? 0 : EFBIG;
        }
        if (uFilled == strText.size()) {
            strText.resize(std::min(2 * uFilled, uLimit + 1));
        }
    }
}

} // namespace VUKO::PLATFORM
