#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "service/launch/launcher.h"
#include "service/launch/reaper.h"
#include "service/uniquefd.h"
#include "tests/launch/job_documents.h"
#include "tests/platform/private_mounts.h"
#include "tests/service/launch/launch_fixture.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/forked.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using launch_test::Eventually;
using launch_test::Texts;

namespace {

/// A system account that every Debian has; only those may be a job's "user".
constexpr const char* OTHER = "nobody";

/// Everything here is done in a process of its own, which may lose what it has.
class RootLaunches : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        ASSERT_EQ(chmod((_site / "").c_str(), 01777), 0);
    }

    /// A job of a package whose account is the other one.
    static CronJob OthersJob(const Texts& vecCommand) {
        Json::Value jsJob = ListCommandJob("job", "package", vecCommand);
        jsJob["config"]["package_username"] = OTHER;
        CronJob job(jsJob);
        for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
            job.GenerateSchedule(strType, -1);
        }
        return job;
    }

    RunEnd RunOthers(const Texts& vecCommand) {
        LaunchOrder order = _site.Order(1);
        order.account = FindAccount(OTHER).value();
        CronJob job = OthersJob(vecCommand);
        _site.TheLauncher().Start(job, order);
        const RunEnd end = _site.AwaitEnd(1);
        support::WaitFor(-1);
        return end;
    }

    Json::Value WitnessOfOther() {
        EXPECT_EQ(RunOthers({VUKO_WITNESS, _site / "report"}).eKind, EndKind::Exited);
        Json::Value js;
        std::ifstream(_site / "report") >> js;
        return js;
    }

    static void LoseIdentityCapabilities() {
        struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        struct __user_cap_data_struct aData[_LINUX_CAPABILITY_U32S_3] = {};
        ASSERT_EQ(syscall(SYS_capget, &header, aData), 0);
        aData[0].effective &= ~((1U << CAP_SETUID) | (1U << CAP_SETGID));
        ASSERT_EQ(syscall(SYS_capset, &header, aData), 0);
    }

    support::CapturedSyslog _log;
    launch_test::LaunchSite _site;
};

TEST_F(RootLaunches, GiveAProgramTheIdentityOfItsAccountAndNothingElse) {
    const Account account = FindAccount(OTHER).value();
    const Json::Value js = WitnessOfOther();
    for (Json::ArrayIndex i = 0; i < 3; ++i) {
        EXPECT_EQ(js["uids"][i].asUInt(), account.uid);
        EXPECT_EQ(js["gids"][i].asUInt(), account.gid);
    }
    EXPECT_EQ(js["groups"].size(), 1U);
    EXPECT_EQ(js["cwd"].asString(), "/"); // that account's home does not exist
    EXPECT_EQ(js["environ"][0].asString(), "PATH=/usr/local/bin:/usr/bin:/bin");
    EXPECT_EQ(js["environ"][3].asString(), std::string("USER=") + OTHER);
    EXPECT_EQ(js["descriptors"].size(), 3U);
}

TEST_F(RootLaunches, DoNotEnterAHomeThatTheAccountMayNot) {
    LaunchOrder order = _site.Order(1);
    order.account = FindAccount(OTHER).value();
    ASSERT_EQ(mkdir((_site / "home").c_str(), 0700), 0);
    order.account.strHome = _site / "home";
    CronJob job = OthersJob({"/bin/pwd"});
    _site.TheLauncher().Start(job, order);
    support::WaitFor(-1);
    EXPECT_EQ(_site.Output("job"), "/\n");
}

TEST_F(RootLaunches, HideTheProcessThatWaitsFromItsAccount) {
    EXPECT_EQ(RunOthers({"/bin/sh", "-c", "ls /proc/$PPID/fd; echo $?"}).iCode, 0);
    EXPECT_NE(_site.Output("job").find("Permission denied"), std::string::npos) << _site.Output("job");
}

TEST_F(RootLaunches, RefuseAProgramWhoseIdentityCannotBeTaken) {
    const support::ChildEnd end = support::RunForked([this](int) {
        LoseIdentityCapabilities();
        const bool bKnown = !CanBecome(FindAccount(OTHER).value()) && CanBecome(FindAccount("root").value());
        const RunEnd ended = RunOthers({"/bin/touch", _site / "ran"});
        return bKnown && ended.eKind == EndKind::NotStarted && ended.iCode == EPERM ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0) << end.strOutput;
    EXPECT_FALSE(support::Exists(_site / "ran"));
    EXPECT_EQ(_log.Take(), Texts{"<2>launchchild:1 job is not started: its identity is not that of account nobody"});
    EXPECT_NE(_site.ExecutionLog().find(" failed, return code: -1, error: Operation not permitted\n"),
              std::string::npos)
        << _site.ExecutionLog();
}

TEST_F(RootLaunches, RefuseAnAccountThatHasBecomeAnotherMeanwhile) {
    LaunchOrder order = _site.Order(1);
    order.account = FindAccount(OTHER).value();
    order.account.gid = 12;
    CronJob job = OthersJob({"/bin/touch", _site / "ran"});
    _site.TheLauncher().Start(job, order);
    EXPECT_EQ(_site.AwaitEnd(1).eKind, EndKind::NotStarted);
    support::WaitFor(-1);
    EXPECT_FALSE(support::Exists(_site / "ran"));
    const Texts vecMessages = _log.Take();
    ASSERT_FALSE(vecMessages.empty());
    EXPECT_EQ(vecMessages[0].rfind("<2>launchchild:1 ", 0), 0U) << vecMessages[0];
}

TEST_F(RootLaunches, KnowThatNoAccountCanBeBecomeThatANamespaceDoesNotHave) {
    const Account account = FindAccount(OTHER).value();
    EXPECT_TRUE(CanBecome(account));
    const support::ChildEnd end = support::RunForked([&account](int) {
        if (unshare(CLONE_NEWUSER) != 0) {
            return 2;
        }
        support::WriteFile("/proc/self/uid_map", "0 0 1\n");
        support::WriteFile("/proc/self/setgroups", "deny");
        support::WriteFile("/proc/self/gid_map", "0 0 1\n");
        return geteuid() == 0 && !CanBecome(account) ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

TEST_F(RootLaunches, AreNotSparedWhenMemoryRunsOutAsTheServiceIs) {
    const support::ChildEnd end = support::RunForked([this](int) {
        // Not even root may lower it everywhere. So it is raised, and the service reads that it is lowered.
        const std::string strScore = "/proc/" + std::to_string(getpid()) + "/oom_score_adj";
        support::WriteFile(strScore, "500");
        support::WriteFile(_site / "lowered", "-500\n");
        support::PrivateMounts mounts;
        mounts.Bind(_site / "lowered", strScore);
        _site.StartAnew();
        _site.StartShell(1, "cat /proc/self/oom_score_adj");
        return support::WaitFor(-1);
    });
    EXPECT_EQ(end.iExitStatus, 0) << end.strOutput;
    EXPECT_EQ(_site.Output("job"), "0\n");
}

TEST_F(RootLaunches, ReapStrangersAsTheFirstProcessOfAContainer) {
    const support::ChildEnd end = support::RunForked([this](int) {
        if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) {
            return 1;
        }
        const pid_t pidFirst = fork();
        if (pidFirst == 0) {
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
            mount("proc", "/proc", "proc", 0, nullptr);
            _site.StartAnew();
            const pid_t pidChild = _site.StartShell(1, "(setsid sh -c 'sleep 0.05' &) & exit 3");
            std::vector<ReapedChild> vecReaped;
            const bool bAll = Eventually([&] {
                for (const ReapedChild& child : ReapChildren()) {
                    vecReaped.push_back(child);
                }
                return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
            });
            const bool bTold = _site.AwaitEnd(1).iCode == 3;
            const bool bStranger = vecReaped.size() >= 2;
            const bool bOwn =
                std::find(vecReaped.begin(), vecReaped.end(), ReapedChild{pidChild, 0}) != vecReaped.end();
            _exit(getpid() == 1 && bAll && bTold && bStranger && bOwn ? 0 : 1);
        }
        const int iStatus = support::WaitFor(pidFirst);
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 2;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

/// The place where systemd's journal takes the output of programs.
UniqueFd ListenAsJournal() {
    mkdir("/run/systemd", 0755);
    mkdir("/run/systemd/system", 0755);
    mkdir("/run/systemd/journal", 0755);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string strPath = "/run/systemd/journal/stdout";
    strPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(fd.Get(), reinterpret_cast<struct sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(fd.Get(), 5), 0);
    return fd;
}

TEST_F(RootLaunches, WriteToTheJournalWhereThereIsOne) {
    const support::ChildEnd end = support::RunForked([this](int iFdOut) {
        support::PrivateMounts mounts;
        mounts.MountMemory("/run");
        const UniqueFd fdJournal = ListenAsJournal();
        Launcher::Settings settings;
        settings.strRunTable = _site / "other runs";
        settings.strOutputFolder = _site / "output";
        Launcher launcher(settings);
        CronJob job = launch_test::JobOf({"/bin/sh", "-c", "echo out; echo err >&2"});
        LaunchOrder order = _site.Order(1);
        order.strIdentifier = "the job";
        launcher.Start(job, order);
        const UniqueFd fdStream(accept4(fdJournal.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        char szText[1000];
        ssize_t iRead = 0;
        while ((iRead = read(fdStream.Get(), szText, sizeof(szText))) > 0) {
            EXPECT_EQ(write(iFdOut, szText, static_cast<std::size_t>(iRead)), iRead);
        }
        return support::WaitFor(-1);
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(end.strOutput.rfind("the job\n", 0), 0U) << end.strOutput;
    EXPECT_NE(end.strOutput.find("\n6\n1\n"), std::string::npos) << end.strOutput; // LOG_INFO, with prefixes
    EXPECT_EQ(end.strOutput.substr(end.strOutput.size() - 8), "out\nerr\n");
    EXPECT_FALSE(support::Exists(_site / "output/the_job.log"));
}

} // namespace
