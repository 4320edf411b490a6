/// This program defines functions of the platform and of the C library under their own names, and links the shared
/// libraries as any outsider does: what libvukocrond.so calls must be what stands here. Each replacement leaves a mark
/// that the real function would not.

#include <gtest/gtest.h>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "crond/configmanager.h"
#include "crond/cronjob.h"
#include "crond/pkgconfigmanager.h"
#include "crond/utils.h"
#include "platform/vlibc.h"
#include "platform/vukojson.h"
#include "platform/vukorandom.h"
#include "platform/vukosdk.h"
#include "platform/vukosystemd.h"
#include "platform/vukoutils.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr time_t NOW = 1000000007;
constexpr int HOUR_OF_NOW = 21;
constexpr pid_t CHILD = 4242;

using Calls = std::vector<std::string>;

Calls& Seen() {
    static Calls vecCalls;
    return vecCalls;
}

int Note(const std::string& strCall, int iResult) {
    Seen().push_back(strCall);
    return iResult;
}

} // namespace

// What the system has.

void syslog(int /*iPriority*/, const char* szFormat, ...) {
    char szText[512];
    va_list args;
    va_start(args, szFormat);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    vsnprintf(szText, sizeof(szText), szFormat, args);
#pragma GCC diagnostic pop
    va_end(args);
    Note(szText, 0);
}

time_t time(time_t* pResult) noexcept {
    if (pResult != nullptr) {
        *pResult = NOW;
    }
    return NOW;
}

struct tm* localtime(const time_t* pTime) noexcept {
    static struct tm tmShared = {};
    tmShared.tm_hour = *pTime == NOW ? HOUR_OF_NOW : 0;
    tmShared.tm_mday = 1;
    return &tmShared;
}

/// The store makes its folder for root alone, and this test must see it do so whoever runs it.
uid_t geteuid() noexcept {
    return 0;
}

// What the platform has.

pid_t VLIBCProcForkEx(int flags) {
    return Note("fork " + std::to_string(flags), CHILD);
}

int VLIBCExecv(const char* path, char* const argv[], int wait) {
    errno = ENOEXEC;
    return path == argv[0] && argv[2] == nullptr && wait == 1 ? -77 : 0;
}

int VLIBCExec(const char* prog, ...) {
    return Note(std::string("exec ") + prog, 1);
}

int VLIBCFileExist(const char* path) {
    return Note(std::string("exist ") + path, 1);
}

int VLIBCFileCheckDir(const char* path) {
    return Note(std::string("checkdir ") + path, 0);
}

unsigned VLIBCErrGet(void) {
    return 0x0BAD;
}

const char* VLIBCErrorGetFile(void) {
    return "elsewhere.c";
}

int VLIBCErrorGetLine(void) {
    return 99;
}

int VUKOUserGetUGID(const char* name, uid_t* uid, gid_t* gid) {
    *uid = getuid();
    *gid = getgid();
    return Note(std::string("account ") + name, 0);
}

int VUKOFSMkdirP(const char* path, int /*iReserved1*/, int /*iReserved2*/, uid_t /*uid*/, gid_t /*gid*/,
                 mode_t /*mode*/) {
    return Note(std::string("mkdir ") + path, 0);
}

int VUKOEvmgrStatusGet(int what, int* status) {
    *status = 2;
    return Note("status " + std::to_string(what), 0);
}

int VUKOSystemGetBootStep(void) {
    return Note("bootstep", 3);
}

bool VUKOSystemdReload(const std::string& service) {
    return Note("reload " + service, 0) != 0;
}

/// Takes every letter z for a 7, and otherwise does what it should.
void VUKOUtils::StringExplode(std::vector<std::string>& out, const std::string& text, const char* delimiters) {
    std::string strPiece;
    for (const char c : text + delimiters[0]) {
        if (c != delimiters[0]) {
            strPiece += c == 'z' ? '7' : c;
        } else {
            out.push_back(strPiece);
            strPiece.clear();
        }
    }
}

int VUKO::RANDOM::VUKORandomBase::random(int /*low*/, int high) {
    return high - 1;
}

bool VUKO::JSON::fromFile(Json::Value& value, const std::string& path) {
    value = "from " + path;
    return true;
}

bool VUKO::JSON::toFile(const Json::Value& /*value*/, const std::string& path, bool durable) {
    return Note("tofile " + path + (durable ? " durable" : ""), 1) != 0;
}

std::string VUKO::JSON::toString(const Json::Value& /*value*/) {
    return "a spelling of its own";
}

namespace {

using VUKO::VUKOCrond::ConfigManager;
using VUKO::VUKOCrond::CronJob;
using VUKO::VUKOCrond::PkgConfigManager;

class Interposition : public testing::Test {
protected:
    Interposition() {
        Seen().clear();
        errno = 0;
    }

    static Json::Value Definition(const std::string& strCrontab) {
        Json::Value jsConf;
        jsConf["name"] = "job";
        jsConf["user"] = "root";
        jsConf["period"] = "crontab";
        jsConf["crontab"] = strCrontab;
        jsConf["cmd"] = "/bin/program argument";
        return jsConf;
    }

    static CronJob Job(const std::string& strCrontab) {
        Json::Value jsJob;
        jsJob["config"] = Definition(strCrontab);
        return CronJob(jsJob);
    }
};

TEST_F(Interposition, TheProgramsSyslogReceivesTheMessages) {
    const CronJob job{Json::Value(Json::objectValue)};
    EXPECT_EQ(Seen(), Calls({"cronjob:179 Failed [!_jsJob.isMember(\"config\") || !jsConf.isObject()], err=Success",
                             "cronjob:162 crontab format error"}));
}

TEST_F(Interposition, TheProgramsClockTellsTheTime) {
    EXPECT_EQ(Job("* * * * *")._jsJob["startup"].asInt64(), NOW);
}

TEST_F(Interposition, TheProgramsLocaltimeDecidesWhatIsDue) {
    CronJob job = Job("* 21 * * *");
    CronJob other = Job("* 22 * * *");
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, -1);
        other.GenerateSchedule(strType, -1);
    }
    EXPECT_TRUE(job.IsOnScheduled());
    EXPECT_FALSE(other.IsOnScheduled());
}

TEST_F(Interposition, TheProgramsStringExplodeSplitsTheFields) {
    CronJob job = Job("1,z * * * *");
    ASSERT_TRUE(job._bValid);
    ASSERT_EQ(job._mapRanges["Minute"].size(), 2U);
    EXPECT_EQ(job._mapRanges["Minute"][1].from, 7);
}

TEST_F(Interposition, AnEmptyPieceThatTheProgramsStringExplodeKeepsIsNoNumber) {
    EXPECT_FALSE(Job("1,,2 * * * *")._bValid);
}

TEST_F(Interposition, TheProgramsRandomSourceDrawsTheValues) {
    CronJob job = Job("~ 3~9 * * *");
    job.GenerateSchedule("Minute", -1);
    job.GenerateSchedule("hour", -1);
    EXPECT_EQ(job.GetGeneratedScheduleByType("Minute"), std::vector<int>{59});
    EXPECT_EQ(job.GetGeneratedScheduleByType("hour"), std::vector<int>{9});
}

TEST_F(Interposition, TheProgramsForkMakesTheChild) {
    CronJob job = Job("* * * * *");
    job.Run(0, "");
    EXPECT_EQ(Seen(), Calls({"fork 71"}));
    EXPECT_EQ(job._jsJob["lastExecution"].asInt64(), NOW);
}

TEST_F(Interposition, TheProgramsAccountsAndExecvLaunchTheJob) {
    const support::TempDir dir;
    CronJob::gLogger._strLogPath = dir / "log";
    CronJob::gLogger._strMemLogPath = dir / "memlog";
    const support::ChildEnd end = support::RunForked([](int) {
        CronJob job = Job("* * * * *");
        job._jsJob["config"]["user"] = "system account of no system";
        job.RunChild("");
        return 98; // RunChild() ends the process
    });
    EXPECT_EQ(end.iExitStatus, 0);
    const std::string strLog = support::ReadFile(dir / "log");
    const std::string strStart = "1900-01-01T21:00:00+00:00 running job: job with command: /bin/program argument";
    EXPECT_EQ(strLog.find(strStart + " as user system account of no system\n"), 0U) << strLog;
    EXPECT_NE(strLog.find(strStart + " failed, return code: -77, error: Exec format error\n"), std::string::npos)
        << strLog;
}

TEST_F(Interposition, TheProgramsExecStagesAndItsLastErrorIsReported) {
    CronJob job = Job("* * * * *");
    EXPECT_FALSE(job.MoveBinaryToTmp());
    EXPECT_EQ(Seen(), Calls({"exist /bin/program", "exec /usr/bin/cp",
                             "cronjob:219 Failed to cp [/bin/program][/tmp/vukocrond/job][0x0BAD elsewhere.c:99]"}));
}

TEST_F(Interposition, TheProgramsToStringSpellsTheNameOfAJobWithoutAnAccount) {
    CronJob job = Job("* * * * *");
    job._jsJob["config"]["user"] = "guest";
    job.RunChild("");
    EXPECT_EQ(Seen().front(), "cronjob:74 wrong user guest! you can only specify root/system/package in config "
                              "[a spelling of its own]");
}

TEST_F(Interposition, TheProgramsFilesKeepTheDefinitionsOfTheSystem) {
    ConfigManager manager("job", false);
    EXPECT_TRUE(manager.Save(Definition("* * * * *")));
    EXPECT_EQ(Seen(), Calls({"checkdir /usr/vuko/etc/vukocron.d", "mkdir /usr/vuko/etc/vukocron.d",
                             "tofile /usr/vuko/etc/vukocron.d/job.conf durable", "bootstep", "reload vukocrond",
                             "configmanager:52 failed to reload service vukocrond. [0x0BAD elsewhere.c:99]"}));
}

TEST_F(Interposition, TheProgramsFilesKeepTheDefinitionsOfPackages) {
    PkgConfigManager manager("pkg", "job");
    Json::Value jsJob;
    EXPECT_TRUE(manager.Load(jsJob));
    EXPECT_EQ(jsJob.asString(), "from /usr/local/etc/vukocron_nonroot.d/pkg/job.conf");
    EXPECT_EQ(Seen(), Calls({"checkdir /usr/local/etc/vukocron_nonroot.d/pkg",
                             "pkgconfigmanager:49 config folder not exist: /usr/local/etc/vukocron_nonroot.d/pkg",
                             "exist /usr/local/etc/vukocron_nonroot.d/pkg/job.conf"}));
}

TEST_F(Interposition, TheProgramsSystemTellsWhetherItHibernates) {
    EXPECT_TRUE(VUKO::VUKOCrond::isHibernating());
    EXPECT_EQ(Seen(), Calls({"status 1"}));
}

} // namespace
