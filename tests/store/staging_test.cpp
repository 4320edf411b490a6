/// Staging with the platform replaced: the order of the steps, and what is left after each that fails.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/fake/call_record.h"
#include "tests/fake/fake_platform.h"
#include "tests/fake/fake_store_platform.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/scoped_value.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using unit::CronJob;
using unit::Definition;
using unit::Document;
using unit::ExpectInBothForms;
using unit::FromText;
using unit::Logged;
using unit::With;

namespace {

using Calls = std::vector<std::string>;

constexpr const char* PROGRAM = "/opt/tool";
constexpr const char* COPY = "/tmp/vukocrond/backup";

const unit::Message INCORRECT = {226, "Failed to chown if permissions are incorrect [/tmp/vukocrond/backup]"};
const unit::Message NO_ACCOUNT = {120, "Unable to get user group info"};

class Staging : public ::testing::Test {
protected:
    Staging() {
        fake::Platform().mapAccounts["alice"] = {1000, 100};
        fake::StorePlatform().mapFiles[PROGRAM].mode = 0755;
    }

    static CronJob Job(const Json::Value& jsConf = With("cmd", "/opt/tool -x  y")) { return CronJob(Document(jsConf)); }

    static CronJob PackageJob(const Json::Value& jsUserName = "alice") {
        return Job(With("package_username", jsUserName, With("user", "package", With("cmd", "/opt/tool"))));
    }

    /// Expects a job's staging to fail with these messages in both forms, its program to stay where the last argument
    /// says, and these calls.
    static void ExpectFailure(const CronJob& job, const std::vector<unit::Message>& vecMessages, const Calls& vecCalls,
                              const std::string& strProgramAfter) {
        const auto fail = [&] {
            CronJob staged = job;
            fake::ClearCalls();
            EXPECT_FALSE(staged.MoveBinaryToTmp());
            EXPECT_EQ(fake::Calls(), vecCalls);
            Json::Value jsExpected = job._jsJob;
            jsExpected["cmd_list"][0U] = strProgramAfter;
            EXPECT_EQ(staged._jsJob, jsExpected);
        };
        ExpectInBothForms(fail, vecMessages);
    }

    const fake::ScopedPlatform _platform;
    const fake::ScopedStorePlatform _storePlatform;
};

const std::string LOOK = "exist /opt/tool";
const std::string COPYING = "exec /usr/bin/cp [-af] [/opt/tool] [/tmp/vukocrond/backup]";
const std::string STAT = "stat /tmp/vukocrond/backup";
const std::string CHOWN = "chown /tmp/vukocrond/backup 1000 100";
const std::string CHMOD = "chmod /tmp/vukocrond/backup 0700";

} // namespace

TEST_F(Staging, CopiesTheProgramAndSetsTheModeOfACopyThatIsItsOwnersAlready) {
    const support::CapturedSyslog log;
    CronJob job = Job();
    EXPECT_TRUE(job.MoveBinaryToTmp());
    EXPECT_EQ(fake::Calls(), (Calls{LOOK, COPYING, "account root", STAT, CHMOD}));
    EXPECT_EQ(fake::StorePlatform().mapFiles.at(COPY).mode, 0700U);
    EXPECT_EQ(fake::StorePlatform().mapFiles.at(PROGRAM).mode, 0755U);
}

TEST_F(Staging, PointsTheCommandAtTheCopyAndChangesNothingElse) {
    CronJob job = Job();
    Json::Value jsExpected = job._jsJob;
    jsExpected["cmd_list"] = FromText(R"(["/tmp/vukocrond/backup","-x","","y"])");
    EXPECT_TRUE(job.MoveBinaryToTmp());
    EXPECT_EQ(job._jsJob, jsExpected);
    EXPECT_EQ(job._jsJob["cmd_str"], "/opt/tool -x  y");
}

TEST_F(Staging, IsWhatInitDoes) {
    const support::CapturedSyslog log;
    CronJob job = Job();
    EXPECT_TRUE(job.Init());
    EXPECT_EQ(fake::Calls(), (Calls{LOOK, COPYING, "account root", STAT, CHMOD}));
    EXPECT_EQ(job._jsJob["cmd_list"][0U], COPY);
    fake::StorePlatform().mapFiles.clear();
    CronJob other = Job();
    EXPECT_EQ(Logged([&] { EXPECT_FALSE(other.Init()); }),
              std::vector<std::string>{"<3>cronjob:213 missing binary /opt/tool"});
}

TEST_F(Staging, GivesTheCopyToTheJobsAccountWhenOwnerOrGroupDiffer) {
    struct Case {
        uid_t uid;
        gid_t gid;
        bool bGiven;
    };
    for (const Case& c : {Case{0, 0, true}, Case{1000, 0, true}, Case{0, 100, true}, Case{1000, 100, false}}) {
        fake::StorePlatform().mapFiles[PROGRAM].uid = c.uid;
        fake::StorePlatform().mapFiles[PROGRAM].gid = c.gid;
        CronJob job = PackageJob();
        fake::ClearCalls();
        EXPECT_TRUE(job.MoveBinaryToTmp());
        const Calls vecGiven = {LOOK, COPYING, "account alice", STAT, CHOWN, CHMOD};
        const Calls vecLeft = {LOOK, COPYING, "account alice", STAT, CHMOD};
        EXPECT_EQ(fake::Calls(), c.bGiven ? vecGiven : vecLeft) << c.uid << ":" << c.gid;
        EXPECT_EQ(fake::StorePlatform().mapFiles.at(COPY).uid, 1000U);
        EXPECT_EQ(fake::StorePlatform().mapFiles.at(COPY).gid, 100U);
    }
}

TEST_F(Staging, TakesThePathsAtTheTimeOfTheCall) {
    const support::ScopedValue<const char*> folder(VUKO::VUKOCrond::SZF_TMP_BIN_FOLDER, "/elsewhere");
    CronJob job = Job(With("name", "a b/../c", With("cmd", PROGRAM)));
    EXPECT_TRUE(job.MoveBinaryToTmp());
    EXPECT_EQ(job._jsJob["cmd_list"][0U], "/elsewhere/a b/../c");
}

TEST_F(Staging, StagesTheCopyAgainWhenItIsCalledTwice) {
    CronJob job = Job();
    EXPECT_TRUE(job.MoveBinaryToTmp());
    fake::ClearCalls();
    EXPECT_TRUE(job.MoveBinaryToTmp());
    EXPECT_EQ(fake::Calls().front(), std::string("exist ") + COPY);
    EXPECT_EQ(job._jsJob["cmd_list"][0U], COPY);
}

TEST_F(Staging, TakesEveryAnswerButZeroForAnExistingProgram) {
    for (const int iResult : {-1, 1, 2}) {
        fake::StorePlatform().iFileExistResult = iResult;
        CronJob job = Job();
        EXPECT_TRUE(job.MoveBinaryToTmp()) << iResult;
    }
}

TEST_F(Staging, CopiesNothingWhenTheProgramIsMissing) {
    fake::StorePlatform().mapFiles.clear();
    ExpectFailure(Job(), {{213, "missing binary /opt/tool"}}, {LOOK}, PROGRAM);
    ExpectFailure(Job(With("cmd", "")), {{213, "missing binary "}}, {"exist"}, "");
    ExpectFailure(Job(With("cmd", "tool")), {{213, "missing binary tool"}}, {"exist tool"}, "tool");
    EXPECT_TRUE(fake::StorePlatform().mapFiles.empty());
}

TEST_F(Staging, LeavesTheCommandAloneWhenTheCopyFails) {
    fake::StorePlatform().mapFailing = {{"exec", 0}};
    fake::StorePlatform().uErrCode = 0x1F;
    fake::StorePlatform().strErrFile = "exec.cpp";
    fake::StorePlatform().iErrLine = 12;
    for (const int iResult : {1, -1, 127}) {
        fake::StorePlatform().iExecFailure = iResult;
        ExpectFailure(Job(), {{219, "Failed to cp [/opt/tool][/tmp/vukocrond/backup][0x001F exec.cpp:12]"}},
                      {LOOK, COPYING}, PROGRAM);
    }
}

TEST_F(Staging, StaysPointedAtTheCopyWhenTheAccountIsUnknown) {
    ExpectFailure(PackageJob("bob"), {{104, "user bob not exist"}, NO_ACCOUNT, INCORRECT},
                  {LOOK, COPYING, "account bob"}, COPY);
    EXPECT_EQ(fake::StorePlatform().mapFiles.at(COPY).mode, 0755U) << "the copy is left as cp made it";
}

TEST_F(Staging, StaysPointedAtTheCopyWhenTheDefinitionNamesNoAccount) {
    ExpectFailure(Job(With("user", "admin", With("cmd", PROGRAM))),
                  {{74, "wrong user admin! you can only specify root/system/package in config [\"backup\"]"},
                   {96, "Unable to determine user"},
                   NO_ACCOUNT,
                   INCORRECT},
                  {LOOK, COPYING}, COPY);
    ExpectFailure(
        PackageJob(5),
        {{70, "you are not package! error user in config"}, {96, "Unable to determine user"}, NO_ACCOUNT, INCORRECT},
        {LOOK, COPYING}, COPY);
}

TEST_F(Staging, ReportsACopyThatCannotBeLookedAt) {
    fake::StorePlatform().mapFailing = {{"stat", 0}};
    ExpectFailure(Job(), {{127, "Failed to stat [/tmp/vukocrond/backup][%m]"}, INCORRECT},
                  {LOOK, COPYING, "account root", STAT}, COPY);
}

TEST_F(Staging, ReportsACopyThatCannotBeGivenAway) {
    fake::StorePlatform().mapFailing = {{"chown", 0}};
    ExpectFailure(PackageJob(), {{133, "Failed to chown [/tmp/vukocrond/backup][alice][%m]"}, INCORRECT},
                  {LOOK, COPYING, "account alice", STAT, CHOWN}, COPY);
}

TEST_F(Staging, ReportsACopyWhoseModeCannotBeSet) {
    fake::StorePlatform().mapFailing = {{"chmod", 0}};
    ExpectFailure(PackageJob(), {{231, "Failed to chmod [/tmp/vukocrond/backup][%m]"}},
                  {LOOK, COPYING, "account alice", STAT, CHOWN, CHMOD}, COPY);
}

TEST_F(Staging, ShowsTheReasonTwiceInMessagesThatHoldIt) {
    fake::StorePlatform().mapFailing = {{"chmod", EPERM}};
    CronJob job = Job();
    EXPECT_EQ(
        Logged([&] { EXPECT_FALSE(job.MoveBinaryToTmp()); }),
        std::vector<std::string>{"<3>cronjob:231 Failed to chmod [/tmp/vukocrond/backup][Operation not permitted] "
                                 "(Operation not permitted)"});
}
