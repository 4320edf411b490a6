#include "service/engine/job.h"

#include <gtest/gtest.h>

#include "tests/service/engine/engine_jobs.h"
#include "tests/support/captured_syslog.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using engine_test::Definition;
using engine_test::JobOf;
using engine_test::RecordOf;

namespace {

TEST(JobIdText, ReadsBack) {
    EXPECT_EQ(ToText(JobId{"pkg", "", "backup"}), "pkg/backup");
    EXPECT_EQ(ToText(JobId{"nonroot", "photos", "index"}), "nonroot/photos/index");
    for (const JobId& id : {JobId{"pkg", "", "backup"}, JobId{"nonroot", "photos", "index"}}) {
        EXPECT_EQ(IdFromText(ToText(id)), id);
    }
    EXPECT_EQ(IdFromText("backup"), JobId());
}

TEST(JobIdText, CannotForgeALine) {
    EXPECT_EQ(ToText(JobId{"pkg", "", "a\nb"}), "pkg/a\\x0ab");
}

TEST(JobFromADefinition, TakesWhatIsWrittenThere) {
    Json::Value jsDefinition = Definition("job", "~ 3 * * *");
    jsDefinition["user"] = "package";
    jsDefinition["package_username"] = "photos";
    jsDefinition["assure_execute"] = 24;
    jsDefinition["assure_execute_action"] = "run";
    jsDefinition["run_on_passive"] = true;
    jsDefinition["enabled"] = false;
    jsDefinition["overlap"] = "allow";
    jsDefinition["timeout"] = 90;
    const Job job = JobOf(RecordOf(jsDefinition, {17}));
    EXPECT_EQ(job.strFields, "0~59 3 * * *");
    EXPECT_EQ(job.strSchedule, "17 3 -1 -1 -1");
    EXPECT_EQ(job.strAccount, "photos");
    EXPECT_EQ(job.iAssureHours, 24);
    EXPECT_EQ(job.iTimeout, 90);
    EXPECT_TRUE(job.bAssureRun && job.bRunOnPassive && job.bRandomMinute && job.bAllowOverlap);
    EXPECT_FALSE(job.bEnabled);
}

TEST(JobFromADefinition, HasTheDefaultsOfWhatIsNot) {
    const Job job = JobOf(RecordOf(Definition("job", "0 ~ * * *")));
    EXPECT_EQ(job.strAccount, "root");
    EXPECT_TRUE(job.bEnabled);
    EXPECT_FALSE(job.bAssureRun || job.bRunOnPassive || job.bRandomMinute || job.bAllowOverlap || job.bInvalid);
    EXPECT_EQ(job.iAssureHours, 0);
    EXPECT_EQ(job.iTimeout, 0);
    EXPECT_FALSE(job.HasAssure());
    EXPECT_FALSE(job.IsPending());
}

TEST(JobRecord, IsTheLibrarysWithTheKeptValuesAndStamps) {
    Job job = JobOf(RecordOf(Definition("job", "~ ~ * * *"), {17, 4}), 1'000);
    job.iLastExecution = 2'000;
    const CronJob record = BuildRecord(job);
    ASSERT_TRUE(record._bValid);
    EXPECT_EQ(ScheduleToText(record), "17 4 -1 -1 -1");
    EXPECT_EQ(record._jsJob["startup"].asInt64(), 1'000);
    EXPECT_EQ(record._jsJob["lastExecution"].asInt64(), 2'000);
    EXPECT_EQ(record._jsJob["config"]["name"].asString(), "job");
}

TEST(JobRecord, OfAJobThatNeverRanHasNoLastExecution) {
    EXPECT_FALSE(BuildRecord(JobOf("job", "* * * * *"))._jsJob.isMember("lastExecution"));
}

TEST(JobRecord, ShowsItsCommandInOneLineAndRunsItAsItIs) {
    Json::Value jsDefinition = Definition("job", "* * * * *");
    jsDefinition["cmd_list"].append("/bin/echo");
    jsDefinition["cmd_list"].append("two\nlines");
    const CronJob record = BuildRecord(JobOf(RecordOf(jsDefinition)));
    EXPECT_EQ(record._jsJob["cmd_str"].asString(), "/bin/echo two\\x0alines ");
    EXPECT_EQ(record._jsJob["cmd_list"][1].asString(), "two\nlines");
}

TEST(JobRecord, IsInvalidWhereTheLibraryRefusesTheDefinition) {
    support::CapturedSyslog syslog;
    Job job = JobOf("job", "* * * * *");
    job.strDefinition = "{\"name\":";
    EXPECT_FALSE(BuildRecord(job)._bValid);
    EXPECT_FALSE(syslog.Take().empty());
}

TEST(JobDefinitionText, ReadsBackInOneLine) {
    Json::Value jsDefinition = Definition("job", "* * * * *");
    jsDefinition["description"] = "two\nlines \"and\" a \\";
    const std::string strText = DefinitionToText(jsDefinition);
    EXPECT_EQ(strText.find('\n'), std::string::npos);
    EXPECT_EQ(DefinitionFromText(strText), jsDefinition);
    EXPECT_TRUE(DefinitionFromText("{").isNull());
}

/// The library's own answer at an instant, without asking the clock.
TEST(AssureLimit, IsTheLastSecondOfTheGuarantee) {
    Job job = JobOf("job", "* * * * *");
    job.iLastExecution = 1'600'000'000;
    for (const std::int32_t iHours : {1, 24, 596'523, -1, -24}) {
        job.iAssureHours = iHours;
        EXPECT_EQ(job.AssureLimit(), 1'600'000'000 + std::int64_t{iHours} * 3600) << iHours;
    }
}

TEST(AssureLimit, WrapsItsSecondsIn32Bits) {
    Job job = JobOf("job", "* * * * *");
    job.iLastExecution = 1'600'000'000;
    job.iAssureHours = 596'524; // 2147486400 seconds
    EXPECT_EQ(job.AssureLimit(), 1'600'000'000 + 2'147'486'400 - 4'294'967'296);
    job.iAssureHours = 1'193'047; // 4294969200 seconds: once around
    EXPECT_EQ(job.AssureLimit(), 1'600'000'000 + 1'904);
    job.iAssureHours = INT32_MAX; // less one hour, all around
    EXPECT_EQ(job.AssureLimit(), 1'600'000'000 - 3'600);
}

TEST(AssureLimit, CountsFromTheLastRunElseFromWhenTheJobBecameKnown) {
    Job job = JobOf("job", "* * * * *");
    job.iAssureHours = 1;
    job.iStartup = 5'000;
    EXPECT_EQ(job.AssureLimit(), 5'000 + 3'600);
    job.iLastExecution = 0; // the epoch is a time as any other
    EXPECT_EQ(job.AssureLimit(), 3'600);
}

} // namespace
