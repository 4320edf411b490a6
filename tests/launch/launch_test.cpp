// Starting a job: the calls that are made, in their order, and the lines in the execution log.

#include <climits>

#include "tests/launch/launch_fixture.h"
#include "tests/support/case_name.h"

using VUKO::VUKOCrond::CronJob;

namespace {

class Launch : public LaunchOnFakes {};

TEST_F(Launch, MakesItsCallsAndLogsInAFixedOrder) {
    std::string strSeen;
    fake::Platform().onCall = [this, &strSeen] {
        const std::string strLog = _log.Text();
        if (strLog != strSeen) {
            fake::RecordCall("in the log: " + strLog.substr(strSeen.size()));
            strSeen = strLog;
        }
    };
    EXPECT_EQ(RunAsChild(30, "manual"), "_exit 0");
    EXPECT_EQ(
        fake::Calls(),
        (Texts{"fork 71", "sleep 30", "signal 17 default", "account root",
               "in the log: " + Line("running job: backup with command: /bin/backup -q as user root (manual)"),
               "initgroups root 0", "setgid 0", "setuid 0", "execv /bin/backup [/bin/backup] [-q] wait=1", "_exit 0"}));
    EXPECT_FALSE(support::Exists(_log.StagedPath()));
}

TEST_F(Launch, OfAPackagesJobTakesThePackagesAccount) {
    Json::Value jsJob = ListCommandJob("sync", "package", {"/opt/sync"});
    jsJob["config"]["package_username"] = "alice";
    _job = CronJob(jsJob);
    fake::Platform().mapAccounts["alice"] = {1001, 2002};
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(CallsFrom("account"), (Texts{"account alice", "initgroups alice 2002", "setgid 2002", "setuid 1001",
                                           "execv /opt/sync [/opt/sync] wait=1", "_exit 0"}));
    EXPECT_EQ(_log.Text(), Line("running job: sync with command: /opt/sync  as user alice"))
        << "the text of an argument vector ends with a blank of its own";
}

TEST_F(Launch, PassesTheArgumentVectorAsItIs) {
    const std::vector<std::string> vecCommand = {"/bin/a b", "", "$HOME `x` \"q\"", "*", ""};
    _job = CronJob(ListCommandJob("odd", "root", vecCommand));
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(CallsFrom("execv"), (Texts{"execv /bin/a b [/bin/a b] [] [$HOME `x` \"q\"] [*] [] wait=1", "_exit 0"}));
}

TEST_F(Launch, RunsTheArgumentVectorOfTheRecordAndNotThatOfTheDefinition) {
    _job._jsJob["cmd_list"][0] = "/tmp/staged/backup";
    _job._jsJob["cmd_str"] = "only printed";
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(CallsFrom("execv"), (Texts{"execv /tmp/staged/backup [/tmp/staged/backup] [-q] wait=1", "_exit 0"}));
    EXPECT_EQ(_log.Text(), Line("running job: backup with command: only printed as user root"));
}

TEST_F(Launch, PassesANullPathWhenTheArgumentVectorIsEmpty) {
    _job._jsJob["cmd_list"] = Json::Value(Json::arrayValue);
    EXPECT_EQ(RunAsChild(), "_exit 0");
    EXPECT_EQ(CallsFrom("execv"), (Texts{"execv (null) wait=1", "_exit 0"}));
}

TEST_F(Launch, LetsTheJsonLibrarysExceptionOutOfTheChildForAnArgumentThatIsNoString) {
    _job._jsJob["cmd_list"].append(7);
    EXPECT_NE(RunAsChild().find("exception: "), std::string::npos);
    EXPECT_EQ(CallsFrom("account"), Texts{"account root"});
    EXPECT_EQ(_log.Text(), "");
}

struct Delay {
    const char* szName;
    int iSeconds;
    const char* szCall; ///< empty for none
};

class LaunchDelay : public LaunchOnFakes, public ::testing::WithParamInterface<Delay> {};

INSTANTIATE_TEST_SUITE_P(Delays, LaunchDelay,
                         ::testing::Values(Delay{"None", 0, ""}, Delay{"Negative", -1, ""},
                                           Delay{"MostNegative", INT_MIN, ""}, Delay{"OneSecond", 1, "sleep 1"},
                                           Delay{"ThirtySeconds", 30, "sleep 30"},
                                           Delay{"Longest", INT_MAX, "sleep 2147483647"}),
                         support::CaseName());

TEST_P(LaunchDelay, IsSleptInTheChildWhenItIsMoreThanNone) {
    EXPECT_EQ(RunAsChild(GetParam().iSeconds), "_exit 0");
    Texts vecExpected = {"fork 71"};
    if (*GetParam().szCall != '\0') {
        vecExpected.emplace_back(GetParam().szCall);
    }
    vecExpected.emplace_back("signal 17 default");
    Texts vecCalls = fake::Calls();
    vecCalls.resize(vecExpected.size());
    EXPECT_EQ(vecCalls, vecExpected);
}

struct Label {
    const char* szName;
    const char* szLabel;
    const char* szPrinted;
};

class LaunchLabel : public LaunchOnFakes, public ::testing::WithParamInterface<Label> {};

INSTANTIATE_TEST_SUITE_P(Labels, LaunchLabel,
                         ::testing::Values(Label{"None", "", ""}, Label{"Word", "manual", " (manual)"},
                                           Label{"Blank", " ", " ( )"}, Label{"Odd", "a (b) %s", " (a (b) %s)"}),
                         support::CaseName());

TEST_P(LaunchLabel, EndsTheStartLine) {
    EXPECT_EQ(RunAsChild(0, GetParam().szLabel), "_exit 0");
    EXPECT_EQ(_log.Text(), Line(std::string("running job: backup with command: /bin/backup -q as user root") +
                                GetParam().szPrinted));
}

class LaunchRecord : public LaunchOnFakes {};

TEST_F(LaunchRecord, IsStampedBeforeTheFork) {
    _job._jsJob["expireTime"] = 12345;
    _job._jsJob["lastExecution"] = "of no kind that is written";
    Json::Value jsAtFork;
    fake::Platform().eFork = fake::PlatformState::Fork::Fail;
    fake::Platform().iForkErrno = EAGAIN;
    fake::Platform().onCall = [this, &jsAtFork] { jsAtFork = _job._jsJob; };
    _job.Run(0, "");
    EXPECT_EQ(_syslog.Take().size(), 1U);
    EXPECT_EQ(jsAtFork["lastExecution"].type(), Json::intValue);
    EXPECT_EQ(jsAtFork["lastExecution"].asInt64(), NOW);
    EXPECT_EQ(jsAtFork["expireTime"].type(), Json::intValue);
    EXPECT_EQ(jsAtFork["expireTime"].asInt64(), 0);
    EXPECT_EQ(_job._jsJob, jsAtFork);
}

TEST_F(LaunchRecord, IsStampedWithTheMomentOfTheCallAndNotThatOfTheEndOfTheDelay) {
    _clock.AdvancePerReading(60);
    const int iReadings = _clock.Readings();
    _job._jsJob.removeMember("lastExecution");
    fake::Platform().eFork = fake::PlatformState::Fork::Fail;
    fake::Platform().iForkErrno = EAGAIN;
    _job.Run(30, "");
    EXPECT_EQ(_syslog.Take().size(), 1U);
    EXPECT_EQ(_job._jsJob["lastExecution"].asInt64(), NOW);
    EXPECT_EQ(_clock.Readings(), iReadings + 1);
}

TEST_F(LaunchRecord, OfTheParentIsNoLongerReadyWhileTheChildRunsTheJob) {
    _job.Run(30, "manual");
    EXPECT_EQ(_job._strReadyCrontab, "");
    EXPECT_EQ(_job._jsJob["lastExecution"].asInt64(), NOW);
    EXPECT_EQ(_job._jsJob["expireTime"].asInt(), 0);
    EXPECT_EQ(support::WaitFor(-1), 0) << "the child ends with status 0";
    EXPECT_EQ(fake::Calls().back(), "_exit 0");
    EXPECT_EQ(_log.Text(), Line("running job: backup with command: /bin/backup -q as user root (manual)"));
}

} // namespace
