#include "ctl/textfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iostream>

#include "ctl/toolerror.h"
#include "service/replacefile.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

mode_t ModeOfNewFiles() {
    const mode_t uMask = umask(0);
    umask(uMask);
    return 0666U & ~uMask;
}

/// A link would give way to the file rather than lead there: /dev/stdout is one.
void RefuseLink(const std::string& strFile) {
    struct stat stFile = {};
    if (lstat(strFile.c_str(), &stFile) == 0 && S_ISLNK(stFile.st_mode)) {
        throw ToolError(EXIT_WRONG, strFile + ": is a symbolic link; name the file itself, or - for standard output");
    }
}

} // namespace

int ReadTextFile(const std::string& strFile, std::string& strText) {
    const Service::UniqueFd fdFile(strFile == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                                  : open(strFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    std::array<char, 64 * 1024> aBuffer;
    while (fdFile && strText.size() < TEXT_SIZE_MAX) {
        const ssize_t iRead = read(fdFile.Get(), aBuffer.data(), aBuffer.size());
        if (iRead == 0) {
            return 0;
        }
        if (iRead < 0 && errno != EINTR) {
            return errno;
        }
        strText.append(aBuffer.data(), iRead < 0 ? 0 : static_cast<std::size_t>(iRead));
    }
    return fdFile ? 0 : errno;
}

void WriteTextFile(const std::string& strFile, std::string_view strText) {
    if (strFile == "-") {
        std::cout << strText;
        return;
    }
    RefuseLink(strFile);
    const std::string strReason =
        Service::ReplaceFile(strFile, strText, ModeOfNewFiles(), Service::Durability::Written);
    if (!strReason.empty()) {
        throw ToolError(errno == EACCES || errno == EPERM || errno == EROFS ? EXIT_DENIED : EXIT_WRONG, strReason);
    }
}

} // namespace VUKO::VUKOCrond::Ctl
