#include "service/launch/oldlaunch.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "service/scheduler.h"
#include "tests/fake/call_record.h"
#include "tests/fake/fake_platform.h"
#include "tests/service/service_fixture.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/forked.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

using Texts = std::vector<std::string>;

class Launcher : public testing::Test {
protected:
    ScheduledJob ReadyJob(const Json::Value& jsDefinition = service_test::JobDefinition("job")) {
        ScheduledJob scheduled = service_test::BuildScheduledJob(jsDefinition);
        MarkReady(scheduled, StartReason::Due, ClockReading{1794916800, 29915280, 0});
        return scheduled;
    }

    /// How the only child of this process ended: its status, or -1.
    static int ChildStatus() {
        const int iStatus = support::WaitFor(-1);
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
    }

    static bool WasCalled(const std::string& strCall) {
        const Texts vecCalls = fake::Calls();
        return std::find(vecCalls.begin(), vecCalls.end(), strCall) != vecCalls.end();
    }

    support::CapturedSyslog _log;
    service_test::ServiceFolders _folders;

private:
    fake::ScopedPlatform _platform;
};

} // namespace

TEST_F(Launcher, StartsAJobAndDoesNotWait) {
    ScheduledJob scheduled = ReadyJob();
    EXPECT_TRUE(Launch(scheduled));
    EXPECT_EQ(ChildStatus(), 0);
    EXPECT_FALSE(scheduled.IsReady());
    EXPECT_EQ(scheduled.job._jsJob["expireTime"].asInt(), 0);
    EXPECT_TRUE(WasCalled("execv /bin/true [/bin/true] wait=1"));
    EXPECT_FALSE(WasCalled("sleep 0"));
}

TEST_F(Launcher, PutsTheLabelIntoTheStartLine) {
    ScheduledJob scheduled = service_test::BuildScheduledJob(service_test::JobDefinition("job"));
    MarkReady(scheduled, StartReason::Assure, ClockReading{1794916800, 29915280, 0});
    EXPECT_TRUE(Launch(scheduled));
    EXPECT_EQ(ChildStatus(), 0);
    EXPECT_NE(support::ReadFile(SZF_CRON_LOG_EXEC).find(" as user root (assure)\n"), std::string::npos);
}

TEST_F(Launcher, LeavesAJobReadyThatCouldNotBeForked) {
    fake::Platform().eFork = fake::PlatformState::Fork::Fail;
    fake::Platform().iForkErrno = EAGAIN;
    ScheduledJob scheduled = ReadyJob();
    EXPECT_FALSE(Launch(scheduled));
    EXPECT_TRUE(scheduled.IsReady());
    EXPECT_EQ(_log.Take(), Texts{"<3>cronjob:501 Failed to fork() (Resource temporarily unavailable)"});
    EXPECT_FALSE(Launch(scheduled)); // errno of the first failure is not carried over
    EXPECT_EQ(_log.Take(), Texts{"<3>cronjob:501 Failed to fork() (Resource temporarily unavailable)"});
    fake::Platform().eFork = fake::PlatformState::Fork::Real;
    EXPECT_TRUE(Launch(scheduled));
    EXPECT_EQ(ChildStatus(), 0);
}

TEST_F(Launcher, EndsAChildThatComesBackFromTheLibrary) {
    fake::Platform().mapAccounts.clear();
    const pid_t pidTest = getpid();
    ScheduledJob scheduled = ReadyJob();
    EXPECT_TRUE(Launch(scheduled));
    ASSERT_EQ(getpid(), pidTest);
    EXPECT_EQ(ChildStatus(), EXIT_FAILURE);
    EXPECT_TRUE(WasCalled("_exit 1"));
    EXPECT_EQ(_log.Take().size(), 2U); // the account is unknown, and so the job has no user
}

TEST_F(Launcher, EndsAChildThatTheJsonLibraryThrewOutOfTheLaunch) {
    ScheduledJob scheduled = ReadyJob();
    scheduled.job._jsJob["cmd_list"][0] = 5;
    const pid_t pidTest = getpid();
    EXPECT_TRUE(Launch(scheduled));
    ASSERT_EQ(getpid(), pidTest);
    EXPECT_EQ(ChildStatus(), EXIT_FAILURE);
    const Texts vecMessages = _log.Take();
    ASSERT_EQ(vecMessages.size(), 1U);
    EXPECT_EQ(vecMessages[0].rfind("<3>launcher:1 a job of /test.conf could not be started: ", 0), 0U);
}

TEST_F(Launcher, LosesAndDoublesNoLineOfJobsThatStartTogether) {
    constexpr int JOBS = 60;
    for (int i = 0; i < JOBS; ++i) {
        ScheduledJob scheduled = ReadyJob(service_test::JobDefinition("job" + std::to_string(100 + i)));
        ASSERT_TRUE(Launch(scheduled));
    }
    for (int i = 0; i < JOBS; ++i) {
        EXPECT_EQ(ChildStatus(), 0);
    }
    const std::string strLog = support::ReadFile(SZF_CRON_LOG_EXEC);
    EXPECT_EQ(std::count(strLog.begin(), strLog.end(), '\n'), JOBS);
    for (int i = 0; i < JOBS; ++i) {
        EXPECT_NE(strLog.find("running job: job" + std::to_string(100 + i) + " "), std::string::npos) << i;
    }
    for (const std::string& strMessage : _log.Take()) { // a child whose line another one has moved on says so
        EXPECT_EQ(strMessage.rfind("<3>memorylogger:50 ", 0), 0U) << strMessage;
    }
}
