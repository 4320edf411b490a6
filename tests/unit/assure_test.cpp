#include <gtest/gtest.h>

#include <limits>

#include "crond/cronjob.h"
#include "tests/support/fake_clock.h"
#include "tests/unit/definitions.h"

using namespace unit;

namespace {

constexpr std::int64_t T = 1'800'000'000;
constexpr std::int64_t FAR_FUTURE = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t FAR_PAST = std::numeric_limits<std::int64_t>::min();
constexpr int INT_GREATEST = std::numeric_limits<int>::max();
constexpr int INT_LEAST = std::numeric_limits<int>::min();

CronJob AssuredJob(int iHours) {
    CronJob job(Document(With("assure_execute", iHours)));
    job._jsJob.removeMember("startup");
    return job;
}

} // namespace

TEST(AssuredExecution, LapsesWhenItsHoursAreOver) {
    struct Case {
        int iHours;
        std::int64_t iBase;
        std::int64_t iNow;
        bool bLapsed;
        const char* szComment;
    };
    const Case aCases[] = {
        {24, T, T, false, "it has just run"},
        {24, T, T + 86400, false, "to the second"},
        {24, T, T + 86401, true, "a second later"},
        {24, T, T - 5, false, "the clock went back"},
        {1, T, T + 3600, false, "one hour"},
        {1, T, T + 3601, true, "one hour"},
        {1, 0, 3600, false, "a base of 0 is a time too"},
        {0, T, T + 999'999'999, false, "no guarantee"},
        {0, 0, FAR_FUTURE, false, "no guarantee, ever"},
        {-1, T, T, true, "negative hours lapse at once"},
        {-1, T, T - 3600, false, "that is, an hour before"},
        {-1, T, T - 3599, true, "strictly"},
        {596523, T, T + 2'147'482'800, false, "the greatest product that fits"},
        {596523, T, T + 2'147'482'801, true, "the greatest product that fits"},
        {596524, T, T, true, "the product wraps to -2147480896"},
        {596524, T, T - 2'147'480'896, false, "the product wraps to -2147480896"},
        {596524, T, T - 2'147'480'895, true, "the product wraps to -2147480896"},
        {1193047, T, T + 1904, false, "it wraps once around to 1904"},
        {1193047, T, T + 1905, true, "it wraps once around to 1904"},
        {-596523, T, T - 2'147'482'800, false, "the least product that fits"},
        {-596523, T, T - 2'147'482'799, true, "the least product that fits"},
        {-596524, T, T + 2'147'480'896, false, "it wraps to 2147480896"},
        {-596524, T, T + 2'147'480'897, true, "it wraps to 2147480896"},
        {INT_GREATEST, T, T - 3600, false, "it wraps to -3600"},
        {INT_GREATEST, T, T - 3599, true, "it wraps to -3600"},
        {INT_LEAST, T, T, false, "it wraps to 0"},
        {INT_LEAST, T, T + 1, true, "it wraps to 0"},
        {24, T, -1, false, "a clock before the epoch"},
        {24, FAR_PAST, T, true, "a base before all times"},
        {24, FAR_FUTURE - 86400, FAR_FUTURE, false, "the last limit that fits"},
        {24, FAR_FUTURE - 86399, FAR_FUTURE, true, "one beyond wraps to the past"},
        {24, FAR_FUTURE, T, true, "so does every later one"},
        {-24, FAR_PAST + 86400, FAR_PAST, false, "the first limit that fits"},
        {-24, FAR_PAST, T, false, "one before wraps to the future"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(std::to_string(c.iHours) + " hours: " + c.szComment);
        CronJob job = AssuredJob(c.iHours);
        const support::FakeClock clock(c.iNow);
        for (const char* const szKey : {"startup", "lastExecution"}) {
            job._jsJob[szKey] = static_cast<Json::Int64>(c.iBase);
            EXPECT_EQ(job.IsExpiredAssure(), c.bLapsed) << szKey;
        }
    }
}

TEST(AssuredExecution, CountsFromTheLastStartOrElseFromTheFirstSight) {
    const support::FakeClock clock(T);
    CronJob job = AssuredJob(1);
    job._jsJob["startup"] = static_cast<Json::Int64>(T);
    EXPECT_FALSE(job.IsExpiredAssure());
    job._jsJob["lastExecution"] = static_cast<Json::Int64>(T - 3601);
    EXPECT_TRUE(job.IsExpiredAssure()) << "the last start goes before a later startup";
    job._jsJob["lastExecution"] = 0;
    EXPECT_TRUE(job.IsExpiredAssure()) << "a last start of 0 is there";
    job._jsJob["lastExecution"] = Json::Value();
    EXPECT_TRUE(job.IsExpiredAssure()) << "so is one that is null, which reads as 0";
}

TEST(AssuredExecution, LapsesForAJobThatHasNeitherTime) {
    const support::FakeClock clock(T);
    const CronJob job = AssuredJob(24);
    EXPECT_TRUE(job.IsExpiredAssure());
    EXPECT_FALSE(job._jsJob.isMember("startup")) << "asking adds nothing";
    EXPECT_FALSE(job._jsJob.isMember("lastExecution"));
    EXPECT_FALSE(AssuredJob(0).IsExpiredAssure()) << "unless it has no guarantee";
}

TEST(AssuredExecution, BeginsWithConstruction) {
    support::FakeClock clock(T);
    const CronJob job(Document(With("assure_execute", 2)));
    EXPECT_FALSE(job.IsExpiredAssure());
    clock.Set(T + 7200);
    EXPECT_FALSE(job.IsExpiredAssure());
    clock.Set(T + 7201);
    EXPECT_TRUE(job.IsExpiredAssure());
}

TEST(AssuredExecution, ReadsItsTimesWithTheJsonLibrarysConversionAndItsErrors) {
    const support::FakeClock clock(T);
    CronJob job = AssuredJob(1);
    job._jsJob["startup"] = static_cast<double>(T) + 0.5;
    EXPECT_FALSE(job.IsExpiredAssure()) << "a fraction is cut";
    for (const char* const szNoTime : {R"("yesterday")", "[]", "{}", "18446744073709551615"}) {
        job._jsJob["startup"] = FromText(szNoTime);
        EXPECT_THROW(job.IsExpiredAssure(), Json::LogicError) << szNoTime;
        job._iAssureExecute = 0;
        EXPECT_FALSE(job.IsExpiredAssure()) << "without a guarantee no time is read";
        job._iAssureExecute = 1;
    }
}
