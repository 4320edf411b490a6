#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scoped_tz.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

// Friday, 31 December 2027, 23:59:30 UTC.
constexpr time_t LAST_MINUTE_OF_2027 = 1'830'297'570;

const char* const EVERY_MINUTE = R"({"Minute":[-1],"hour":[-1],"day":[-1],"month":[-1],"week":[-1]})";

} // namespace

TEST(FieldReady, IsTrueWhenItHoldsTheValueOrAnyValue) {
    struct Case {
        const char* szSchedule;
        int iValue;
        bool bReady;
        const char* szComment;
    };
    const Case aCases[] = {
        {R"({"hour":[5]})", 5, true, "the value"},
        {R"({"hour":[5]})", 6, false, "another value"},
        {R"({"hour":[1,2,5]})", 5, true, "the last of several"},
        {R"({"hour":[1,-1]})", 5, true, "any value among them"},
        {R"({"hour":[-1]})", 0, true, "any value"},
        {R"({"hour":[-1]})", -1, true, "even -1"},
        {R"({"hour":[-2]})", 5, false, "another negative value means nothing"},
        {R"({"hour":[]})", 5, false, "no values"},
        {R"({"hour":null})", 5, false, "null has none"},
        {R"({"hour":5})", 5, false, "a number has none"},
        {R"({"hour":"5"})", 5, false, "a text has none"},
        {R"({"hour":{}})", 5, false, "an empty object has none"},
        {R"({"hour":[null]})", 0, true, "null converts to 0"},
        {R"({"hour":[true]})", 1, true, "true converts to 1"},
        {R"({"hour":[5.9]})", 5, true, "a fraction is cut"},
        {R"({"hour":[5,"x"]})", 5, true, "what comes behind the value is not looked at"},
        {R"({"hour":[-1,[]]})", 5, true, "nor behind any value"},
        {R"({"Hour":[5]})", 5, false, "another field"},
        {"{}", 5, false, "no field"},
        {"null", 5, false, "no schedule"},
        {"[]", 5, false, "no schedule"},
        {"5", 5, false, "no schedule"},
        {R"("hour")", 5, false, "no schedule"},
    };
    const CronJob job(Document(Definition()));
    for (const Case& c : aCases) {
        SCOPED_TRACE(std::string(c.szSchedule) + ": " + c.szComment);
        EXPECT_EQ(job.IsTypeReady(FromText(c.szSchedule), "hour", c.iValue), c.bReady);
    }
}

TEST(FieldReady, ReadsElementsWithTheJsonLibrarysConversionAndItsErrors) {
    const CronJob job(Document(Definition()));
    for (const char* const szSchedule : {R"({"hour":["5"]})", R"({"hour":[4,[]]})", R"({"hour":[{}]})",
                                         R"({"hour":{"0":5}})", R"({"hour":[2147483648]})", R"({"hour":[1e300]})"}) {
        EXPECT_THROW(job.IsTypeReady(FromText(szSchedule), "hour", 5), Json::LogicError) << szSchedule;
    }
}

TEST(DueTest, MatchesAllFiveFieldsAtOnce) {
    struct Case {
        const char* szSchedule;
        bool bDue;
        const char* szComment;
    };
    const Case aCases[] = {
        {EVERY_MINUTE, true, "every minute"},
        {R"({"Minute":[59],"hour":[23],"day":[31],"month":[12],"week":[-1]})", true, "the last minute of the year"},
        {R"({"Minute":[59],"hour":[23],"day":[31],"month":[12],"week":[5]})", true, "which is a Friday"},
        {R"({"Minute":[58],"hour":[23],"day":[31],"month":[12],"week":[5]})", false, "another minute"},
        {R"({"Minute":[59],"hour":[22],"day":[31],"month":[12],"week":[5]})", false, "another hour"},
        {R"({"Minute":[59],"hour":[23],"day":[30],"month":[12],"week":[5]})", false, "another day"},
        {R"({"Minute":[59],"hour":[23],"day":[31],"month":[11],"week":[-1]})", false, "months count from 1"},
        {R"({"Minute":[-1],"hour":[-1],"day":[31],"month":[-1],"week":[4]})", false, "the two day fields are ANDed"},
        {R"({"Minute":[-1],"hour":[-1],"day":[30],"month":[-1],"week":[5]})", false, "both ways"},
        {R"({"Minute":[-1],"hour":[-1],"day":[-1],"month":[-1],"week":[]})", false, "a field without values"},
        {R"({"Minute":[-1],"hour":[-1],"day":[-1],"month":[-1]})", false, "a field is missing"},
        {R"({"Minute":[-1],"hour":[-1],"day":[-1],"week":[-1]})", false, "a field is missing"},
        {R"({"Minute":[-1],"hour":[-1],"month":[-1],"week":[-1]})", false, "a field is missing"},
        {R"({"Minute":[-1],"day":[-1],"month":[-1],"week":[-1]})", false, "a field is missing"},
        {R"({"hour":[-1],"day":[-1],"month":[-1],"week":[-1]})", false, "a field is missing"},
        {"{}", false, "an empty schedule"},
        {"null", false, "no schedule"},
        {"[]", false, "no schedule"},
        {R"("* * * * *")", false, "no schedule"},
    };
    const support::ScopedTz tz("UTC0");
    const support::FakeClock clock(LAST_MINUTE_OF_2027);
    for (const Case& c : aCases) {
        SCOPED_TRACE(std::string(c.szSchedule) + ": " + c.szComment);
        EXPECT_EQ(JobWithSchedule(FromText(c.szSchedule)).IsOnScheduled(), c.bDue);
    }
    const CronJob job(Document(Definition()));
    EXPECT_FALSE(job.IsOnScheduled()) << "a job whose schedule was never generated";
    EXPECT_FALSE(job._jsJob.isMember("schedule")) << "asking adds nothing";
}

TEST(DueTest, StopsAtTheFirstFieldThatDoesNotMatch) {
    const support::ScopedTz tz("UTC0");
    const support::FakeClock clock(LAST_MINUTE_OF_2027);
    const std::vector<std::string> vecTypes = CronJob::GetAllScheduleTypes();
    for (std::size_t i = 0; i + 1 < vecTypes.size(); ++i) {
        Json::Value jsSchedule = FromText(EVERY_MINUTE);
        for (std::size_t k = i + 1; k < vecTypes.size(); ++k) {
            jsSchedule[vecTypes[k]] = FromText(R"(["no number"])");
        }
        EXPECT_THROW(JobWithSchedule(jsSchedule).IsOnScheduled(), Json::LogicError) << vecTypes[i];
        jsSchedule[vecTypes[i]] = FromText("[99]");
        EXPECT_FALSE(JobWithSchedule(jsSchedule).IsOnScheduled()) << vecTypes[i];
    }
}

TEST(DueTest, UsesTheZoneOfTheProcess) {
    const support::FakeClock clock(LAST_MINUTE_OF_2027);
    const CronJob job = JobWithSchedule(FromText(R"({"Minute":[29],"hour":[5],"day":[1],"month":[1],"week":[6]})"));
    EXPECT_FALSE(job.IsOnScheduled());
    const support::ScopedTz tz("IST-5:30");
    EXPECT_TRUE(job.IsOnScheduled());
}

TEST(DueTest, LooksAtTheWholeMinuteAndAtNoOther) {
    const support::ScopedTz tz("UTC0");
    support::FakeClock clock(0);
    const CronJob job = JobWithSchedule(FromText(R"({"Minute":[59],"hour":[23],"day":[31],"month":[12],"week":[-1]})"));
    const time_t tBegin = LAST_MINUTE_OF_2027 - 30;
    for (time_t t = tBegin - 60; t < tBegin + 120; ++t) {
        clock.Set(t);
        EXPECT_EQ(job.IsOnScheduled(), tBegin <= t && t < tBegin + 60) << t - tBegin;
    }
}

TEST(DueTest, ReadsTheClockOnce) {
    support::FakeClock clock(LAST_MINUTE_OF_2027);
    EXPECT_TRUE(JobWithSchedule(FromText(EVERY_MINUTE)).IsOnScheduled());
    const int iByConstruction = 1;
    EXPECT_EQ(clock.Readings() - iByConstruction, 1);
}

TEST(DueTest, ReportsALocalTimeThatCannotBeTold) {
    const CronJob job = JobWithSchedule(FromText(EVERY_MINUTE));
    ExpectInBothForms(
        [&job] {
            support::FakeClock clock(LAST_MINUTE_OF_2027);
            clock.FailLocaltime(0);
            EXPECT_FALSE(job.IsOnScheduled());
        },
        {{420, "Failed to get localtime"}});
    EXPECT_EQ(
        Logged([&job] {
            support::FakeClock clock(LAST_MINUTE_OF_2027);
            clock.FailLocaltime(EOVERFLOW);
            EXPECT_FALSE(job.IsOnScheduled());
        }),
        std::vector<std::string>{"<3>cronjob:420 Failed to get localtime (Value too large for defined data type)"});
}

TEST(ReadyMark, IsSetWhenTheJobIsDue) {
    const support::ScopedTz tz("UTC0");
    const support::FakeClock clock(LAST_MINUTE_OF_2027);
    CronJob job = JobWithSchedule(FromText(R"({"Minute":[59],"hour":[23,5],"day":[-1],"month":[-1],"week":[-1]})"));
    EXPECT_TRUE(job.SetReadyIfScheduled());
    EXPECT_EQ(job._jsJob["expireTime"].type(), Json::intValue);
    EXPECT_EQ(job._jsJob["expireTime"].asInt64(), LAST_MINUTE_OF_2027);
    EXPECT_EQ(job._strReadyCrontab, "59 23,5 -1 -1 -1");
}

TEST(ReadyMark, HoldsATimeBeyond32Bits) {
    const support::FakeClock clock(99'999'999'999);
    CronJob job = JobWithSchedule(FromText(EVERY_MINUTE));
    EXPECT_TRUE(job.SetReadyIfScheduled());
    EXPECT_EQ(job._jsJob["expireTime"].asInt64(), 99'999'999'999);
}

TEST(ReadyMark, IsLeftAloneWhenTheJobIsNotDue) {
    const support::ScopedTz tz("UTC0");
    const support::FakeClock clock(LAST_MINUTE_OF_2027);
    CronJob job = JobWithSchedule(FromText(R"({"Minute":[58],"hour":[-1],"day":[-1],"month":[-1],"week":[-1]})"));
    const Json::Value jsBefore = job._jsJob;
    EXPECT_FALSE(job.SetReadyIfScheduled());
    EXPECT_EQ(job._jsJob, jsBefore);
    EXPECT_EQ(job._strReadyCrontab, "");
    job._jsJob["expireTime"] = 77;
    job._strReadyCrontab = "earlier";
    EXPECT_FALSE(job.SetReadyIfScheduled());
    EXPECT_EQ(job._jsJob["expireTime"], 77);
    EXPECT_EQ(job._strReadyCrontab, "earlier");
}

TEST(ReadyMark, IsLeftAloneWhenTheTimeCannotBeTold) {
    CronJob job = JobWithSchedule(FromText(EVERY_MINUTE));
    ExpectInBothForms(
        [&job] {
            support::FakeClock clock(LAST_MINUTE_OF_2027);
            clock.FailLocaltime(0);
            EXPECT_FALSE(job.SetReadyIfScheduled());
        },
        {{420, "Failed to get localtime"}});
    EXPECT_FALSE(job._jsJob.isMember("expireTime"));
    EXPECT_EQ(job._strReadyCrontab, "");
}

TEST(ReadyMark, MovesOnWhenAskedAgainInTheSameMinute) {
    support::FakeClock clock(LAST_MINUTE_OF_2027);
    CronJob job = JobWithSchedule(FromText(EVERY_MINUTE));
    EXPECT_TRUE(job.SetReadyIfScheduled());
    clock.Set(LAST_MINUTE_OF_2027 + 20);
    EXPECT_TRUE(job.SetReadyIfScheduled());
    EXPECT_EQ(job._jsJob["expireTime"].asInt64(), LAST_MINUTE_OF_2027 + 20);
    EXPECT_EQ(job._strReadyCrontab, "-1 -1 -1 -1 -1");
}
