#include "platform/launchhooks.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/vlibc.h"
#include "tests/platform/errors.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

/// Hooks that write down when they were called. They are taken away again at the end of the test.
class LaunchHooks : public testing::Test {
protected:
    LaunchHooks() {
        _hooks.context = this;
        _hooks.forkedParent = [](void* pTest, pid_t pid) { Self(pTest).Note("parent of " + std::to_string(pid)); };
        _hooks.forkedChild = [](void* pTest) { Self(pTest).Note("child"); };
        _hooks.beforeExec = [](void* pTest, const char* szPath) {
            Self(pTest).Note(std::string("before ") + szPath);
            return Self(pTest)._iRefusal;
        };
        _hooks.notStarted = [](void* pTest, int iCode) { Self(pTest).Note("not started " + std::to_string(iCode)); };
        VLIBCLaunchHooksSet(&_hooks);
    }
    ~LaunchHooks() override { VLIBCLaunchHooksSet(nullptr); }

    static LaunchHooks& Self(void* pTest) { return *static_cast<LaunchHooks*>(pTest); }
    void Note(const std::string& strCall) { _vecCalls.push_back(strCall); }
    static void NoteIn(void* pTest, const std::string& strCall) { Self(pTest).Note(strCall); }

    /// Runs a shell's script by VLIBCExecv() and waits.
    static int RunShell(const std::string& strScript) {
        std::string astrArguments[] = {"sh", "-c", strScript};
        char* const aszArguments[] = {astrArguments[0].data(), astrArguments[1].data(), astrArguments[2].data(),
                                      nullptr};
        return VLIBCExecv("/bin/sh", aszArguments, 1);
    }
    static int RunMissing() {
        char* const aszArguments[] = {nullptr};
        return VLIBCExecv("/nonexistent", aszArguments, 1);
    }

    VLIBCLaunchHooks _hooks = {};
    std::vector<std::string> _vecCalls;
    int _iRefusal = 0;
};

using Texts = std::vector<std::string>;

TEST_F(LaunchHooks, AreCalledOnBothSidesOfAFork) {
    const pid_t pid = VLIBCProcForkEx(71);
    if (pid == 0) {
        _exit(_vecCalls == Texts{"child"} ? 7 : 1);
    }
    EXPECT_EQ(WEXITSTATUS(support::WaitFor(pid)), 7);
    EXPECT_EQ(_vecCalls, Texts{"parent of " + std::to_string(pid)});
}

TEST_F(LaunchHooks, LeaveErrnoOfAForkAlone) {
    _hooks.forkedParent = [](void*, pid_t) { errno = EIO; };
    VLIBCLaunchHooksSet(&_hooks);
    int iErrno = 0;
    const pid_t pid = support::WithMarkedErrno([] { return VLIBCProcForkEx(71); }, iErrno);
    if (pid == 0) {
        _exit(0);
    }
    support::WaitFor(pid);
    EXPECT_EQ(iErrno, support::ERRNO_MARK);
}

TEST_F(LaunchHooks, SeeAProgramBeforeItIsStarted) {
    EXPECT_EQ(RunShell("exit 3"), 3);
    EXPECT_EQ(_vecCalls, Texts{"before /bin/sh"});
}

TEST_F(LaunchHooks, RefuseAProgram) {
    _iRefusal = EPERM;
    const support::TempDir dir;
    int iErrno = 0;
    EXPECT_EQ(support::WithMarkedErrno([&] { return RunShell(": > " + (dir / "ran")); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, EPERM);
    EXPECT_FALSE(support::Exists(dir / "ran"));
    EXPECT_EQ(_vecCalls, Texts{"before /bin/sh"}); // who refuses knows that it was not started
}

TEST_F(LaunchHooks, HearOfAProgramThatCouldNotBeStarted) {
    int iErrno = 0;
    EXPECT_EQ(support::WithMarkedErrno([] { return RunMissing(); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, ENOENT);
    EXPECT_EQ(_vecCalls, Texts({"before /nonexistent", "not started " + std::to_string(ENOENT)}));
}

TEST_F(LaunchHooks, ActInTheProgramsProcess) {
    _hooks.inChild = [](void*) { setsid(); };
    VLIBCLaunchHooksSet(&_hooks);
    EXPECT_EQ(RunShell("[ $(ps -o sid= -p $$) = $$ ]"), 0);
    VLIBCLaunchHooksSet(nullptr);
    EXPECT_EQ(RunShell("[ $(ps -o sid= -p $$) = $$ ]"), 1);
}

TEST_F(LaunchHooks, GiveTheProgramTheMaskOfTheCallerWhateverTheyDo) {
    const support::ChildEnd end = support::RunForked([&](int) {
        sigset_t setBlocked;
        sigemptyset(&setBlocked);
        sigaddset(&setBlocked, SIGUSR1);
        sigprocmask(SIG_SETMASK, &setBlocked, nullptr);
        _hooks.inChild = [](void*) {
            sigset_t setNow;
            sigprocmask(SIG_SETMASK, nullptr, &setNow);
            if (sigismember(&setNow, SIGTERM) != 1) { // a handler of the caller's could run here
                _exit(99);
            }
            sigemptyset(&setNow);
            sigprocmask(SIG_SETMASK, &setNow, nullptr);
        };
        VLIBCLaunchHooksSet(&_hooks);
        return RunShell("kill -USR1 $$; exit 4"); // SIGUSR1 would end it
    });
    EXPECT_EQ(end.iExitStatus, 4);
}

TEST_F(LaunchHooks, WaitInPlaceOfThePlatform) {
    _hooks.wait = [](void* pTest, pid_t pid, int* pStatus) {
        EXPECT_EQ(waitpid(pid, pStatus, 0), pid);
        NoteIn(pTest, "waited");
        *pStatus = WEXITSTATUS(*pStatus) == 3 ? 9 << 8 : -1;
        return 0;
    };
    VLIBCLaunchHooksSet(&_hooks);
    EXPECT_EQ(RunShell("exit 3"), 9);
    EXPECT_EQ(_vecCalls.back(), "waited");
}

TEST_F(LaunchHooks, TellWhyTheyCouldNotWait) {
    _hooks.wait = [](void*, pid_t pid, int*) {
        support::WaitFor(pid);
        errno = ENOTRECOVERABLE;
        return -1;
    };
    VLIBCLaunchHooksSet(&_hooks);
    int iErrno = 0;
    EXPECT_EQ(support::WithMarkedErrno([] { return RunShell("exit 3"); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, ENOTRECOVERABLE);
    EXPECT_EQ(_vecCalls, Texts{"before /bin/sh"});
}

TEST_F(LaunchHooks, LeaveVLIBCExecAlone) {
    _iRefusal = EPERM;
    EXPECT_EQ(VLIBCExec("/bin/sh", "-c", "exit 3", static_cast<char*>(nullptr)), 3);
    EXPECT_EQ(_vecCalls, Texts{});
}

TEST_F(LaunchHooks, AreGoneOnceTheyWereTakenAway) {
    VLIBCLaunchHooksSet(nullptr);
    const pid_t pid = VLIBCProcForkEx(71);
    if (pid == 0) {
        _exit(_vecCalls.empty() ? 0 : 1);
    }
    EXPECT_EQ(support::WaitFor(pid), 0);
    EXPECT_EQ(RunShell("exit 3"), 3);
    EXPECT_EQ(RunMissing(), -1);
    EXPECT_EQ(_vecCalls, Texts{});
}

volatile sig_atomic_t iHandled = 0;

TEST(Exec, RunsNoHandlerOfTheCallersInTheProgramsProcess) {
    // Signals for the whole group reach the program's process too, while it still has the caller's memory.
    const support::ChildEnd end = support::RunForked([](int) {
        setpgid(0, 0);
        static pid_t pidSelf = getpid();
        signal(SIGUSR1, [](int) { iHandled = iHandled + (getpid() == pidSelf ? 0 : 1); });
        const pid_t pidStorm = fork();
        if (pidStorm == 0) {
            signal(SIGUSR1, SIG_IGN);
            for (int i = 0; i < 20000; ++i) {
                kill(0, SIGUSR1);
            }
            _exit(0);
        }
        for (int iRound = 0; iRound < 100; ++iRound) {
            char szTrue[] = "true";
            char* const aszArguments[] = {szTrue, nullptr};
            VLIBCExecv("/bin/true", aszArguments, 1); // the signal may well end it
        }
        support::WaitFor(pidStorm);
        return iHandled == 0 ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

} // namespace
