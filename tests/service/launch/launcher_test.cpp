#include "service/launch/launcher.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>

#include "base/export.h"
#include "service/launch/processid.h"
#include "service/launch/reaper.h"
#include "tests/launch/job_documents.h"
#include "tests/service/launch/launches.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using launch_test::Launches;
using launch_test::Texts;

namespace {

bool bForksFail = false;

} // namespace

/// Stands before the C library's for the platform too.
extern "C" VUKO_API pid_t fork() noexcept {
    if (bForksFail) {
        errno = EAGAIN;
        return -1;
    }
    return reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"))();
}

namespace {

using Kind = RunReport::Kind;

Json::Value ReadReport(const std::string& strPath) {
    Json::Value js;
    std::ifstream fs(strPath);
    if (fs) {
        fs >> js;
    }
    return js;
}

std::vector<int> Numbers(const Json::Value& jsNumbers) {
    std::vector<int> vecNumbers;
    for (const Json::Value& jsNumber : jsNumbers) {
        vecNumbers.push_back(jsNumber.asInt());
    }
    std::sort(vecNumbers.begin(), vecNumbers.end());
    return vecNumbers;
}

std::set<std::string> Environment(const Json::Value& jsReport) {
    std::set<std::string> setEntries;
    for (const Json::Value& jsEntry : jsReport["environ"]) {
        setEntries.insert(jsEntry.asString());
    }
    return setEntries;
}

TEST_F(Launches, GiveAProgramNothingOfTheServiceButItsAccount) {
    // A service with everything that a job should not see, in a process of its own.
    const support::ChildEnd end = support::RunForked([this](int) {
        sigset_t setBlocked;
        sigfillset(&setBlocked);
        sigprocmask(SIG_SETMASK, &setBlocked, nullptr);
        signal(SIGUSR1, SIG_IGN);
        signal(SIGPIPE, SIG_IGN);
        umask(0077);
        const int iInheritable = open("/", O_RDONLY);
        dup2(iInheritable, 200);
        clearenv();
        setenv("NOTIFY_SOCKET", "/run/notify", 1);
        setenv("JOURNAL_STREAM", "8:1", 1);
        setenv("LANG", "xx_XX.UTF-8", 1);
        setenv("TZ", "Europe/Berlin", 1);
        CronJob job = launch_test::JobOf({VUKO_WITNESS, _site / "report", "7"});
        LaunchOrder order = _site.Order(1);
        order.account.strHome = "/usr";
        order.account.strShell = "";
        order.account.strName = "name";
        _site.TheLauncher().Start(job, order);
        const RunEnd ended = _site.AwaitEnd(1);
        support::WaitFor(-1);
        return ended.eKind == EndKind::Exited && ended.iCode == 7 ? 0 : 1;
    });
    ASSERT_EQ(end.iExitStatus, 0) << end.strOutput;
    const Json::Value js = ReadReport(_site / "report");
    EXPECT_EQ(Numbers(js["descriptors"]), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(Numbers(js["blocked"]), std::vector<int>{});
    EXPECT_EQ(Numbers(js["ignored"]), std::vector<int>{});
    EXPECT_EQ(js["sid"], js["pid"]);
    EXPECT_EQ(js["pgid"], js["pid"]);
    EXPECT_EQ(js["umask"].asInt(), 022);
    EXPECT_EQ(js["cwd"].asString(), "/usr");
    const std::string strPath = geteuid() == 0 ? "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
                                               : "PATH=/usr/local/bin:/usr/bin:/bin";
    EXPECT_EQ(Environment(js), (std::set<std::string>{strPath, "SHELL=/bin/sh", "HOME=/usr", "USER=name",
                                                      "LOGNAME=name", "LANG=xx_XX.UTF-8", "TZ=Europe/Berlin"}));
    EXPECT_NE(_site.ExecutionLog().find("running job: job with command: "), std::string::npos);
}

TEST_F(Launches, MakeDoWithoutAHomeALanguageOrAZone) {
    const support::ChildEnd end = support::RunForked([this](int) {
        clearenv();
        CronJob job = launch_test::JobOf({VUKO_WITNESS, _site / "report"});
        LaunchOrder order = _site.Order(1);
        order.account.strHome = "/nonexistent";
        const bool bAway = chdir("/usr") == 0;
        _site.TheLauncher().Start(job, order);
        _site.AwaitEnd(1);
        support::WaitFor(-1);
        return bAway ? 0 : 1;
    });
    ASSERT_EQ(end.iExitStatus, 0);
    const Json::Value js = ReadReport(_site / "report");
    EXPECT_EQ(js["cwd"].asString(), "/");
    EXPECT_EQ(Environment(js).count("LANG=C.UTF-8"), 1U);
    EXPECT_EQ(js["environ"].size(), 6U);
}

TEST_F(Launches, GiveAProgramAnEmptyInput) {
    _site.StartShell(1, "readlink /proc/self/fd/0; cat");
    EXPECT_EQ(_site.AwaitEnd(1).eKind, EndKind::Exited);
    support::WaitFor(-1);
    EXPECT_EQ(_site.Output("job"), "/dev/null\n");
}

TEST_F(Launches, TellHowAProgramEnded) {
    _site.StartShell(1, "exit 3");
    _site.StartShell(2, "kill -KILL $$");
    _site.Start(3, {"/nonexistent/program"});
    const RunEnd exited = _site.AwaitEnd(1);
    EXPECT_EQ(exited.eKind, EndKind::Exited);
    EXPECT_EQ(exited.iCode, 3);
    const RunEnd killed = _site.AwaitEnd(2);
    EXPECT_EQ(killed.eKind, EndKind::Signaled);
    EXPECT_EQ(killed.iCode, SIGKILL);
    const RunEnd missing = _site.AwaitEnd(3);
    EXPECT_EQ(missing.eKind, EndKind::NotStarted);
    EXPECT_EQ(missing.iCode, ENOENT);
    EXPECT_EQ(missing.iStartedUsec, 0);
    EXPECT_EQ(missing.iDurationUsec, 0);
    EXPECT_GT(missing.iEndedUsec, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(support::WaitFor(-1), 0);
    }
    for (const RunReport& report : _site.TakeReports()) {
        EXPECT_EQ(report.eKind, Kind::Begun);
        EXPECT_NE(report.uRun, 3U) << "nothing has begun";
    }
    EXPECT_NE(_site.ExecutionLog().find("failed, return code: -1, error: No such file or directory\n"),
              std::string::npos);
    EXPECT_EQ(_site.Table().Find(1)->end.iCode, 3);
}

TEST_F(Launches, MeasureWhatAProgramUsed) {
    const std::int64_t iBefore = std::int64_t{time(nullptr)} * 1000000;
    _site.StartShell(1, "i=0; while [ $i -lt 30000 ]; do i=$((i+1)); done; sleep 0.05");
    const RunEnd end = _site.AwaitEnd(1);
    EXPECT_GT(end.iCpuUsec, 5000);
    EXPECT_GE(end.iDurationUsec, 50000);
    EXPECT_LE(end.iCpuUsec, end.iDurationUsec);
    EXPECT_GT(end.iMaxRssKib, 100);
    EXPECT_GE(end.iStartedUsec, iBefore);
    EXPECT_GE(end.iEndedUsec, end.iStartedUsec + 50000);
    support::WaitFor(-1);
}

TEST_F(Launches, TellOfTheProgramsProcessGroupBeforeItsEnd) {
    const pid_t pidChild = _site.StartShell(1, "trap 'exit 5' TERM; while :; do sleep 0.01; done");
    const RunReport begun = _site.Await(1, Kind::Begun);
    EXPECT_EQ(getpgid(begun.pidProgram), begun.pidProgram);
    const std::optional<RunRecord> record = _site.Table().Find(1);
    EXPECT_EQ(record->eStage, RunStage::Begun);
    EXPECT_EQ(record->pidChild, pidChild);
    EXPECT_TRUE(IsRunning(record->pidChild, record->uChildStart));
    EXPECT_EQ(record->pidProgram, begun.pidProgram);
    EXPECT_TRUE(IsRunning(record->pidProgram, record->uProgramStart));
    kill(pidChild, SIGTERM); // the one who waits for the program has to go on doing that
    EXPECT_EQ(kill(-begun.pidProgram, SIGKILL), 0);
    EXPECT_EQ(_site.AwaitEnd(1).iCode, SIGKILL);
    EXPECT_EQ(support::WaitFor(pidChild), 0);
}

TEST_F(Launches, OverlapWithoutBeingMixedUp) {
    constexpr int RUNS = 40;
    for (int i = 1; i <= RUNS; ++i) {
        _site.StartShell(static_cast<RunId>(i), "exit " + std::to_string(i));
    }
    for (int i = RUNS; i >= 1; --i) {
        EXPECT_EQ(_site.AwaitEnd(static_cast<RunId>(i)).iCode, i);
    }
    for (int i = 0; i < RUNS; ++i) {
        EXPECT_EQ(support::WaitFor(-1), 0);
    }
}

TEST_F(Launches, LoseNothingThatAFullPipeDidNotTake) {
    ASSERT_EQ(fcntl(_site.TheLauncher().ReportDescriptor(), F_SETPIPE_SZ, 4096), 4096); // room for 64 of 80
    constexpr int RUNS = 40;
    for (RunId uRun = 1; uRun <= RUNS; ++uRun) {
        _site.Start(uRun, {"/bin/true"});
    }
    for (int i = 0; i < RUNS; ++i) {
        EXPECT_EQ(support::WaitFor(-1), 0);
    }
    std::set<std::pair<RunId, Kind>> setTold;
    for (const RunReport& report : _site.TheLauncher().TakeReports()) {
        EXPECT_TRUE(setTold.insert({report.uRun, report.eKind}).second) << "told twice: " << report.uRun;
        EXPECT_TRUE(report.eKind == Kind::Begun || setTold.count({report.uRun, Kind::Begun}) == 1) << report.uRun;
    }
    EXPECT_EQ(setTold.size(), 2U * RUNS);
    EXPECT_TRUE(_site.TheLauncher().TakeReports().empty());
}

TEST_F(Launches, ThatWaitAreEndedWithoutATrace) {
    const pid_t pid = _site.StartShell(1, ": > " + (_site / "ran"), 1000);
    AwaitStage(1, RunStage::Waiting);
    EXPECT_FALSE(_site.Table().Revoke(1));
    EXPECT_EQ(_site.Table().Find(1)->pidChild, pid);
    Kill(pid, SIGTERM);
    EXPECT_TRUE(_site.Table().Revoke(1));
    EXPECT_TRUE(_site.TakeReports().empty());
    EXPECT_EQ(_site.ExecutionLog(), "");
}

TEST_F(Launches, CountAsBegunWhenTheirChildIsKilledLater) {
    const pid_t pid = _site.StartShell(1, "sleep 1000");
    const pid_t pidProgram = _site.Await(1, Kind::Begun).pidProgram;
    Kill(pid, SIGKILL);
    EXPECT_FALSE(_site.Table().Revoke(1));
    EXPECT_EQ(StageOf(1), RunStage::Begun);
    const std::optional<RunRecord> record = _site.Table().Find(1);
    EXPECT_TRUE(IsRunning(record->pidProgram, record->uProgramStart)); // the program goes on
    kill(-pidProgram, SIGKILL);
}

TEST_F(Launches, ThatWaitSurviveTheService) {
    const pid_t pid = _site.StartShell(1, "exit 4", 1);
    _site.StartShell(2, "exit 5");
    support::WaitFor(-1);
    AwaitStage(1, RunStage::Waiting);
    _site.StartAnew();
    EXPECT_FALSE(_site.Table().Revoke(1));
    EXPECT_EQ(support::WaitFor(pid), 0); // nobody reads its pipe any more
    EXPECT_EQ(_site.AwaitEnd(1).iCode, 4);
    EXPECT_EQ(_site.AwaitEnd(2).iCode, 5);
    EXPECT_EQ(_site.TakeReports().size(), 2U); // both had begun
}

TEST_F(Launches, AreNotMadeWhereTheForkFails) {
    CronJob job = launch_test::JobOf({"/bin/true"});
    bForksFail = true;
    const pid_t pid = _site.TheLauncher().Start(job, _site.Order(1));
    bForksFail = false;
    EXPECT_EQ(pid, -1);
    EXPECT_FALSE(job._strReadyCrontab.empty());
    EXPECT_FALSE(_site.Table().Find(1));
    EXPECT_EQ(_log.Take(), Texts{"<3>cronjob:501 Failed to fork() (Resource temporarily unavailable)"});
    EXPECT_GT(_site.TheLauncher().Start(job, _site.Order(1)), 0);
    EXPECT_TRUE(job._strReadyCrontab.empty());
    EXPECT_EQ(_site.AwaitEnd(1).iCode, 0);
    support::WaitFor(-1);
}

TEST_F(Launches, AreNotMadeForARunThatHasOne) {
    CronJob job = launch_test::JobOf({"/bin/true"});
    ASSERT_TRUE(_site.Table().Offer(1));
    EXPECT_EQ(_site.TheLauncher().Start(job, _site.Order(1)), -1);
    EXPECT_EQ(StageOf(1), RunStage::Offered);
    EXPECT_EQ(_log.Take(), Texts{"<3>launcher:5 job is not started: too many jobs are running"});
}

TEST_F(Launches, EndInAChildThatTheLibraryGaveBack) {
    Json::Value jsJob = ListCommandJob("job", "package", {"/bin/true"});
    jsJob["config"]["package_username"] = "no such account";
    CronJob job(jsJob);
    const pid_t pid = _site.TheLauncher().Start(job, _site.Order(1));
    ASSERT_GT(pid, 0);
    EXPECT_EQ(_site.AwaitEnd(1).eKind, EndKind::NotStarted);
    EXPECT_EQ(WEXITSTATUS(support::WaitFor(pid)), EXIT_FAILURE);
    EXPECT_EQ(_log.Take(), (Texts{"<3>cronjob:104 user no such account not exist",
                                  "<3>cronjob:604 Failed to get user group info for job [job]"}));
    CronJob odd = launch_test::JobOf({"/bin/true"});
    odd._jsJob["cmd_list"][0] = 5;
    _site.TheLauncher().Start(odd, _site.Order(2));
    EXPECT_EQ(_site.AwaitEnd(2).eKind, EndKind::NotStarted);
    EXPECT_EQ(WEXITSTATUS(support::WaitFor(-1)), EXIT_FAILURE);
    const Texts vecMessages = _log.Take();
    ASSERT_EQ(vecMessages.size(), 1U);
    EXPECT_EQ(vecMessages[0].rfind("<3>launcher:3 job could not be started: ", 0), 0U) << vecMessages[0];
}

TEST_F(Launches, AreOverWhenTheProgramEndsWhateverItLeftBehind) {
    // Forks twice, has a session of its own, and ignores TERM; it holds on to its output.
    const pid_t pid =
        _site.StartShell(1, "(setsid sh -c 'trap \"\" TERM; echo $$ > " + (_site / "pid") + "; while [ ! -e " +
                                (_site / "stop") + " ]; do sleep 0.01; done; echo late' &) & while [ ! -s " +
                                (_site / "pid") + " ]; do :; done; echo early");
    EXPECT_EQ(_site.AwaitEnd(1).iCode, 0);
    EXPECT_EQ(StageOf(1), RunStage::Ended);
    EXPECT_EQ(_site.Output("job"), "early\n");
    _site.Table().Release(1);
    const int iLeft = atoi(support::ReadFile(_site / "pid").c_str());
    kill(iLeft, SIGTERM);
    EXPECT_EQ(kill(iLeft, 0), 0);
    support::WriteFile(_site / "stop", "");
    EXPECT_EQ(support::WaitFor(pid), 0); // goes on for as long as there may be output
    EXPECT_EQ(_site.Output("job"), "early\nlate\n");
}

} // namespace
