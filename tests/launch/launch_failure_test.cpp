// What becomes of a job when a step of its start fails.

#include <cstring>

#include "tests/launch/launch_fixture.h"
#include "tests/support/case_name.h"

using VUKO::VUKOCrond::CronJob;

namespace {

class LaunchFailure : public LaunchOnFakes {};

TEST_F(LaunchFailure, OfTheForkKeepsTheJobReadyAndStamped) {
    fake::Platform().eFork = fake::PlatformState::Fork::Fail;
    fake::Platform().iForkErrno = EAGAIN;
    errno = 0;
    _job.Run(30, "manual");
    EXPECT_EQ(_syslog.Take(), Texts{"<3>cronjob:501 Failed to fork() (Resource temporarily unavailable)"});
    EXPECT_EQ(_syslog.Formats(), Texts{"%s:%d Failed to fork() (%m)"});
    EXPECT_EQ(_job._strReadyCrontab, "ready");
    EXPECT_EQ(_job._jsJob["lastExecution"].asInt64(), NOW);
    EXPECT_EQ(_job._jsJob["expireTime"], 0) << "also where it was not there before";
    EXPECT_EQ(fake::Calls(), Texts{"fork 71"});
    EXPECT_FALSE(support::Exists(_log.Path()));
}

TEST_F(LaunchFailure, OfTheForkWithoutAReasonIsReportedPlainly) {
    fake::Platform().eFork = fake::PlatformState::Fork::Fail;
    errno = 0;
    _job.Run(0, "");
    EXPECT_EQ(_syslog.Take(), Texts{"<3>cronjob:501 Failed to fork()"});
    EXPECT_EQ(_syslog.Formats(), Texts{"%s:%d Failed to fork()"});
}

TEST_F(LaunchFailure, ForWantOfMemoryReturnsInTheChild) {
    fake::Platform().bNoMemoryForVectors = true;
    EXPECT_EQ(RunAsChild(), "returned, ready []");
    EXPECT_EQ(_syslog.Take(), Texts{"<3>cronjob:594 new pszCmd failed"});
    EXPECT_EQ(RunAsChild(0, "", ENOMEM), "returned, ready []");
    EXPECT_EQ(_syslog.Take(), Texts{"<3>cronjob:594 new pszCmd failed (Cannot allocate memory)"});
    EXPECT_EQ(fake::Calls(), (Texts{"fork 71", "fork 71"})) << "nothing was tried";
    EXPECT_FALSE(support::Exists(_log.Path()));
}

TEST_F(LaunchFailure, ForAnUnknownAccountReturnsInTheChildAndLeavesTheLogAlone) {
    Json::Value jsJob = TextCommandJob("backup", "package", "/bin/backup -q");
    jsJob["config"]["package_username"] = "ghost";
    _job = CronJob(jsJob);
    _job._strReadyCrontab = "ready";
    EXPECT_EQ(RunAsChild(1, "manual"), "returned, ready []");
    EXPECT_EQ(_syslog.Take(), (Texts{"<3>cronjob:104 user ghost not exist",
                                     "<3>cronjob:604 Failed to get user group info for job [backup]"}));
    EXPECT_EQ(fake::Calls(), (Texts{"fork 71", "sleep 1", "signal 17 default", "account ghost"}));
    EXPECT_FALSE(support::Exists(_log.Path()));
    EXPECT_FALSE(support::Exists(_log.StagedPath()));
    EXPECT_EQ(_job._strReadyCrontab, "ready") << "that of the parent is the parent's";
}

TEST_F(LaunchFailure, ForAnAccountThatCannotBeLookedUpNamesTheReasonInEachMessage) {
    fake::Platform().mapAccounts.clear();
    fake::Platform().iAccountErrno = EIO;
    EXPECT_EQ(RunAsChild(), "returned, ready []");
    EXPECT_EQ(_syslog.Take(),
              (Texts{"<3>cronjob:104 user root not exist (Input/output error)",
                     "<3>cronjob:604 Failed to get user group info for job [backup] (Input/output error)"}));
}

TEST_F(LaunchFailure, ForAnAccountOfNoKnownClassFollowsItsTwoOtherMessages) {
    _job._jsJob["config"]["user"] = "admin";
    EXPECT_EQ(RunAsChild(), "returned, ready []");
    EXPECT_EQ(_syslog.Take(),
              (Texts{"<3>cronjob:74 wrong user admin! you can only specify root/system/package in config [\"backup\"]",
                     "<3>cronjob:96 Unable to determine user",
                     "<3>cronjob:604 Failed to get user group info for job [backup]"}));
    EXPECT_EQ(fake::Calls(), (Texts{"fork 71", "signal 17 default"}));
}

TEST_F(LaunchFailure, ForAnUnknownAccountLetsTheParentGoOnAsAfterAnyFork) {
    fake::Platform().mapAccounts.clear();
    const support::ChildEnd end = support::RunForked([this](int) {
        const pid_t pidService = getpid();
        _job.Run(0, "");
        if (getpid() != pidService) {
            return 7; // what a caller has to do
        }
        return _job._strReadyCrontab.empty() ? support::WaitFor(-1) >> 8 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 7);
    EXPECT_EQ(_syslog.Take().size(), 2U);
}

/// Which of the three steps fail, and with what.
struct Identity {
    const char* szName;
    int iInitgroups;
    int iSetgid;
    int iSetuid;
};

class LaunchIdentityFailure : public LaunchOnFakes, public ::testing::WithParamInterface<Identity> {};

INSTANTIATE_TEST_SUITE_P(Each, LaunchIdentityFailure,
                         ::testing::Values(Identity{"Groups", EPERM, 0, 0}, Identity{"Group", 0, EPERM, 0},
                                           Identity{"User", 0, 0, EPERM}, Identity{"GroupsAndUser", ENOMEM, 0, EAGAIN},
                                           Identity{"All", EPERM, EINVAL, EAGAIN}),
                         support::CaseName());

TEST_P(LaunchIdentityFailure, IsLoggedWithItsReasonAndTheJobRunsAllTheSame) {
    fake::Platform().iInitgroupsErrno = GetParam().iInitgroups;
    fake::Platform().iSetgidErrno = GetParam().iSetgid;
    fake::Platform().iSetuidErrno = GetParam().iSetuid;
    EXPECT_EQ(RunAsChild(), "_exit 0");
    std::string strExpected = StartLine();
    const auto expect = [&strExpected](const char* szWhat, int iErrno) {
        if (iErrno != 0) {
            strExpected += Line(std::string(szWhat) + "backup for user root[" + strerror(iErrno) + "]");
        }
    };
    expect("Failed to initgroups for", GetParam().iInitgroups);
    expect("Failed to setgid for", GetParam().iSetgid);
    expect("Failed to setuid for", GetParam().iSetuid);
    EXPECT_EQ(_log.Text(), strExpected);
    EXPECT_EQ(CallsFrom("initgroups"), (Texts{"initgroups root 0", "setgid 0", "setuid 0",
                                              "execv /bin/backup [/bin/backup] [-q] wait=1", "_exit 0"}));
}

TEST_F(LaunchFailure, OfTheIdentityHasNoBlankBeforeTheJobsName) {
    fake::Platform().iInitgroupsErrno = EPERM;
    fake::Platform().iSetgidErrno = EPERM;
    fake::Platform().iSetuidErrno = EPERM;
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(_log.Text(), StartLine() + Line("Failed to initgroups forbackup for user root[Operation not permitted]") +
                               Line("Failed to setgid forbackup for user root[Operation not permitted]") +
                               Line("Failed to setuid forbackup for user root[Operation not permitted]"));
}

TEST_F(LaunchFailure, OfTheProgramIsLoggedWithTheReturnCodeAndTheReason) {
    fake::Platform().iExecvResult = -1;
    fake::Platform().iExecvErrno = ENOENT;
    EXPECT_EQ(RunAsChild(0, "manual"), "_exit 0");
    EXPECT_EQ(_log.Text(), Line("running job: backup with command: /bin/backup -q as user root (manual)") +
                               Line("running job: backup with command: /bin/backup -q failed, return code: -1, "
                                    "error: No such file or directory"));
}

TEST_F(LaunchFailure, OfTheProgramShowsAnyNegativeReturnCode) {
    fake::Platform().iExecvResult = -2147483647 - 1;
    fake::Platform().iExecvErrno = EACCES;
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(_log.Text(), StartLine() + Line("running job: backup with command: /bin/backup -q failed, return code: "
                                              "-2147483648, error: Permission denied"));
}

TEST_F(LaunchFailure, KeepsItsReasonWhileTheLogsOwnWorkDisturbsErrno) {
    fake::Platform().iInitgroupsErrno = EPERM;
    fake::Platform().iSetuidErrno = EAGAIN;
    fake::Platform().iExecvResult = -1;
    fake::Platform().iExecvErrno = ETXTBSY;
    _clock.FailLocaltime(EOVERFLOW);
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(_log.Text(), "running job: backup with command: /bin/backup -q as user root\n"
                           "Failed to initgroups forbackup for user root[Operation not permitted]\n"
                           "Failed to setuid forbackup for user root[Resource temporarily unavailable]\n"
                           "running job: backup with command: /bin/backup -q failed, return code: -1, error: Text "
                           "file busy\n");
}

TEST_F(LaunchFailure, IsNoneForAProgramThatRanWhateverItsStatus) {
    for (const int iStatus : {0, 3, 127, 137}) {
        fake::Platform().iExecvResult = iStatus;
        fake::Platform().iExecvErrno = EIO;
        std::filesystem::remove(_log.Path());
        EXPECT_EQ(RunAsChild(), "_exit 0");
        EXPECT_EQ(_log.Text(), StartLine()) << iStatus;
    }
}

TEST_F(LaunchFailure, OfTheLogDoesNotKeepTheJobFromRunning) {
    const support::ScopedValue<std::string> path(CronJob::gLogger._strMemLogPath, _log.Dir() / "missing/staged.log");
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(CallsFrom("execv"), (Texts{"execv /bin/backup [/bin/backup] [-q] wait=1", "_exit 0"}));
    EXPECT_EQ(_syslog.Take(),
              (Texts{"<3>memorylogger:68 open memory logger failed (No such file or directory)",
                     "<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)"}));
}

} // namespace
