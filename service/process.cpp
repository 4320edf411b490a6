#include "service/process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/syslog_line.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "process";

/// The service manager names the device and inode of the journal's stream, because the variable is inherited by
/// programs whose standard error is something else.
bool IsJournal(int iFd) {
    const char* const szStream = std::getenv("JOURNAL_STREAM");
    struct stat stStream = {};
    if (szStream == nullptr || fstat(iFd, &stStream) != 0) {
        return false;
    }
    return std::to_string(stStream.st_dev) + ":" + std::to_string(stStream.st_ino) == szStream;
}

} // namespace

void SettleProcess() {
    for (int iFd = STDIN_FILENO; iFd <= STDERR_FILENO; ++iFd) {
        if (fcntl(iFd, F_GETFD) == -1) {
            // The lowest free descriptor is this very one. When there is no /dev/null, nothing better can be done.
            (void)open("/dev/null", iFd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
        }
    }
    // Jobs run as other accounts and inherit what is open: what our starter left open is not theirs.
    (void)close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    if (chdir("/") != 0) {
        VUKO_LOG_PLAIN(LOG_WARNING, 1, "cannot change to the root folder: %s", strerror(errno));
    }
}

void BlockSignals() {
    sigset_t setSignals;
    sigemptyset(&setSignals);
    for (const int iSignal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGPIPE}) {
        struct sigaction action = {};
        action.sa_handler = SIG_DFL;
        sigaction(iSignal, &action, nullptr);
        sigaddset(&setSignals, iSignal);
    }
    sigprocmask(SIG_BLOCK, &setSignals, nullptr);
}

void OpenSystemLog() {
    openlog("vukocrond", LOG_PID | (IsJournal(STDERR_FILENO) ? 0 : LOG_PERROR), LOG_CRON);
}

} // namespace VUKO::VUKOCrond::Service
