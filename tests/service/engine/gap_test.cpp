#include <gtest/gtest.h>

#include <algorithm>

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

const std::int64_t NOON = LocalMinute(2026, 6, 10, 12, 0);

constexpr SkipReason CAUSES[] = {SkipReason::ClockStep, SkipReason::ServiceDown, SkipReason::Hibernating};

Decision AfterGap(std::int64_t iPassed, SkipReason eCause, const Job& job) {
    TickInput input = InputAt(NOON - iPassed, NOON);
    input.eGapCause = eCause;
    return Decide(input, TableOf({job}));
}

TEST(MinutesPassedOver, AreToldWithTheirCause) {
    for (const SkipReason eCause : CAUSES) {
        const std::string strCause = ToText(eCause);
        const Decision wildcard = AfterGap(61, eCause, JobOf("job", "15,45 * * * *"));
        EXPECT_TRUE(wildcard.vecStarts.empty());
        EXPECT_EQ(Skips(wildcard), (Texts{"0 " + strCause + " 11:15", "0 " + strCause + " 11:45"}));
        const Decision fixed = AfterGap(61, eCause, JobOf("job", "15,45 11 * * *"));
        EXPECT_EQ(Starts(fixed), Texts{"0 made-up 11:45"});
        EXPECT_EQ(Skips(fixed), Texts{"0 " + strCause + " 11:15"});
    }
}

TEST(MinutesPassedOver, AreToldWithTheJobsOwnReasonWhereThatStandsInItsDefinition) {
    Job job = JobOf("job", "15,45 * * * *");
    job.bEnabled = false;
    EXPECT_EQ(Skips(AfterGap(61, SkipReason::ServiceDown, job)), (Texts{"0 disabled 11:15", "0 disabled 11:45"}));
    job.bInvalid = true;
    EXPECT_EQ(Skips(AfterGap(61, SkipReason::ServiceDown, job)),
              (Texts{"0 definition invalid 11:15", "0 definition invalid 11:45"}));
}

TEST(MinutesPassedOver, EndAsExactlyOneOutcomeEach) {
    for (const char* const szCrontab : {"* * * * *", "*,5 3 * * *", "7,8 11,12 * * *", "0 12 * * *", "* 11 * * *"}) {
        const Job job = JobOf("job", szCrontab);
        for (std::int64_t iPassed = 2; iPassed <= 180; ++iPassed) {
            const Decision decision = AfterGap(iPassed, SkipReason::ClockStep, job);
            std::vector<std::int64_t> vecTold;
            for (const Start& start : decision.vecStarts) {
                vecTold.push_back(start.iMinute);
            }
            for (const Skip& skip : decision.vecSkips) {
                vecTold.push_back(skip.iMinute);
            }
            std::sort(vecTold.begin(), vecTold.end());
            std::vector<std::int64_t> vecDue;
            for (std::int64_t iMinute = NOON - iPassed + 1; iMinute <= NOON; ++iMinute) {
                if (job.schedule.Matches(WallMinuteOf(iMinute))) {
                    vecDue.push_back(iMinute);
                }
            }
            ASSERT_EQ(vecTold, vecDue) << szCrontab << " " << iPassed;
        }
    }
}

TEST(MinutesPassedOver, AreToldInTheirOrder) {
    const JobTable table = TableOf({JobOf("a", "* * * * *"), JobOf("b", "* * * * *")});
    const Decision decision = Decide(InputAt(NOON - 8, NOON), table);
    ASSERT_EQ(decision.vecSkips.size(), 14U);
    for (std::size_t u = 0; u < decision.vecSkips.size(); ++u) {
        EXPECT_EQ(decision.vecSkips[u].uJob, u % 2);
        EXPECT_EQ(decision.vecSkips[u].iMinute, NOON - 7 + static_cast<std::int64_t>(u / 2));
    }
}

TEST(LongGap, IsToldWithItsCauseAndMadeUpForToNobody) {
    for (const SkipReason eCause : {SkipReason::ServiceDown, SkipReason::Hibernating}) {
        const Decision decision = AfterGap(181, eCause, JobOf("job", "0 9,10,11,12 * * *"));
        EXPECT_EQ(Starts(decision), Texts{"0 due 12:00"});
        const std::string strCause = ToText(eCause);
        EXPECT_EQ(Skips(decision),
                  (Texts{"0 " + strCause + " 09:00", "0 " + strCause + " 10:00", "0 " + strCause + " 11:00"}));
    }
}

TEST(LongGap, OfAClockThatWasSetPassedOverNothing) {
    const Decision decision = AfterGap(181, SkipReason::ClockStep, JobOf("job", "0 * * * *"));
    EXPECT_EQ(Starts(decision), Texts{"0 due 12:00"});
    EXPECT_TRUE(decision.vecSkips.empty());
}

TEST(LongGap, IsToldOfNoFurtherBackThanADay) {
    const Decision decision = AfterGap(10'000, SkipReason::ServiceDown, JobOf("job", "0 * * * *"));
    ASSERT_EQ(decision.vecSkips.size(), 24U);
    EXPECT_EQ(decision.vecSkips.front().iMinute, NOON - 24 * 60);
    EXPECT_EQ(decision.vecSkips.back().iMinute, NOON - 60);
    EXPECT_EQ(AfterGap(24 * 60, SkipReason::ServiceDown, JobOf("job", "0 * * * *")).vecSkips.size(), 23U);
}

TEST(LongGap, OfVeryManyJobsIsToldOfAsFarBackAsThereIsRoom) {
    std::vector<Job> vecJobs;
    Job job = JobOf("job", "* * * * *");
    for (int i = 0; i < 1000; ++i) {
        job.id.strName = std::to_string(i);
        vecJobs.push_back(job);
    }
    TickInput input = InputAt(NOON - 1440, NOON);
    input.eGapCause = SkipReason::ServiceDown;
    const Decision decision = Decide(input, TableOf(std::move(vecJobs)));
    EXPECT_EQ(decision.vecStarts.size(), 1000U);
    ASSERT_EQ(decision.vecSkips.size(), 1'000'000U);
    EXPECT_EQ(decision.vecSkips.front().iMinute, NOON - 1000);
    EXPECT_EQ(decision.vecSkips.back().iMinute, NOON - 1);
}

TEST(LongGap, BackwardsIsToldOfNothing) {
    EXPECT_TRUE(AfterGap(-500, SkipReason::ServiceDown, JobOf("job", "30 * * * *")).IsIdle());
}

TEST(LongGap, OfAServiceThatWasNeverUpEndsWithinADay) {
    TickInput input = InputAt(0, NOON);
    input.eGapCause = SkipReason::ServiceDown;
    EXPECT_EQ(Decide(input, TableOf({JobOf("job", "0 11 * * *")})).vecSkips.size(), 1U);
}

} // namespace
