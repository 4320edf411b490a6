#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include "platform/vlibc.h"
#include "tests/platform/errors.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

using support::ERRNO_MARK;
using support::ExpectFailedWith;
using support::OpenDescriptors;
using support::TempDir;
using support::WithMarkedErrno;

constexpr const char* SZ_WITNESS = VUKO_TEST_WITNESS;

/// An argument vector as the C function wants it.
class Arguments {
public:
    Arguments(std::initializer_list<std::string> listTexts) : _vecTexts(listTexts) {
        for (std::string& strText : _vecTexts) {
            _vecPointers.push_back(strText.data());
        }
        _vecPointers.push_back(nullptr);
    }
    char* const* Get() const { return _vecPointers.data(); }

private:
    std::vector<std::string> _vecTexts;
    std::vector<char*> _vecPointers;
};

int RunShell(const std::string& strScript) {
    return VLIBCExecv("/bin/sh", Arguments{"sh", "-c", strScript}.Get(), 1);
}

Json::Value ReadReport(const std::string& strPath) {
    Json::Value jsReport;
    std::ifstream(strPath) >> jsReport;
    return jsReport;
}

/// Tells the path's failure to start, which must leave nothing behind.
void ExpectNotStarted(const char* szPath, int iExpected) {
    const std::vector<int> vecBefore = OpenDescriptors();
    for (const int iWait : {0, 1}) {
        int iErrno = 0;
        const Arguments arguments{"program"};
        EXPECT_EQ(WithMarkedErrno([&] { return VLIBCExecv(szPath, arguments.Get(), iWait); }, iErrno), -1) << szPath;
        ExpectFailedWith(iErrno, iExpected);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }
    EXPECT_EQ(OpenDescriptors(), vecBefore);
}

TEST(Exec, GivesTheExitStatusBack) {
    for (const int iStatus : {0, 1, 3, 127, 255}) {
        EXPECT_EQ(RunShell("exit " + std::to_string(iStatus)), iStatus);
    }
}

TEST(Exec, GivesASignalBackAs128AndItsNumber) {
    EXPECT_EQ(RunShell("kill -9 $$"), 128 + SIGKILL);
    EXPECT_EQ(RunShell("kill -15 $$"), 128 + SIGTERM);
}

TEST(Exec, LeavesErrnoAloneWhenTheProgramRan) {
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return RunShell("exit 3"); }, iErrno), 3);
    EXPECT_EQ(iErrno, ERRNO_MARK);
}

TEST(Exec, GivesThePidBackWithoutWaiting) {
    const Arguments arguments{"sh", "-c", "exit 5"};
    const int iPid = VLIBCExecv("/bin/sh", arguments.Get(), 0);
    ASSERT_GT(iPid, 0);
    const int iStatus = support::WaitFor(iPid);
    EXPECT_TRUE(WIFEXITED(iStatus));
    EXPECT_EQ(WEXITSTATUS(iStatus), 5);
}

TEST(Exec, TellsWhyAProgramCouldNotBeStarted) {
    const TempDir dir;
    support::WriteFile(dir / "plain", "#!/bin/sh\nexit 0\n");
    support::WriteFile(dir / "noformat", "exit 0\n");
    support::WriteFile(dir / "nointerpreter", "#!/nonexistent/interpreter\n");
    support::WriteFile(dir / "emptyfile", "");
    for (const char* const szName : {"noformat", "nointerpreter", "emptyfile"}) {
        ASSERT_EQ(chmod((dir / szName).c_str(), 0755), 0);
    }
    ExpectNotStarted((dir / "missing").c_str(), ENOENT);
    ExpectNotStarted((dir / "plain").c_str(), EACCES);
    ExpectNotStarted((dir / "noformat").c_str(), ENOEXEC);
    ExpectNotStarted((dir / "emptyfile").c_str(), ENOEXEC);
    ExpectNotStarted((dir / "nointerpreter").c_str(), ENOENT);
    ExpectNotStarted((dir / "plain/under").c_str(), ENOTDIR);
    ExpectNotStarted(dir.Path().c_str(), EACCES);
    ExpectNotStarted("", ENOENT);
    ExpectNotStarted(nullptr, EFAULT);
}

TEST(Exec, DoesNotSearchForAProgram) {
    ExpectNotStarted("true", ENOENT);
    ExpectNotStarted("sh", ENOENT);
}

TEST(Exec, TakesARelativePathAsItStands) {
    const TempDir dir;
    const support::ChildEnd end = support::RunForked([&](int) {
        support::WriteFile(dir / "here", "#!/bin/sh\nexit 4\n");
        if (chmod((dir / "here").c_str(), 0700) != 0 || chdir(dir.Path().c_str()) != 0) {
            return 1;
        }
        const Arguments arguments{"here"};
        return VLIBCExecv("here", arguments.Get(), 1) == 4 && VLIBCExecv("./here", arguments.Get(), 1) == 4 ? 0 : 2;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

TEST(Exec, RefusesANullArgumentVector) {
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCExecv("/bin/true", nullptr, 1); }, iErrno), -1);
    ExpectFailedWith(iErrno, EFAULT);
}

TEST(Exec, HandsArgumentsFolderUmaskAndEnvironmentOn) {
    const TempDir dir;
    const support::ChildEnd end = support::RunForked([&](int) {
        umask(0027);
        setenv("VUKO_TEST_MARK", "a b", 1);
        const Arguments arguments{"name of its own", dir / "report", "0", "", "$HOME *", "\xff"};
        return chdir(dir.Path().c_str()) == 0 ? VLIBCExecv(SZ_WITNESS, arguments.Get(), 1) : 1;
    });
    ASSERT_EQ(end.iExitStatus, 0) << end.strOutput;
    const Json::Value jsReport = ReadReport(dir / "report");
    EXPECT_EQ(jsReport["argv"][0].asString(), "name of its own");
    EXPECT_EQ(jsReport["argv"][3].asString(), "");
    EXPECT_EQ(jsReport["argv"][4].asString(), "$HOME *");
    EXPECT_EQ(jsReport["argv"].size(), 6U);
    EXPECT_EQ(jsReport["cwd"].asString(), dir.Path());
    EXPECT_EQ(jsReport["umask"].asInt(), 0027);
    const auto IsMark = [](const Json::Value& jsEntry) { return jsEntry.asString() == "VUKO_TEST_MARK=a b"; };
    EXPECT_EQ(std::count_if(jsReport["environ"].begin(), jsReport["environ"].end(), IsMark), 1);
}

TEST(Exec, HandsTheSignalMaskOnAsItIs) {
    const TempDir dir;
    const support::ChildEnd end = support::RunForked([&](int) {
        sigset_t setBlocked;
        sigemptyset(&setBlocked);
        sigaddset(&setBlocked, SIGUSR1);
        sigprocmask(SIG_SETMASK, &setBlocked, nullptr);
        const Arguments arguments{"witness", dir / "report"};
        return VLIBCExecv(SZ_WITNESS, arguments.Get(), 1);
    });
    ASSERT_EQ(end.iExitStatus, 0) << end.strOutput;
    const Json::Value jsReport = ReadReport(dir / "report");
    ASSERT_EQ(jsReport["blocked"].size(), 1U);
    EXPECT_EQ(jsReport["blocked"][0].asInt(), SIGUSR1);
}

/// Descriptors that a program started now would get.
std::vector<int> InheritableDescriptors() {
    std::vector<int> vecInheritable;
    for (const int iFd : OpenDescriptors()) {
        if ((fcntl(iFd, F_GETFD) & FD_CLOEXEC) == 0) {
            vecInheritable.push_back(iFd);
        }
    }
    return vecInheritable;
}

std::vector<int> DescriptorsOfWitness(const TempDir& dir) {
    const Arguments arguments{"witness", dir / "report"};
    if (VLIBCExecv(SZ_WITNESS, arguments.Get(), 1) != 0) {
        return {-1};
    }
    std::vector<int> vecDescriptors;
    const Json::Value jsReport = ReadReport(dir / "report");
    for (const Json::Value& jsFd : jsReport["descriptors"]) {
        vecDescriptors.push_back(jsFd.asInt());
    }
    std::sort(vecDescriptors.begin(), vecDescriptors.end());
    return vecDescriptors;
}

TEST(Exec, GivesTheProgramNoDescriptorOfItsOwn) {
    const TempDir dir;
    EXPECT_EQ(DescriptorsOfWitness(dir), InheritableDescriptors());
}

TEST(Exec, GivesTheProgramClosedStandardDescriptorsClosed) {
    for (const std::vector<int>& vecClosed : std::vector<std::vector<int>>{{0}, {1}, {2}, {0, 1}, {1, 2}, {0, 1, 2}}) {
        const TempDir dir;
        const support::ChildEnd end = support::RunForked([&](int) {
            for (const int iFd : vecClosed) {
                close(iFd);
            }
            const std::vector<int> vecInheritable = InheritableDescriptors();
            return DescriptorsOfWitness(dir) == vecInheritable ? 0 : 1;
        });
        EXPECT_EQ(end.iExitStatus, 0) << vecClosed.size() << " closed from " << vecClosed[0];
    }
}

TEST(Exec, TellsWhyEvenWithoutStandardDescriptors) {
    const support::ChildEnd end = support::RunForked([](int) {
        close(0);
        close(1);
        close(2);
        const Arguments arguments{"program"};
        return VLIBCExecv("/nonexistent", arguments.Get(), 1) == -1 && errno == ENOENT ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

TEST(Exec, IsNotMisledByWhatIsWrittenToClosedStandardDescriptors) {
    const support::ChildEnd end = support::RunForked([](int) {
        signal(SIGPIPE, SIG_IGN);
        close(0);
        close(1);
        close(2);
        std::atomic<bool> bStop = false;
        std::thread chatter([&bStop] {
            while (!bStop) {
                for (const int iFd : {0, 1, 2}) {
                    const ssize_t iWritten = write(iFd, "text", 4);
                    static_cast<void>(iWritten);
                }
            }
        });
        int iMisled = 0;
        for (int iRound = 0; iRound < 20; ++iRound) {
            iMisled += RunShell("exit 3") == 3 ? 0 : 1;
        }
        bStop = true;
        chatter.join();
        return iMisled;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

TEST(Exec, LeavesNoDescriptorOpen) {
    const std::vector<int> vecBefore = OpenDescriptors();
    for (int iRound = 0; iRound < 20; ++iRound) {
        RunShell("exit 0");
    }
    EXPECT_EQ(OpenDescriptors(), vecBefore);
}

TEST(Exec, FailsWhereNoDescriptorIsLeft) {
    const support::ChildEnd end = support::RunForked([](int) {
        const struct rlimit few = {32, 32};
        setrlimit(RLIMIT_NOFILE, &few);
        while (dup(0) >= 0) {
        }
        const Arguments arguments{"true"};
        return VLIBCExecv("/bin/true", arguments.Get(), 1) == -1 && errno == EMFILE && VLIBCErrGet() == EMFILE ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

TEST(Exec, CannotWaitWhereSigchldIsIgnored) {
    const support::ChildEnd end = support::RunForked([](int iFdOut) {
        signal(SIGCHLD, SIG_IGN);
        const Arguments arguments{"sh", "-c", "exit 0"};
        if (VLIBCExecv("/bin/sh", arguments.Get(), 1) != -1 || errno != ECHILD || VLIBCErrGet() != ECHILD) {
            return 1;
        }
        dprintf(iFdOut, "ECHILD;");
        if (VLIBCExecv("/nonexistent", arguments.Get(), 1) != -1 || errno != ENOENT || VLIBCErrGet() != ENOENT) {
            return 2;
        }
        return VLIBCExecv("/bin/sh", arguments.Get(), 0) > 0 ? 0 : 3;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(end.strOutput, "ECHILD;");
}

volatile sig_atomic_t iSignalsSeen = 0;

TEST(Exec, WaitsThroughAStormOfSignals) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) { iSignalsSeen = iSignalsSeen + 1; };
    sigaction(SIGALRM, &action, &before); // without SA_RESTART: every call is interrupted
    const struct itimerval storm = {{0, 300}, {0, 300}};
    const struct itimerval calm = {};
    setitimer(ITIMER_REAL, &storm, nullptr);
    const int iStatus = RunShell("i=0; while [ $i -lt 20000 ]; do i=$((i+1)); done; exit 6");
    const Arguments arguments{"program"};
    int iErrno = 0;
    const int iMissing = WithMarkedErrno([&] { return VLIBCExecv("/nonexistent", arguments.Get(), 1); }, iErrno);
    setitimer(ITIMER_REAL, &calm, nullptr);
    signal(SIGALRM, SIG_IGN); // drops one that is still pending
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(iStatus, 6);
    EXPECT_EQ(iMissing, -1);
    EXPECT_EQ(iErrno, ENOENT);
    EXPECT_GT(iSignalsSeen, 3);
}

TEST(Exec, WorksBesideThreadsThatAllocate) {
    std::atomic<bool> bStop = false;
    std::vector<std::thread> vecThreads;
    for (int iThread = 0; iThread < 2; ++iThread) {
        vecThreads.emplace_back([&bStop] {
            while (!bStop) {
                std::vector<std::string> vecGarbage(50, std::string(100, 'x'));
                vecGarbage.clear();
            }
        });
    }
    for (int iRound = 0; iRound < 30; ++iRound) {
        EXPECT_EQ(RunShell("exit 2"), 2);
    }
    bStop = true;
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
}

TEST(ExecListed, PassesTheArgumentsBehindTheProgramsName) {
    const TempDir dir;
    EXPECT_EQ(VLIBCExec(SZ_WITNESS, (dir / "report").c_str(), "0", "third", "", static_cast<char*>(nullptr)), 0);
    const Json::Value jsReport = ReadReport(dir / "report");
    ASSERT_EQ(jsReport["argv"].size(), 5U);
    EXPECT_EQ(jsReport["argv"][0].asString(), SZ_WITNESS);
    EXPECT_EQ(jsReport["argv"][3].asString(), "third");
    EXPECT_EQ(jsReport["argv"][4].asString(), "");
}

TEST(ExecListed, RecordsAStatusThatIsNotZeroAndLeavesErrnoAlone) {
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCExec("/bin/sh", "-c", "exit 9", static_cast<char*>(nullptr)); }, iErrno),
              9);
    EXPECT_EQ(iErrno, ERRNO_MARK);
    EXPECT_EQ(VLIBCErrGet(), 9U);
    EXPECT_STREQ(VLIBCErrorGetFile(), "process.cpp");
    EXPECT_GT(VLIBCErrorGetLine(), 0);
}

TEST(ExecListed, TellsWhyAProgramCouldNotBeStarted) {
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCExec("/nonexistent", static_cast<char*>(nullptr)); }, iErrno), -1);
    ExpectFailedWith(iErrno, ENOENT);
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCExec(nullptr, static_cast<char*>(nullptr)); }, iErrno), -1);
    ExpectFailedWith(iErrno, EFAULT);
}

} // namespace
