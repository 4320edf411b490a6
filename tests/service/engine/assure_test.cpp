#include <gtest/gtest.h>

#include "service/engine/engine.h"
#include "tests/service/engine/engine_jobs.h"
#include "tests/service/engine/told.h"

using namespace VUKO::VUKOCrond::Service;
using engine_test::InputAt;
using engine_test::JobOf;
using engine_test::LocalMinute;
using engine_test::Starts;
using engine_test::TableOf;
using engine_test::Texts;

namespace {

const std::int64_t NOON = LocalMinute(2026, 6, 10, 12, 0);
const std::int64_t NOON_SEC = NOON * 60;
constexpr std::int64_t HOUR = 3600;

/// Due at midnight, with a day's guarantee that has run out by a second at noon.
Job Overdue(bool bRun) {
    Job job = JobOf("job", "0 0 * * *");
    job.iAssureHours = 24;
    job.bAssureRun = bRun;
    job.iLastExecution = NOON_SEC - 24 * HOUR - 1;
    return job;
}

TickInput AtNoon() {
    return InputAt(NOON - 1, NOON);
}

Decision DecideFor(const Job& job, const TickInput& input = AtNoon()) {
    return Decide(input, TableOf({job}));
}

TEST(Guarantee, StartsAnOverdueJobAtTheNextTick) {
    EXPECT_EQ(Starts(DecideFor(Overdue(true))), Texts{"0 assure 12:00"});
}

TEST(Guarantee, HoldsForItsLastSecond) {
    Job job = Overdue(true);
    job.iLastExecution = NOON_SEC - 24 * HOUR;
    EXPECT_TRUE(DecideFor(job).IsIdle());
    job.iLastExecution -= 1;
    EXPECT_FALSE(DecideFor(job).IsIdle());
}

TEST(Guarantee, CountsFromWhenAJobBecameKnownThatNeverRan) {
    Job job = Overdue(true);
    job.iLastExecution = Job::NEVER;
    job.iStartup = NOON_SEC - 24 * HOUR;
    EXPECT_TRUE(DecideFor(job).IsIdle());
    job.iStartup -= 1;
    EXPECT_EQ(Starts(DecideFor(job)), Texts{"0 assure 12:00"});
}

TEST(Guarantee, OfNegativeHoursIsNeverHeld) {
    Job job = Overdue(true);
    job.iAssureHours = -1;
    job.iLastExecution = NOON_SEC;
    EXPECT_EQ(Starts(DecideFor(job)), Texts{"0 assure 12:00"});
}

TEST(Guarantee, WrapsIn32BitsAsTheLibrarys) {
    Job job = Overdue(true);
    job.iLastExecution = NOON_SEC;
    job.iAssureHours = 596'523;
    EXPECT_TRUE(DecideFor(job).IsIdle());
    job.iAssureHours = 596'524;
    EXPECT_EQ(Starts(DecideFor(job)), Texts{"0 assure 12:00"});
}

TEST(Guarantee, OfNoHoursIsNone) {
    Job job = Overdue(true);
    job.iAssureHours = 0;
    job.iLastExecution = 0;
    EXPECT_TRUE(DecideFor(job).IsIdle());
}

TEST(Guarantee, AddsNothingToAStartOfTheSameTick) {
    Job job = Overdue(true);
    job.schedule = Schedule("0 12 -1 -1 -1");
    EXPECT_EQ(Starts(DecideFor(job)), Texts{"0 due 12:00"});
    job.schedule = Schedule("59 11 -1 -1 -1");
    EXPECT_EQ(Starts(DecideFor(job, InputAt(NOON - 2, NOON))), Texts{"0 made-up 11:59"});
    job.uPendingRun = 3;
    job.iPendingMinute = NOON - 1;
    EXPECT_EQ(Starts(DecideFor(job)), Texts{"0 retry 11:59"});
}

TEST(Guarantee, WaitsUntilTheBootHasSettled) {
    TickInput input = AtNoon();
    input.bBootSettled = false;
    EXPECT_TRUE(DecideFor(Overdue(true), input).IsIdle());
    EXPECT_TRUE(DecideFor(Overdue(false), input).IsIdle());
}

TEST(Guarantee, StartsNothingThatMayNotStart) {
    struct {
        const char* szName;
        void (*change)(Job& job, TickInput& input);
    } const aCases[] = {
        {"running", [](Job& job, TickInput&) { job.uRunning = 1; }},
        {"running, overlap allowed",
         [](Job& job, TickInput&) {
             job.uRunning = 1;
             job.bAllowOverlap = true;
         }},
        {"disabled", [](Job& job, TickInput&) { job.bEnabled = false; }},
        {"invalid", [](Job& job, TickInput&) { job.bInvalid = true; }},
        {"passive", [](Job&, TickInput& input) { input.bPassive = true; }},
        {"hibernating", [](Job&, TickInput& input) { input.bHibernating = true; }},
        {"hibernating, literal",
         [](Job&, TickInput& input) {
             input.bHibernating = true;
             input.ePolicy = ClockPolicy::Literal;
         }},
        {"stopping", [](Job&, TickInput& input) { input.bStopping = true; }},
    };
    for (const auto& tested : aCases) {
        Job job = Overdue(true);
        TickInput input = AtNoon();
        tested.change(job, input);
        EXPECT_TRUE(DecideFor(job, input).IsIdle()) << tested.szName;
    }
}

TEST(Guarantee, HoldsOnThePassiveSideForJobsThatRunThere) {
    Job job = Overdue(true);
    job.bRunOnPassive = true;
    TickInput input = AtNoon();
    input.bPassive = true;
    EXPECT_EQ(Starts(DecideFor(job, input)), Texts{"0 assure 12:00"});
}

TEST(GuaranteeOfAJobThatWaits, IsReportedOnce) {
    JobTable table = TableOf({Overdue(false)});
    const Decision decision = Decide(AtNoon(), table);
    EXPECT_TRUE(decision.vecStarts.empty());
    EXPECT_EQ(decision.vecOverdue, std::vector<JobIndex>{0});
    table.Modify(0, [](Job& job) { job.bOverdueReported = true; });
    EXPECT_TRUE(Decide(InputAt(NOON, NOON + 1), table).IsIdle());
    table.Modify(0, [](Job& job) {
        job.bOverdueReported = false;
        job.iLastExecution = NOON_SEC + 60;
    });
    EXPECT_TRUE(Decide(InputAt(NOON + 1, NOON + 2), table).IsIdle());
    EXPECT_EQ(Decide(InputAt(NOON + 1441, NOON + 1442), table).vecOverdue, std::vector<JobIndex>{0});
}

TEST(GuaranteeOfAJobThatWaits, IsReportedWhileItsLastRunGoesOn) {
    Job job = Overdue(false);
    job.uRunning = 1;
    EXPECT_EQ(DecideFor(job).vecOverdue, std::vector<JobIndex>{0});
}

TEST(GuaranteeOfAJobThatWaits, IsNotReportedWhereTheJobHasNoMinuteToWaitFor) {
    Job job = Overdue(false);
    job.bEnabled = false;
    EXPECT_TRUE(DecideFor(job).IsIdle());
    TickInput input = AtNoon();
    input.bPassive = true;
    EXPECT_TRUE(DecideFor(Overdue(false), input).IsIdle());
    input.bPassive = false;
    EXPECT_EQ(DecideFor(Overdue(false), input).vecOverdue, std::vector<JobIndex>{0});
}

TEST(StampInTheFuture, CountsAsNow) {
    TickInput input = AtNoon();
    input.bLookForFuture = true;
    for (const bool bRun : {false, true}) {
        Job job = Overdue(bRun);
        job.iLastExecution = NOON_SEC + 1;
        EXPECT_EQ(DecideFor(job, input).vecFuture, std::vector<JobIndex>{0});
        EXPECT_TRUE(DecideFor(job, input).vecStarts.empty());
        EXPECT_TRUE(DecideFor(job, input).vecOverdue.empty());
        job.iLastExecution = Job::NEVER;
        job.iStartup = NOON_SEC + 100'000'000;
        EXPECT_EQ(DecideFor(job, input).vecFuture, std::vector<JobIndex>{0});
        job.iStartup = NOON_SEC;
        EXPECT_TRUE(DecideFor(job, input).IsIdle());
    }
}

TEST(StampInTheFuture, LapsesAtOnceWhereTheHoursAreNegative) {
    TickInput input = AtNoon();
    input.bLookForFuture = true;
    for (const std::int64_t iAhead : {std::int64_t{600}, HOUR, 5 * HOUR}) {
        Job job = Overdue(true);
        job.iLastExecution = NOON_SEC + iAhead;
        job.iAssureHours = -1;
        EXPECT_EQ(Starts(DecideFor(job, input)), Texts{"0 assure 12:00"}) << iAhead;
        job.bAssureRun = false;
        EXPECT_EQ(DecideFor(job, input).vecOverdue, std::vector<JobIndex>{0}) << iAhead;
        job.bOverdueReported = true;
        EXPECT_TRUE(DecideFor(job, input).vecOverdue.empty()) << iAhead;
    }
}

TEST(StampInTheFuture, LapsesNeverByASumThatWraps) {
    Job job = Overdue(true);
    job.iLastExecution = INT64_MAX - 10;
    EXPECT_TRUE(DecideFor(job).IsIdle());
}

TEST(StampInTheFuture, IsNoConcernOfAJobWithoutGuarantee) {
    TickInput input = AtNoon();
    input.bLookForFuture = true;
    Job job = Overdue(true);
    job.iAssureHours = 0;
    job.iLastExecution = NOON_SEC + 100;
    EXPECT_TRUE(DecideFor(job, input).IsIdle());
}

TEST(SpreadOfStarts, IsEvenAndStaysBelowItsMaximum) {
    for (const int iMaxDelay : {1, 7, 59, 60, 900, 3600, 86'400, INT32_MAX}) {
        for (const std::size_t uCount : {1U, 2U, 3U, 7U, 60U, 61U, 1000U, 100'000U}) {
            EXPECT_EQ(SpreadDelay(0, uCount, iMaxDelay), 0);
            int iBefore = 0;
            for (std::size_t u = 0; u < uCount; ++u) {
                const int iDelay = SpreadDelay(u, uCount, iMaxDelay);
                const double fEven =
                    static_cast<double>(iMaxDelay) * static_cast<double>(u) / static_cast<double>(uCount);
                ASSERT_LE(iBefore, iDelay);
                ASSERT_LT(iDelay, iMaxDelay);
                ASSERT_LE(static_cast<double>(iDelay), fEven + 1e-3);
                ASSERT_GT(static_cast<double>(iDelay), fEven - 1.001);
                iBefore = iDelay;
            }
        }
    }
}

TEST(SpreadOfStarts, IsNoneWithoutADelay) {
    for (const int iMaxDelay : {0, -1, INT32_MIN}) {
        EXPECT_EQ(SpreadDelay(5, 10, iMaxDelay), 0);
    }
    EXPECT_EQ(SpreadDelay(0, 0, 60), 0);
}

TEST(SpreadOfStarts, ConcernsJobsOfARandomMinuteAndAssuredOnes) {
    std::vector<Job> vecJobs;
    for (const char* const szName : {"a", "b", "c", "d", "e"}) {
        vecJobs.push_back(JobOf(szName, "0 12 * * *"));
    }
    vecJobs[1].bRandomMinute = true;
    vecJobs[3].bRandomMinute = true;
    vecJobs[4] = Overdue(true);
    vecJobs[4].id.strName = "e";
    TickInput input = AtNoon();
    input.iMaxDelay = 90;
    const Decision decision = DecideFor(vecJobs[0], input);
    EXPECT_EQ(decision.vecStarts.at(0).iDelaySec, 0);
    std::vector<int> vecDelays;
    for (const Start& start : Decide(input, TableOf(vecJobs)).vecStarts) {
        vecDelays.push_back(start.iDelaySec);
    }
    EXPECT_EQ(vecDelays, (std::vector<int>{0, 0, 0, 30, 60}));
}

} // namespace
