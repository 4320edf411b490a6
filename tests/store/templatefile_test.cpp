/// A schedule template and its real file.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "crond/cronjob.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/definitions.h"

using VUKO::VUKOCrond::CronJob;
using VUKO::VUKOCrond::ScheduleTemplate;

TEST(StoredTemplate, SurvivesARestartByteByByte) {
    const support::CapturedSyslog log;
    const support::TempDir dir;
    for (const int iDelay : {300, 0, 12}) {
        ScheduleTemplate first;
        first._iMaxDelay = iDelay;
        first._jsJob["unknown"] = unit::FromText(R"({"b":[1,-2,3.5,1e300,18446744073709551615],"a":"\u00e4\u0000\n"})");
        ASSERT_TRUE(first.toFile(dir / "first"));
        ScheduleTemplate second;
        ASSERT_TRUE(second.fromFile(dir / "first"));
        EXPECT_EQ(second._iMaxDelay, iDelay);
        for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
            EXPECT_EQ(second.GetGeneratedSchedule(strType), first.GetGeneratedSchedule(strType));
        }
        ASSERT_TRUE(second.toFile(dir / "second"));
        EXPECT_EQ(support::ReadFile(dir / "second"), support::ReadFile(dir / "first"));
        EXPECT_EQ(support::ModeOf(dir / "second"), 0600);
    }
}

TEST(StoredTemplate, StaysAsItWasWhenTheFileIsMissingOrNoJson) {
    const support::CapturedSyslog log;
    const support::TempDir dir;
    ScheduleTemplate scheduleTemplate;
    const Json::Value jsBefore = scheduleTemplate._jsJob;
    EXPECT_FALSE(scheduleTemplate.fromFile(dir / "missing"));
    EXPECT_FALSE(scheduleTemplate.fromFile(dir.Path()));
    for (const char* const szText : {"", "{", "{} {}", "{\"config\":}", "\xff", "nul"}) {
        support::WriteFile(dir / "broken", szText);
        EXPECT_FALSE(scheduleTemplate.fromFile(dir / "broken")) << szText;
    }
    EXPECT_EQ(scheduleTemplate._jsJob, jsBefore);
    EXPECT_EQ(scheduleTemplate._iMaxDelay, 300);
}

TEST(StoredTemplate, ReportsAFileThatIsJsonAndNoJob) {
    const support::TempDir dir;
    support::CapturedSyslog log;
    support::WriteFile(dir / "array", "[]");
    ScheduleTemplate scheduleTemplate;
    errno = 0;
    EXPECT_FALSE(scheduleTemplate.fromFile(dir / "array"));
    EXPECT_EQ(log.Take(), (std::vector<std::string>{
                              "<3>cronjob:179 Failed [!_jsJob.isMember(\"config\") || !jsConf.isObject()], err=Success",
                              "<3>cronjob:162 crontab format error",
                              "<3>cronjob:722 Failed to parse schedule template from [" + (dir / "array") + "]"}));
}

TEST(StoredTemplate, ReportsAFolderThatIsMissingByItsResultAlone) {
    const support::CapturedSyslog log;
    const support::TempDir dir;
    EXPECT_FALSE(ScheduleTemplate().toFile(dir / "missing/template"));
}
