#include "ctl/waiting.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>

#include "ctl/terminal.h"
#include "ctl/text.h"
#include "ctl/words.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr int STEP_MSEC = 1000;

sigset_t Interrupt() {
    sigset_t set = {};
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    return set;
}

} // namespace

Waiting::Waiting(const std::string& strWhat, bool bQuiet)
    : _strWhat(strWhat), _bShown(!bQuiet && isatty(STDERR_FILENO) != 0 && !IsDumb()) {
    const sigset_t set = Interrupt();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    _iSignalFd = signalfd(-1, &set, SFD_CLOEXEC);
}

Waiting::~Waiting() {
    Clear();
    if (_iSignalFd >= 0) {
        close(_iSignalFd);
    }
    const sigset_t set = Interrupt();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

bool Waiting::UntilReadable(int iFd) {
    const auto begin = std::chrono::steady_clock::now();
    pollfd aFds[] = {{iFd, POLLIN, 0}, {_iSignalFd, POLLIN, 0}};
    for (;;) {
        const auto waited = std::chrono::steady_clock::now() - begin;
        if (_bShown) {
            Draw(static_cast<long>(std::chrono::duration_cast<std::chrono::seconds>(waited).count()));
        }
        const int iReady = poll(aFds, 2, _bShown ? STEP_MSEC : -1);
        if (iReady > 0 && aFds[0].revents != 0) {
            Clear();
            return true;
        }
        signalfd_siginfo info = {};
        if (iReady > 0 && read(_iSignalFd, &info, sizeof(info)) == sizeof(info)) { // taken: else it would come later
            Clear();
            return false;
        }
        if (iReady < 0 && errno != EINTR) {
            return true; // whoever reads will be told
        }
    }
}

/// Nothing at first: most jobs end before anybody wonders. Never more than one line of the terminal: only that can be
/// taken back.
void Waiting::Draw(long iSeconds) {
    if (iSeconds > 0) {
        winsize size = {};
        ioctl(STDERR_FILENO, TIOCGWINSZ, &size);
        const std::string strTime = " " + DurationText(iSeconds);
        constexpr std::size_t ECHO_ROOM = 3; // of a Ctrl-C
        const std::size_t uWidth = size.ws_col != 0 ? size.ws_col : 80;
        const std::size_t uColumns = uWidth > ECHO_ROOM ? uWidth - ECHO_ROOM : 1;
        const std::size_t uRoom = uColumns > strTime.size() ? uColumns - strTime.size() : 0;
        std::cerr << "\r" << CutTo(CutTo(_strWhat, uRoom) + strTime, uColumns) << "\x1b[K" << std::flush;
        _bDrawn = true;
    }
}

void Waiting::Clear() {
    if (_bDrawn) {
        std::cerr << "\r\x1b[K" << std::flush;
        _bDrawn = false;
    }
}

} // namespace VUKO::VUKOCrond::Ctl
