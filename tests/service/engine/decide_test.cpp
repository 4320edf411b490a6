#include <gtest/gtest.h>

#include <set>

#include "service/engine/engine.h"
#include "tests/service/engine/engine_jobs.h"
#include "tests/service/engine/told.h"

using namespace VUKO::VUKOCrond::Service;
using engine_test::InputAt;
using engine_test::JobOf;
using engine_test::LocalMinute;
using engine_test::Skips;
using engine_test::Starts;
using engine_test::TableOf;
using engine_test::Texts;

namespace {

/// A summer day; every job of the tests may be due on it.
std::int64_t At(int iHour, int iMinute) {
    return LocalMinute(2026, 6, 10, iHour, iMinute);
}

/// One look at a clock that shows `iNow` when the service has worked up to `iWorkedUpTo`.
Decision DecideOne(std::int64_t iWorkedUpTo, std::int64_t iNow, const std::string& strCrontab) {
    return Decide(InputAt(iWorkedUpTo, iNow), TableOf({JobOf("job", strCrontab)}));
}

TEST(OrdinaryTick, StartsBothKindsOfJobInTheirMinute) {
    EXPECT_EQ(Starts(DecideOne(At(2, 59), At(3, 0), "0 3 * * *")), Texts{"0 due 03:00"});
    EXPECT_EQ(Starts(DecideOne(At(2, 59), At(3, 0), "0 * * * *")), Texts{"0 due 03:00"});
    EXPECT_TRUE(DecideOne(At(3, 0), At(3, 1), "0 3 * * *").IsIdle());
    EXPECT_TRUE(DecideOne(At(3, 0), At(3, 1), "0 * * * *").IsIdle());
    EXPECT_EQ(DecideOne(At(3, 0), At(3, 1), "0 * * * *").iWorkedUpTo, At(3, 1));
}

TEST(LateTick, MakesUpForBothKindsOfJob) {
    for (const char* const szCrontab : {"0 3 * * *", "0 * * * *"}) {
        EXPECT_EQ(Starts(DecideOne(At(2, 59), At(3, 1), szCrontab)), Texts{"0 made-up 03:00"}) << szCrontab;
        EXPECT_EQ(Starts(DecideOne(At(2, 59), At(3, 4), szCrontab)), Texts{"0 made-up 03:00"}) << szCrontab;
        EXPECT_EQ(Starts(DecideOne(At(2, 57), At(3, 0), szCrontab)), Texts{"0 due 03:00"}) << szCrontab;
        EXPECT_TRUE(DecideOne(At(3, 0), At(3, 5), szCrontab).IsIdle()) << szCrontab; // v itself is done with
    }
}

TEST(ClockThatWentForward, IsMadeUpForToFixedJobsOnly) {
    EXPECT_EQ(Starts(DecideOne(At(2, 59), At(3, 5), "0 3 * * *")), Texts{"0 made-up 03:00"});
    EXPECT_EQ(Starts(DecideOne(At(0, 30), At(3, 30), "30 2 * * *")), Texts{"0 made-up 02:30"});
    EXPECT_EQ(Starts(DecideOne(At(0, 30), At(3, 30), "31 0 * * *")), Texts{"0 made-up 00:31"});
    EXPECT_TRUE(DecideOne(At(0, 30), At(3, 30), "30 0 * * *").IsIdle());
    const Decision wildcard = DecideOne(At(2, 59), At(3, 5), "0 * * * *");
    EXPECT_TRUE(wildcard.vecStarts.empty());
    EXPECT_EQ(Skips(wildcard), Texts{"0 clock step 03:00"});
    EXPECT_EQ(Starts(DecideOne(At(2, 59), At(3, 5), "5 * * * *")), Texts{"0 due 03:05"});
    EXPECT_EQ(Starts(DecideOne(At(1, 59), At(3, 0), "* 2 * * *")), Texts()); // any minute of an hour that never was
}

TEST(ClockThatWentForward, SaysDueWhereTheJobMatchesTheMinuteItself) {
    const Decision decision = DecideOne(At(1, 59), At(3, 0), "0,30 2,3 * * *");
    EXPECT_EQ(Starts(decision), Texts{"0 due 03:00"});
    EXPECT_EQ(Skips(decision), (Texts{"0 clock step 02:00", "0 clock step 02:30"}));
}

TEST(ClockThatWentBack, StartsNoFixedJobUntilItHasCaughtUp) {
    for (const int iBack : {0, 1, 60, 180}) {
        const Decision fixed = DecideOne(At(3, 0) + iBack, At(3, 0), "0 3 * * *");
        EXPECT_TRUE(fixed.vecStarts.empty()) << iBack;
        EXPECT_EQ(fixed.iWorkedUpTo, At(3, 0) + iBack);
        const Decision wildcard = DecideOne(At(3, 0) + iBack, At(3, 0), "0 * * * *");
        EXPECT_EQ(Starts(wildcard), Texts{"0 due 03:00"}) << iBack;
        EXPECT_EQ(wildcard.iWorkedUpTo, At(3, 0) + iBack);
    }
}

TEST(ClockThatWasSet, StartsWhatMatchesTheMinuteThatShows) {
    for (const std::int64_t iWorkedUpTo : {At(3, 0) - 181, At(3, 0) + 181, At(3, 0) - 100'000, At(3, 0) + 100'000}) {
        for (const char* const szCrontab : {"0 3 * * *", "0 * * * *"}) {
            const Decision decision = DecideOne(iWorkedUpTo, At(3, 0), szCrontab);
            EXPECT_EQ(Starts(decision), Texts{"0 due 03:00"}) << iWorkedUpTo << " " << szCrontab;
            EXPECT_TRUE(decision.vecSkips.empty()) << iWorkedUpTo << " " << szCrontab;
            EXPECT_EQ(decision.iWorkedUpTo, At(3, 0));
        }
    }
    EXPECT_TRUE(DecideOne(At(3, 0), At(6, 1), "30 4 * * *").IsIdle());
}

TEST(LiteralPolicy, LooksAtTheMinuteThatShowsAndAtNothingElse) {
    const JobTable table = TableOf({JobOf("fixed", "0 3 * * *"), JobOf("wildcard", "0 * * * *")});
    for (std::int64_t iPassed = -400; iPassed <= 400; ++iPassed) {
        TickInput input = InputAt(At(3, 0) - iPassed, At(3, 0));
        input.ePolicy = ClockPolicy::Literal;
        for (const SkipReason eCause : {SkipReason::ClockStep, SkipReason::ServiceDown}) {
            input.eGapCause = eCause;
            const Decision decision = Decide(input, table);
            EXPECT_EQ(Starts(decision), (Texts{"0 due 03:00", "1 due 03:00"})) << iPassed;
            EXPECT_TRUE(decision.vecSkips.empty()) << iPassed;
            EXPECT_EQ(decision.iWorkedUpTo, At(3, 0));
        }
        input = InputAt(At(3, 1) - iPassed, At(3, 1));
        input.ePolicy = ClockPolicy::Literal;
        EXPECT_TRUE(Decide(input, table).IsIdle()) << iPassed;
    }
}

TEST(OneTick, StartsAJobOnceHoweverManyMinutesMatch) {
    const JobTable table = TableOf({JobOf("any", "* * * * *"), JobOf("hour", "* 2 * * *"),
                                    JobOf("list", "0,10,20,30,40,50 1,2 * * *"), JobOf("one", "58 1 * * *")});
    for (std::int64_t iPassed = 1; iPassed <= 200; ++iPassed) {
        const Decision decision = Decide(InputAt(At(2, 0) - iPassed, At(2, 0)), table);
        std::set<JobIndex> setStarted;
        for (const Start& start : decision.vecStarts) {
            EXPECT_TRUE(setStarted.insert(start.uJob).second) << iPassed;
        }
    }
}

TEST(OneTick, TellsOfEachMinuteOnceThatWasMadeUpForByAnother) {
    const Decision decision = DecideOne(At(0, 59), At(2, 5), "0,30 1,2 * * *");
    EXPECT_EQ(Starts(decision), Texts{"0 made-up 02:00"});
    EXPECT_EQ(Skips(decision), (Texts{"0 clock step 01:00", "0 clock step 01:30"}));
}

TEST(OneTick, GoesByTheOrderOfTheJobs) {
    const JobTable table = TableOf({JobOf("a", "0 3 * * *"), JobOf("b", "* * * * *"), JobOf("c", "0 * * * *"),
                                    JobOf("d", "* 3 * * *"), JobOf("e", "59 2 * * *")});
    EXPECT_EQ(Starts(Decide(InputAt(At(2, 58), At(3, 0)), table)),
              (Texts{"0 due 03:00", "1 due 03:00", "2 due 03:00", "3 due 03:00", "4 made-up 02:59"}));
}

struct DateCase {
    const char* szName;
    std::int64_t iWorkedUpTo;
    std::int64_t iNow;
    const char* szDue;    ///< on the day that was passed over
    const char* szNotDue; ///< with the date of the tick instead
};

class MinutesLookedBackAt : public ::testing::TestWithParam<DateCase> {};

TEST_P(MinutesLookedBackAt, CarryTheirOwnDate) {
    const DateCase& tested = GetParam();
    const Decision due = DecideOne(tested.iWorkedUpTo, tested.iNow, tested.szDue);
    ASSERT_EQ(due.vecStarts.size(), 1U);
    EXPECT_EQ(due.vecStarts[0].eReason, StartReason::MadeUp);
    EXPECT_TRUE(DecideOne(tested.iWorkedUpTo, tested.iNow, tested.szNotDue).IsIdle());
}

const DateCase DATE_CASES[] = {
    {"AroundMidnight", LocalMinute(2026, 6, 10, 23, 0), LocalMinute(2026, 6, 11, 0, 30), "59 23 10 6 3",
     "59 23 11 6 4"},
    {"AtMonthsEnd", LocalMinute(2026, 4, 30, 23, 0), LocalMinute(2026, 5, 1, 0, 30), "30 23 30 4 4", "30 23 1 5 5"},
    {"OnALeapDay", LocalMinute(2028, 2, 29, 22, 30), LocalMinute(2028, 3, 1, 1, 0), "45 22 29 2 2", "45 22 1 3 3"},
    {"BeforeALeapDay", LocalMinute(2028, 2, 28, 23, 50), LocalMinute(2028, 2, 29, 0, 10), "55 23 28 2 1",
     "55 23 29 2 2"},
    {"WithoutALeapDay", LocalMinute(2027, 2, 28, 23, 50), LocalMinute(2027, 3, 1, 0, 10), "55 23 28 2 0",
     "55 23 29 2 *"},
    {"AtNewYear", LocalMinute(2026, 12, 31, 23, 0), LocalMinute(2027, 1, 1, 1, 0), "59 23 31 12 4", "59 23 1 1 5"},
    {"AfterNewYear", LocalMinute(2026, 12, 31, 23, 0), LocalMinute(2027, 1, 1, 1, 0), "15 0 1 1 5", "15 0 31 12 4"},
};

INSTANTIATE_TEST_SUITE_P(Dates, MinutesLookedBackAt, ::testing::ValuesIn(DATE_CASES),
                         [](const auto& tested) { return tested.param.szName; });

/// What keeps a due job from starting, from the strongest on: what stands in its definition, then what the service
/// does, then the machine's state, then the job's own last run.
TEST(ReasonAgainstAStart, IsTheStrongestOfAll) {
    Job job = JobOf("job", "0 3 * * *");
    TickInput input = InputAt(At(2, 59), At(3, 0));
    input.ePolicy = ClockPolicy::Literal; // where hibernation skips, too
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::None);
    job.uRunning = 1;
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::Overlap);
    input.bPassive = true;
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::Passive);
    input.bHibernating = true;
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::Hibernating);
    input.bStopping = true;
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::Stopping);
    job.bEnabled = false;
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::Disabled);
    job.bInvalid = true;
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::DefinitionInvalid);
    EXPECT_EQ(Skips(Decide(input, TableOf({job}))), Texts{"0 definition invalid 03:00"});
    EXPECT_TRUE(Starts(Decide(input, TableOf({job}))).empty());
}

TEST(ReasonAgainstAStart, IsNoneWhereTheDefinitionAllowsIt) {
    Job job = JobOf("job", "0 3 * * *");
    job.uRunning = 2;
    job.bAllowOverlap = true;
    job.bRunOnPassive = true;
    TickInput input = InputAt(At(2, 59), At(3, 0));
    input.bPassive = true;
    EXPECT_EQ(WhyNotNow(input, job), SkipReason::None);
    EXPECT_EQ(Starts(Decide(input, TableOf({job}))), Texts{"0 due 03:00"});
}

TEST(ReasonAgainstAStart, CountsForAMadeUpMinuteToo) {
    Job job = JobOf("job", "30,40 2 * * *");
    job.uRunning = 1;
    EXPECT_EQ(Skips(Decide(InputAt(At(1, 59), At(3, 0)), TableOf({job}))),
              (Texts{"0 clock step 02:30", "0 overlap 02:40"}));
}

TEST(Hibernation, DecidesNothingAndWorksOnNothing) {
    TickInput input = InputAt(At(2, 59), At(3, 0));
    input.bHibernating = true;
    input.bLookForFuture = true;
    Job job = JobOf("job", "0 3 * * *");
    job.iAssureHours = 1;
    job.bAssureRun = true;
    const Decision decision = Decide(input, TableOf({job}));
    EXPECT_TRUE(decision.IsIdle());
    EXPECT_EQ(decision.iWorkedUpTo, At(2, 59));
}

Job PendingJob(const char* szCrontab, std::int64_t iMinute, std::int64_t iTicks) {
    Job job = JobOf("job", szCrontab);
    job.uPendingRun = 5;
    job.iPendingMinute = iMinute;
    job.iPendingTicks = iTicks;
    return job;
}

TEST(StartThatCouldNotBeMade, IsTriedAgainAtEachTickAndGivenUpAfterFive) {
    for (std::int64_t iTicks = 0; iTicks < 5; ++iTicks) {
        const Decision decision =
            Decide(InputAt(At(3, 0), At(3, 1)), TableOf({PendingJob("0 3 * * *", At(3, 0), iTicks)}));
        EXPECT_EQ(Starts(decision), Texts{"0 retry 03:00"}) << iTicks;
        EXPECT_TRUE(decision.vecSkips.empty()) << iTicks;
    }
    const Decision decision = Decide(InputAt(At(3, 5), At(3, 6)), TableOf({PendingJob("0 3 * * *", At(3, 0), 5)}));
    EXPECT_TRUE(decision.vecStarts.empty());
    EXPECT_EQ(Skips(decision), Texts{"0 fork failed 03:00 pending"});
}

TEST(StartThatCouldNotBeMade, GivesWayToTheNextDueMinute) {
    const Decision decision = Decide(InputAt(At(3, 0), At(3, 1)), TableOf({PendingJob("* * * * *", At(3, 0), 0)}));
    EXPECT_EQ(Starts(decision), Texts{"0 due 03:01"});
    EXPECT_EQ(Skips(decision), Texts{"0 fork failed 03:00 pending"});
}

TEST(StartThatCouldNotBeMade, TakesTheTickFromAMinuteThatWasPassedOver) {
    const Decision decision = Decide(InputAt(At(3, 0), At(3, 3)), TableOf({PendingJob("0,2 3 * * *", At(3, 0), 0)}));
    EXPECT_EQ(Starts(decision), Texts{"0 retry 03:00"});
    EXPECT_EQ(Skips(decision), Texts{"0 clock step 03:02"});
}

TEST(StartThatCouldNotBeMade, IsTriedAgainWhileAFixedJobsMinuteComesAgain) {
    const Decision decision = Decide(InputAt(At(3, 30), At(3, 0)), TableOf({PendingJob("0 3 * * *", At(3, 0), 1)}));
    EXPECT_EQ(Starts(decision), Texts{"0 retry 03:00"});
}

TEST(StartThatCouldNotBeMade, IsGivenUpForWhatForbidsItNow) {
    TickInput input = InputAt(At(3, 0), At(3, 1));
    input.bPassive = true;
    const Decision decision = Decide(input, TableOf({PendingJob("0 3 * * *", At(3, 0), 1)}));
    EXPECT_TRUE(decision.vecStarts.empty());
    EXPECT_EQ(Skips(decision), Texts{"0 passive 03:00 pending"});
}

TEST(StartThatCouldNotBeMade, ComesBeforeTheOthers) {
    Job pending = PendingJob("0 2 * * *", At(2, 59), 0);
    pending.id.strName = "z";
    const Decision decision = Decide(InputAt(At(2, 59), At(3, 0)), TableOf({JobOf("a", "0 3 * * *"), pending}));
    EXPECT_EQ(Starts(decision), (Texts{"1 retry 02:59", "0 due 03:00"}));
}

} // namespace
