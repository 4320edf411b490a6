#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>

#include "platform/vlibc.h"
#include "tests/platform/errors.h"
#include "tests/support/forked.h"

namespace {

/// Blocks some signals for the life of the object.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t setBlocked;
        sigemptyset(&setBlocked);
        sigaddset(&setBlocked, SIGUSR1);
        sigaddset(&setBlocked, SIGTERM);
        sigaddset(&setBlocked, SIGCHLD);
        pthread_sigmask(SIG_BLOCK, &setBlocked, &_setBefore);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &_setBefore, nullptr); }

private:
    sigset_t _setBefore;
};

std::string Blocked() {
    std::string strBlocked;
    sigset_t setBlocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &setBlocked);
    for (int iSignal = 1; iSignal < NSIG; ++iSignal) {
        if (sigismember(&setBlocked, iSignal) == 1) {
            strBlocked += std::to_string(iSignal) + " ";
        }
    }
    return strBlocked;
}

/// Forks with the platform's function and gives back what the child has to say.
std::string FromChild(int iFlags, const std::function<std::string()>& tell) {
    return support::RunForked([&](int iFdOut) {
               const pid_t pid = VLIBCProcForkEx(iFlags);
               if (pid == 0) {
                   const std::string strText = tell();
                   _exit(write(iFdOut, strText.data(), strText.size()) < 0 ? 1 : 0);
               }
               return support::WaitFor(pid);
           })
        .strOutput;
}

TEST(Fork, TellsParentAndChildApart) {
    const pid_t pidSelf = getpid();
    const pid_t pid = VLIBCProcForkEx(71);
    if (pid == 0) {
        _exit(getpid() != pidSelf && getppid() == pidSelf ? 7 : 1);
    }
    ASSERT_GT(pid, 0);
    EXPECT_EQ(WEXITSTATUS(support::WaitFor(pid)), 7);
}

TEST(Fork, ChildHasNoSignalBlockedForAnyFlags) {
    const BlockedSignals blocked;
    for (const int iFlags : {71, 0, 1, -1, 0x7FFFFFFF}) {
        EXPECT_EQ(FromChild(iFlags, [] { return "[" + Blocked() + "]"; }), "[]") << iFlags;
    }
}

TEST(Fork, ParentKeepsItsSignalMask) {
    const BlockedSignals blocked;
    const std::string strBefore = Blocked();
    const pid_t pid = VLIBCProcForkEx(71);
    if (pid == 0) {
        _exit(0);
    }
    EXPECT_EQ(Blocked(), strBefore);
    EXPECT_NE(strBefore, "");
    support::WaitFor(pid);
}

TEST(Fork, ChildKeepsTheSignalDispositions) {
    const std::string strKept = FromChild(71, [] {
        struct sigaction action = {};
        sigaction(SIGPIPE, nullptr, &action);
        return std::string(action.sa_handler == SIG_IGN ? "ignored" : "default");
    });
    EXPECT_EQ(strKept, "default");
    struct sigaction ignore = {};
    struct sigaction before = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before);
    const std::string strIgnored = FromChild(71, [] {
        struct sigaction action = {};
        sigaction(SIGPIPE, nullptr, &action);
        return std::string(action.sa_handler == SIG_IGN ? "ignored" : "default");
    });
    sigaction(SIGPIPE, &before, nullptr);
    EXPECT_EQ(strIgnored, "ignored");
}

TEST(Fork, LeavesErrnoAlone) {
    int iErrno = 0;
    const pid_t pid = support::WithMarkedErrno([] { return VLIBCProcForkEx(71); }, iErrno);
    if (pid == 0) {
        _exit(iErrno == support::ERRNO_MARK ? 0 : 1);
    }
    EXPECT_EQ(iErrno, support::ERRNO_MARK);
    EXPECT_EQ(support::WaitFor(pid), 0);
}

} // namespace
