#include "tests/support/forked.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace support {

int WaitFor(int iPid) {
    int iStatus = 0;
    while (waitpid(iPid, &iStatus, 0) == -1) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return iStatus;
}

ChildEnd RunForked(const std::function<int(int)>& body) {
    int aPipe[2] = {-1, -1};
    if (pipe2(aPipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2");
    }
    const pid_t pid = fork();
    if (pid == -1) {
        throw std::runtime_error("fork");
    }
    if (pid == 0) {
        close(aPipe[0]);
        int iStatus = 99;
        try {
            iStatus = body(aPipe[1]);
        } catch (const std::exception& e) {
            dprintf(aPipe[1], "exception: %s\n", e.what());
        } catch (...) {
            dprintf(aPipe[1], "exception\n");
        }
        syscall(SYS_exit_group, iStatus); // not _exit(): a test may have put a fake in its place
    }
    close(aPipe[1]);
    ChildEnd end;
    char aBuffer[4096];
    for (;;) {
        const ssize_t iRead = read(aPipe[0], aBuffer, sizeof(aBuffer));
        if (iRead > 0) {
            end.strOutput.append(aBuffer, static_cast<std::size_t>(iRead));
        } else if (iRead == 0 || errno != EINTR) {
            break;
        }
    }
    close(aPipe[0]);
    const int iStatus = WaitFor(pid);
    if (WIFEXITED(iStatus)) {
        end.iExitStatus = WEXITSTATUS(iStatus);
    } else if (WIFSIGNALED(iStatus)) {
        end.iSignal = WTERMSIG(iStatus);
    }
    return end;
}

} // namespace support
