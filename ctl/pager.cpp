#include "ctl/pager.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>

#include "ctl/common.h"
#include "ctl/terminal.h"
#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// Whether somebody else than the account itself has called the tool, as with sudo.
bool IsBorrowedAccount() {
    if (std::getenv("SUDO_UID") != nullptr || std::getenv("PKEXEC_UID") != nullptr || geteuid() != getuid()) {
        return true;
    }
    std::ifstream file("/proc/self/loginuid");
    uid_t uidLogin = 0;
    constexpr uid_t NOBODY_LOGGED_IN = static_cast<uid_t>(-1);
    return (file >> uidLogin) && uidLogin != NOBODY_LOGGED_IN && uidLogin != geteuid();
}

/// The pager that the variables ask for: nothing where they do not, an empty text where there shall be none.
std::optional<std::string> AskedFor() {
    for (const char* const szName : {"VUKOCRONCTL_PAGER", "PAGER"}) {
        if (const char* const szValue = std::getenv(szName); szValue != nullptr) {
            return std::string(szValue) == "cat" ? "" : szValue;
        }
    }
    return std::nullopt;
}

[[noreturn]] void Become(const std::string& strPager) {
    signal(SIGPIPE, SIG_DFL);
    setenv("LESS", "FRSXMK", 1); // leave where all fits, let colours through, cut lines, keep the screen, leave on ^C
    setenv("LESSSECURE", "1", 1);
    if (SpeaksUtf8()) {
        setenv("LESSCHARSET", "utf-8", 1);
    }
    if (!strPager.empty()) {
        execlp("sh", "sh", "-c", strPager.c_str(), nullptr);
    }
    for (const char* const szPager : {"less", "more", "cat"}) {
        execlp(szPager, szPager, nullptr);
    }
    _exit(127);
}

} // namespace

Pager::Pager(const Common& common) {
    const std::optional<std::string> pager = AskedFor();
    const bool bPageable = IsTerminal() && !IsDumb() && isatty(STDIN_FILENO) != 0;
    if (common.bJson || common.bNoPager || !bPageable || (pager && pager->empty())) {
        return;
    }
    int aPipe[2];
    std::cout.flush();
    if (pipe2(aPipe, O_CLOEXEC) != 0) {
        return; // without, then
    }
    _pidPager = fork();
    if (_pidPager == 0) {
        dup2(aPipe[0], STDIN_FILENO);
        Become(pager && !IsBorrowedAccount() ? *pager : std::string());
    }
    close(aPipe[0]);
    if (_pidPager > 0) {
        _iStandardOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        dup2(aPipe[1], STDOUT_FILENO);
        signal(SIGPIPE, SIG_IGN);
        signal(SIGINT, SIG_IGN); // it is the pager's while it shows something
    }
    close(aPipe[1]);
}

Pager::~Pager() {
    if (_pidPager <= 0) {
        return;
    }
    std::cout.flush();
    dup2(_iStandardOutput, STDOUT_FILENO);
    close(_iStandardOutput);
    while (waitpid(_pidPager, nullptr, 0) < 0 && errno == EINTR) {
    }
    std::cout.clear(); // whoever left the pager early wanted no more
    signal(SIGPIPE, SIG_DFL);
    signal(SIGINT, SIG_DFL);
}

} // namespace VUKO::VUKOCrond::Ctl
