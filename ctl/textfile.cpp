#include "ctl/textfile.h"

#include <sys/stat.h>

#include <cerrno>
#include <iostream>

#include "ctl/toolerror.h"
#include "service/replacefile.h"

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
