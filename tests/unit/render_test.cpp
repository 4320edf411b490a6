#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

TEST(CrontabLine, ShowsTheGeneratedValuesOfTheFiveFields) {
    struct Case {
        const char* szSchedule;
        const char* szLine;
        const char* szComment;
    };
    const Case aCases[] = {
        {R"({"Minute":[7],"hour":[3],"day":[-1],"month":[-1],"week":[-1]})", "7 3 -1 -1 -1", "any value stays -1"},
        {R"({"Minute":[0,30],"hour":[3],"day":[1],"month":[2],"week":[4]})", "0,30 3 1 2 4", "two minutes"},
        {R"({"week":[4],"month":[2],"day":[1],"hour":[3],"Minute":[0]})", "0 3 1 2 4",
         "whatever the order in the JSON"},
        {R"({"Minute":[9,1,9,-1],"hour":[0],"day":[1],"month":[1],"week":[0]})", "9,1,9,-1 0 1 1 0", "in stored order"},
        {R"({"Minute":[7],"hour":[3],"day":[-1],"month":[-1]})", "7 3 -1 -1 X", "a field is missing"},
        {R"({"Minute":[7],"hour":[3],"day":[-1],"month":[-1],"week":["1"]})", "7 3 -1 -1 X", "a text in a field"},
        {R"({"Minute":[7],"hour":[3],"day":[-1],"month":[-1],"week":[1,"2"]})", "7 3 -1 -1 X", "after a good value"},
        {R"({"Minute":[],"hour":[3],"day":5,"month":[1],"week":[1]})", "X 3 X 1 1", "an empty field, and no array"},
        {R"({"minute":[7],"hour":[3],"day":[1],"month":[1],"week":[1]})", "X 3 1 1 1",
         "the minute's key has a capital"},
        {R"({"Minute":[2147483647],"hour":[-2147483648]})", "2147483647 -2147483648 X X X", "the limits of an int"},
        {R"({"Minute":[7],"other":[1]})", "7 X X X X", "other members are not shown"},
        {"{}", "X X X X X", "an empty schedule"},
        {"null", "X X X X X", "no schedule"},
        {R"("7 3 * * *")", "X X X X X", "no schedule"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        EXPECT_EQ(JobWithSchedule(FromText(c.szSchedule)).ToCurrentCrontabString(), c.szLine);
    }
}

TEST(CrontabLine, OfAJobWithoutAScheduleHasNoValuesAndAddsNone) {
    const CronJob job(Document(Definition()));
    EXPECT_EQ(job.ToCurrentCrontabString(), "X X X X X");
    EXPECT_FALSE(job._jsJob.isMember("schedule"));
}

TEST(CrontabLine, ShowsWhatWasGenerated) {
    CronJob job(Document(Crontab("0,30 3~3 * 12 *")));
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, -1);
    }
    EXPECT_EQ(job.ToCurrentCrontabString(), "0,30 3 -1 12 -1");
}

TEST(CrontabLine, LogsNothingAndLeavesErrnoAlone) {
    const CronJob job = JobWithSchedule(FromText(R"({"Minute":[7],"hour":["x"]})"));
    ExpectInBothForms([&job] { EXPECT_EQ(job.ToCurrentCrontabString(), "7 X X X X"); }, {});
}
