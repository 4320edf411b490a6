/// Plays a service that holds its PID file: locks the file that is its first argument, in the way that is its second
/// ("write", "read" or "open": a lock that belongs to the open file), writes its pid into it, says "ready", waits for
/// SIGHUP or SIGTERM, says "reloaded" or "ended", and ends. Of the two, sent together, SIGHUP comes first.

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const bool bRead = strcmp(argv[2], "read") == 0;
    sigset_t setAwaited;
    sigemptyset(&setAwaited);
    sigaddset(&setAwaited, SIGHUP);
    sigaddset(&setAwaited, SIGTERM);
    sigprocmask(SIG_BLOCK, &setAwaited, nullptr);
    const int iFd = open(argv[1], O_CLOEXEC | (bRead ? O_RDONLY : O_RDWR));
    struct flock lock = {};
    lock.l_type = bRead ? F_RDLCK : F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (iFd < 0 || fcntl(iFd, strcmp(argv[2], "open") == 0 ? F_OFD_SETLK : F_SETLK, &lock) != 0) {
        perror("lock");
        return 3;
    }
    if (!bRead && dprintf(iFd, "%d\n", static_cast<int>(getpid())) < 0) {
        return 4;
    }
    puts("ready");
    fflush(stdout);
    int iSignal = 0;
    sigwait(&setAwaited, &iSignal);
    puts(iSignal == SIGHUP ? "reloaded" : "ended");
    return 0;
}
