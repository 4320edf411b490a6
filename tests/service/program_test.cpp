#include <fcntl.h>
#include <gtest/gtest.h>

#include <json/json.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>

#include "tests/service/service_process.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

using service_test::Await;
using service_test::ServiceProcess;

namespace {

constexpr const char* READY = " is ready";

class Program : public testing::Test {
protected:
    void Define(const std::string& strName, const std::string& strText) const {
        const std::string strFolder = _dir / "usr/vuko/share/vukocron.d";
        std::filesystem::create_directories(strFolder);
        const std::string strPath = strFolder + "/" + strName + ".conf";
        support::WriteFile(strPath, strText);
        chmod(strPath.c_str(), 0644);
    }
    void DefineJob(const std::string& strName, const std::string& strCrontab, const std::string& strCommand) const {
        Define(strName, R"({"name": ")" + strName + R"(", "user": "root", "period": "crontab", "crontab": ")" +
                            strCrontab + R"(", "cmd": ")" + strCommand + "\"}");
    }
    std::string PidFile() const { return _dir / "var/run/vukocrond.pid"; }
    std::string JobOutput(const std::string& strJob) const {
        return support::ReadFile(_dir / ("var/log/vukocrond/" + strJob + ".log"));
    }
    std::string ExecutionLog() const { return support::ReadFile(_dir / "var/log/vukocrond-execute.log"); }

    /// A zone whose offset has seconds, so chosen that the next local minute begins in so many seconds: nothing else
    /// lets a test see a minute begin without waiting for the wall clock's.
    static std::string ZoneWithAMinuteIn(int iSeconds) {
        const int iOffset = static_cast<int>((60 - iSeconds + 60 - std::time(nullptr) % 60) % 60);
        return "AAA-0:00:" + std::to_string(iOffset);
    }

    support::TempDir _dir;
};

} // namespace

TEST_F(Program, EndsInOrderOnSigtermAndSigint) {
    for (const int iSignal : {SIGTERM, SIGINT}) {
        ServiceProcess service(_dir.Path());
        ASSERT_TRUE(service.AwaitMessage(READY)) << service.Messages();
        EXPECT_EQ(support::ReadFile(PidFile()), std::to_string(service.Pid()) + "\n");
        service.Signal(iSignal);
        EXPECT_EQ(service.WaitForEnd(), 0);
        EXPECT_FALSE(support::Exists(PidFile()));
        EXPECT_NE(service.Messages().find(iSignal == SIGTERM ? "stopping on SIGTERM" : "stopping on SIGINT"),
                  std::string::npos);
    }
}

TEST_F(Program, RefusesToRunTwice) {
    ServiceProcess first(_dir.Path());
    ASSERT_TRUE(first.AwaitMessage(READY)) << first.Messages();
    ServiceProcess second(_dir.Path());
    EXPECT_EQ(second.WaitForEnd(), 1);
    EXPECT_NE(second.Messages().find("another instance is running: process " + std::to_string(first.Pid()) + " holds " +
                                     PidFile()),
              std::string::npos)
        << second.Messages();
    EXPECT_EQ(support::ReadFile(PidFile()), std::to_string(first.Pid()) + "\n");
}

TEST_F(Program, TakesOverAfterAnInstanceThatWasKilled) {
    ServiceProcess first(_dir.Path());
    ASSERT_TRUE(first.AwaitMessage(READY)) << first.Messages();
    first.Signal(SIGKILL);
    EXPECT_EQ(first.WaitForEnd(), 128 + SIGKILL);
    EXPECT_TRUE(support::Exists(PidFile()));
    ServiceProcess second(_dir.Path());
    EXPECT_TRUE(second.AwaitMessage(READY)) << second.Messages();
}

TEST_F(Program, ReportsABadDefinitionAndRunsTheOthers) {
    DefineJob("good", "* * * * *", "/bin/true");
    Define("bad", R"([{"name": "late", "user": "root", "period": "c", "crontab": "0 25 * * *", "cmd": "x"}])");
    const ServiceProcess service(_dir.Path(), {"--print-schedule"});
    ASSERT_TRUE(service.AwaitMessage(READY)) << service.Messages();
    EXPECT_NE(
        service.Messages().find(
            _dir /
            R"(usr/vuko/share/vukocron.d/bad.conf: definition 1 "late": field "crontab": hour: 25 is not in 0..23)"),
        std::string::npos)
        << service.Messages();
    EXPECT_NE(service.Messages().find("loaded 1 job (1 new), 1 refusal"), std::string::npos);
    EXPECT_EQ(service.Output(), "builtin/good as root: -1 -1 -1 -1 -1 (every minute)\n");
    // The library's own messages about a bad definition name no file; they are not to stand beside ours.
    EXPECT_EQ(service.Messages().find("cronjob:"), std::string::npos);
}

TEST_F(Program, ReadsTheFoldersAgainOnSighup) {
    DefineJob("kept", "~ ~ ~ ~ ~", "/bin/true");
    DefineJob("gone", "1 2 3 4 5", "/bin/true");
    ServiceProcess service(_dir.Path(), {"--print-schedule"});
    ASSERT_TRUE(service.AwaitMessage(READY)) << service.Messages();
    const std::string strBefore = service.Output();
    const std::string strKept = strBefore.substr(strBefore.find("builtin/kept"));

    std::filesystem::remove(_dir / "usr/vuko/share/vukocron.d/gone.conf");
    DefineJob("added", "5 6 * * *", "/bin/true");
    service.Signal(SIGHUP);
    ASSERT_TRUE(service.AwaitMessage("loaded 2 jobs (1 new, 1 as before, 1 gone), 0 refusals")) << service.Messages();
    const std::string strAfter = "builtin/added as root: 5 6 -1 -1 -1 (at 06:05)\n" + strKept;
    EXPECT_TRUE(Await([&service, &strBefore, &strAfter] { return service.Output() == strBefore + strAfter; }))
        << service.Output();

    service.Signal(SIGTERM);
    EXPECT_EQ(service.WaitForEnd(), 0);
}

TEST_F(Program, SeesASighupThatWasIgnoredWhenItWasStarted) {
    signal(SIGHUP, SIG_IGN);
    const ServiceProcess service(_dir.Path());
    signal(SIGHUP, SIG_DFL);
    ASSERT_TRUE(service.AwaitMessage(READY)) << service.Messages();
    service.Signal(SIGHUP);
    EXPECT_TRUE(service.AwaitMessage("loaded 0 jobs", 2)) << service.Messages();
}

TEST_F(Program, StartsAJobWhenItsMinuteBegins) {
    DefineJob("due", "* * * * *", "/bin/echo it ran");
    DefineJob("not-due", "* * 31 2 *", "/bin/echo it ran, too"); // there is no such day
    Define("unknown", R"({"name": "unknown", "user": "package", "package_username": "no-such-account", "period": "c",
                          "crontab": "* * * * *", "cmd": "/bin/true"})");
    ServiceProcess service(_dir.Path(), {}, {{"TZ", ZoneWithAMinuteIn(2)}});
    ASSERT_TRUE(service.AwaitMessage(READY)) << service.Messages();
    EXPECT_TRUE(Await([this] { return ExecutionLog().find("running job: due ") != std::string::npos; },
                      std::chrono::seconds(90)));
    EXPECT_TRUE(Await([this] { return JobOutput("builtin_due") == "it ran\n"; })) << JobOutput("builtin_due");
    // The minute had begun for whoever asks for the time.
    EXPECT_TRUE(std::regex_search(ExecutionLog(), std::regex(R"(T\d\d:\d\d:0\d\+00:00 running job: due with command: )"
                                                             R"(/bin/echo it ran as user root\n)")))
        << ExecutionLog();
    EXPECT_TRUE(service.AwaitMessage("job builtin/unknown is not started: there is no account \"no-such-account\""));
    service.Signal(SIGTERM);
    EXPECT_EQ(service.WaitForEnd(), 0);
    EXPECT_FALSE(support::Exists(PidFile()));
}

TEST_F(Program, LeavesRunningJobsRunningAndTheWayFreeForTheNextInstance) {
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // the jobs that are left behind become this process's children
    const std::string strPids = _dir / "pids";
    Define("long", R"({"name": "long", "user": "root", "period": "c", "crontab": "* * * * *",
                       "cmd_list": ["/bin/sh", "-c", "echo $PPID $$ >$0.new && mv $0.new $0 && exec sleep 600", ")" +
                       strPids + "\"]}");
    ServiceProcess first(_dir.Path(), {}, {{"TZ", ZoneWithAMinuteIn(2)}});
    ASSERT_TRUE(first.AwaitMessage(READY)) << first.Messages();
    ASSERT_TRUE(Await([&strPids] { return support::Exists(strPids); }, std::chrono::seconds(90)));
    first.Signal(SIGTERM);
    EXPECT_EQ(first.WaitForEnd(), 0);
    const ServiceProcess second(_dir.Path());
    EXPECT_TRUE(second.AwaitMessage(READY)) << second.Messages();
    int iWaiting = 0;
    int iJob = 0;
    ASSERT_EQ(sscanf(support::ReadFile(strPids).c_str(), "%d %d", &iWaiting, &iJob), 2);
    EXPECT_EQ(kill(iJob, SIGKILL), 0);
    EXPECT_EQ(support::WaitFor(iWaiting), 0);
}

TEST_F(Program, GivesJobsNoneOfItsDescriptorsAndSignalsNorWhatItsStarterLeftOpen) {
    const int iLeftOpen = open("/dev/null", O_RDONLY); // on purpose without O_CLOEXEC
    const std::string strSeen = _dir / "seen";
    DefineJob("witness", "* * * * *", VUKO_WITNESS_PROGRAM " " + strSeen);
    const ServiceProcess service(_dir.Path(), {}, {{"TZ", ZoneWithAMinuteIn(2)}});
    ASSERT_TRUE(service.AwaitMessage(READY)) << service.Messages();
    Json::Value jsSeen;
    ASSERT_TRUE(Await(
        [&strSeen, &jsSeen] {
            std::istringstream text(support::ReadFile(strSeen));
            return Json::parseFromStream(Json::CharReaderBuilder(), text, &jsSeen, nullptr);
        },
        std::chrono::seconds(90)));
    EXPECT_EQ(jsSeen["descriptors"].size(), 3U) << jsSeen["descriptors"];
    EXPECT_TRUE(jsSeen["blocked"].empty()) << jsSeen["blocked"];
    EXPECT_TRUE(jsSeen["ignored"].empty()) << jsSeen["ignored"];
    EXPECT_EQ(jsSeen["cwd"], getpwuid(geteuid())->pw_dir);
    close(iLeftOpen);
}

TEST_F(Program, ChecksDefinitionsWithoutServing) {
    DefineJob("good", "7 3 * * *", "/bin/true");
    {
        ServiceProcess check(_dir.Path(), {"--check", "--print-schedule"});
        EXPECT_EQ(check.WaitForEnd(), 0);
        EXPECT_EQ(check.Output(), "builtin/good as root: 7 3 -1 -1 -1 (at 03:07)\n");
    }
    Define("bad", "{}");
    ServiceProcess check(_dir.Path(), {"--check"});
    EXPECT_EQ(check.WaitForEnd(), 1);
    EXPECT_EQ(check.Output(),
              (_dir / "usr/vuko/share/vukocron.d/bad.conf: field \"name\": missing, expected a text\n"));
    EXPECT_FALSE(support::Exists(_dir / "var")); // it makes nothing
}

TEST_F(Program, EndsWithStatus2OnBadUsage) {
    for (const char* const szArgument : {"--no-such-option", "start"}) {
        ServiceProcess service(_dir.Path(), {szArgument});
        EXPECT_EQ(service.WaitForEnd(), 2);
        EXPECT_NE(service.Messages(), "");
    }
    ServiceProcess service(_dir / "missing");
    EXPECT_EQ(service.WaitForEnd(), 2);
}

TEST_F(Program, EndsWithStatus1WhenItCannotMakeItsFolders) {
    support::WriteFile(_dir / "usr", "");
    ServiceProcess service(_dir.Path());
    EXPECT_EQ(service.WaitForEnd(), 1);
    EXPECT_NE(service.Messages().find("cannot be made: Not a directory"), std::string::npos) << service.Messages();
}

TEST_F(Program, TellsTheServiceManagerOfReadinessReloadAndEnd) {
    const std::string strSocket = _dir / "notify";
    const int iSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ASSERT_NE(iSocket, -1);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    std::string strTold;
    const auto await = [iSocket, &strTold](const std::string& strText) {
        return Await([iSocket, &strTold, &strText] {
            char aBuffer[512];
            const ssize_t iRead = recv(iSocket, aBuffer, sizeof(aBuffer), 0);
            strTold += iRead > 0 ? std::string(aBuffer, static_cast<std::size_t>(iRead)) + "|" : "";
            return strTold.find(strText) != std::string::npos;
        });
    };
    ServiceProcess service(_dir.Path(), {}, {{"NOTIFY_SOCKET", strSocket}});
    EXPECT_TRUE(await("READY=1\n")) << strTold;
    service.Signal(SIGHUP);
    EXPECT_TRUE(await("RELOADING=1\nMONOTONIC_USEC=")) << strTold;
    strTold.clear();
    EXPECT_TRUE(await("READY=1\n")) << strTold;
    service.Signal(SIGTERM);
    EXPECT_TRUE(await("STOPPING=1|")) << strTold;
    EXPECT_EQ(service.WaitForEnd(), 0);
    close(iSocket);
}
