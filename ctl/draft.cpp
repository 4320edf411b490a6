#include "ctl/draft.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "ctl/newdefinition.h"
#include "ctl/toolerror.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string Environment(const char* szName) {
    const char* const szValue = getenv(szName);
    return szValue != nullptr ? szValue : "";
}

std::string QuotedForShell(const std::string& strText) {
    std::string strQuoted = "'";
    for (const char c : strText) {
        strQuoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return strQuoted + "'";
}

/// As the shell is given it: it may bring options of its own.
std::string Editor() {
    for (const char* const szName : {"VUKOCRONCTL_EDITOR", "VISUAL", "EDITOR"}) {
        if (std::string strEditor = Environment(szName); !strEditor.empty()) {
            return strEditor;
        }
    }
    for (const char* const szProgram : {"sensible-editor", "editor", "vi"}) {
        try {
            return QuotedForShell(WholePathOf(szProgram));
        } catch (const ToolError&) { // the next one
        }
    }
    throw ToolError(EXIT_WRONG, "there is no editor: set EDITOR to one");
}

} // namespace

Draft::Draft(const std::string& strName, const std::string& strText) {
    const std::string strTemporary = Environment("TMPDIR");
    _strFolder = (strTemporary.empty() ? "/tmp" : strTemporary) + "/vukocronctl-XXXXXX";
    if (mkdtemp(_strFolder.data()) == nullptr) { // nobody else may enter it
        throw ToolError(EXIT_WRONG, "no draft can be made, " + _strFolder + ": " + strerror(errno));
    }
    _strPath = _strFolder + "/" + strName + ".json";
    std::ofstream out(_strPath, std::ios::binary);
    out << strText << std::flush;
    if (!out) {
        std::filesystem::remove_all(_strFolder);
        throw ToolError(EXIT_WRONG, "no draft can be made, " + _strPath + ": " + strerror(errno));
    }
}

Draft::~Draft() {
    if (!_bKept) {
        std::error_code error;
        std::filesystem::remove_all(_strFolder, error); // with what the editor left there
    }
}

void Draft::Edit() const {
    const std::string strEditor = Editor();
    // What goes to a pipe is the tool's own; the terminal is still there.
    const char* const szOutput = isatty(STDOUT_FILENO) == 0 ? " >&2" : "";
    const int iStatus = std::system((strEditor + " " + QuotedForShell(_strPath) + szOutput).c_str());
    if (iStatus != 0) {
        const std::string strEnd = WIFEXITED(iStatus) ? "exit " + std::to_string(WEXITSTATUS(iStatus))
                                                      : "signal " + std::to_string(WTERMSIG(iStatus));
        throw ToolError(EXIT_WRONG, "the editor " + strEditor + " failed, " + strEnd + ": nothing is stored");
    }
}

const std::string& Draft::Keep() {
    _bKept = true;
    return _strPath;
}

} // namespace VUKO::VUKOCrond::Ctl
