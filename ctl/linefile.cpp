#include "ctl/linefile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "ctl/toolerror.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

volatile std::sig_atomic_t g_bEnd = 0;

void NoteEnd(int) {
    g_bEnd = 1;
}

/// Blocked but while waiting, so that none is missed between the look at it and the wait.
void CatchEnd(sigset_t& setBefore) {
    struct sigaction action = {};
    action.sa_handler = NoteEnd;
    sigset_t setEnd;
    sigemptyset(&setEnd);
    for (const int iSignal : {SIGINT, SIGTERM}) {
        sigaction(iSignal, &action, nullptr);
        sigaddset(&setEnd, iSignal);
    }
    sigprocmask(SIG_BLOCK, &setEnd, &setBefore);
}

} // namespace

LineFile::LineFile(std::string strPath) : _strPath(std::move(strPath)) {}

LineFile::~LineFile() {
    close(_iFd);
    close(_iNotify);
}

void LineFile::Open() {
    _iFd = open(_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    _iRead = 0;
    if (_iFd < 0 && errno != ENOENT) {
        throw ToolError(errno == EACCES || errno == EPERM ? EXIT_DENIED : EXIT_WRONG,
                        _strPath + " cannot be read: " + std::strerror(errno));
    }
}

void LineFile::ReadOn(std::vector<std::string>& vecLines) {
    struct stat stFile = {};
    if (fstat(_iFd, &stFile) == 0 && stFile.st_size < _iRead) { // emptied
        _iRead = lseek(_iFd, 0, SEEK_SET);
        _strBegun.clear();
    }
    char szChunk[64 * 1024];
    for (ssize_t iRead = 0; (iRead = read(_iFd, szChunk, sizeof(szChunk))) > 0; _iRead += iRead) {
        _strBegun.append(szChunk, static_cast<std::size_t>(iRead));
        std::size_t uBegin = 0;
        for (std::size_t uEnd = 0; (uEnd = _strBegun.find('\n', uBegin)) != std::string::npos; uBegin = uEnd + 1) {
            vecLines.push_back(_strBegun.substr(uBegin, uEnd - uBegin));
        }
        _strBegun.erase(0, uBegin);
    }
}

bool LineFile::IsReplaced() const {
    struct stat stOpen = {};
    struct stat stNamed = {};
    return fstat(_iFd, &stOpen) == 0 && stat(_strPath.c_str(), &stNamed) == 0 &&
           (stOpen.st_ino != stNamed.st_ino || stOpen.st_dev != stNamed.st_dev);
}

std::vector<std::string> LineFile::Take() {
    std::vector<std::string> vecLines;
    if (_iFd < 0) {
        Open();
    }
    if (_iFd >= 0) {
        ReadOn(vecLines);
    }
    if (_iFd >= 0 && IsReplaced()) {
        ReadOn(vecLines); // what was written between the last look and the new file
        close(_iFd);
        _strBegun.clear();
        Open();
        if (_iFd >= 0) {
            ReadOn(vecLines);
        }
    }
    return vecLines;
}

bool LineFile::Wait() {
    static sigset_t setBefore = [] {
        sigset_t set;
        CatchEnd(set);
        return set;
    }();
    if (_iNotify < 0) { // from the first wait on: what came since the last look is found after it
        _iNotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        const std::string strFolder = _strPath.substr(0, _strPath.rfind('/') + 1);
        inotify_add_watch(_iNotify, strFolder.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO);
        return g_bEnd == 0;
    }
    struct pollfd aFds[] = {{_iNotify, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    constexpr timespec LOOK_AGAIN = {1, 0}; // where there is nothing to watch
    ppoll(aFds, 2, &LOOK_AGAIN, &setBefore);
    char szEvents[4096];
    while (read(_iNotify, szEvents, sizeof(szEvents)) > 0) {
    }
    return g_bEnd == 0 && (aFds[1].revents & (POLLERR | POLLHUP)) == 0;
}

} // namespace VUKO::VUKOCrond::Ctl
