#include "service/engine/simulator.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/service/engine/engine_jobs.h"
#include "tests/service/engine/told.h"
#include "tests/support/scoped_tz.h"

using namespace VUKO::VUKOCrond::Service;
using engine_test::JobOf;
using engine_test::LocalMinute;
using engine_test::TableOf;
using engine_test::Texts;
using engine_test::TimeOfDay;

namespace {

/// What a simulation of that day's jobs tells, as "HH:MM:SS REASON HH:MM" with the due minute last.
class SimulatedDay : public ::testing::Test {
protected:
    static std::time_t At(int iHour, int iMinute, int iSecond = 0) {
        return LocalMinute(2026, 6, 10, iHour, iMinute) * 60 + iSecond;
    }

    Texts Run(std::time_t tFrom, std::time_t tTo, const std::vector<SimEvent>& vecEvents, std::vector<Job> vecJobs) {
        Texts vecTexts;
        Simulator simulator({_ePolicy, 0}, TableOf(std::move(vecJobs)));
        simulator.Run(tFrom, tTo, vecEvents,
                      [&](const ClockReading& reading, const Decision& decision, const JobTable&) {
                          const std::string strTime =
                              TimeOfDay(reading.iLocalMinute) + ":" + std::to_string(reading.iSecond) + " ";
                          for (const Start& start : decision.vecStarts) {
                              vecTexts.push_back(strTime + ToText(start.eReason) + " " + TimeOfDay(start.iMinute));
                          }
                          for (const Skip& skip : decision.vecSkips) {
                              vecTexts.push_back(strTime + ToText(skip.eReason) + " " + TimeOfDay(skip.iMinute));
                          }
                          for (std::size_t u = 0; u < decision.vecOverdue.size(); ++u) {
                              vecTexts.push_back(strTime + "overdue");
                          }
                          return ++_iTold != _iMaxTold;
                      });
        return vecTexts;
    }

    support::ScopedTz _zone{"UTC0"};
    ClockPolicy _ePolicy = ClockPolicy::CatchUp;
    int _iTold = 0;
    int _iMaxTold = 1000;
};

TEST_F(SimulatedDay, TellsOfWhatComesFromItsStartToItsEnd) {
    EXPECT_EQ(Run(At(10, 0), At(12, 0), {}, {JobOf("job", "0 9,10,11,12,13 * * *")}),
              (Texts{"10:00:0 due 10:00", "11:00:0 due 11:00", "12:00:0 due 12:00"}));
    EXPECT_EQ(Run(At(10, 0, 1), At(11, 59, 59), {}, {JobOf("job", "0 9,10,11,12,13 * * *")}),
              Texts{"11:00:0 due 11:00"});
}

TEST_F(SimulatedDay, EndsWhenItIsToldTo) {
    _iMaxTold = 2;
    EXPECT_EQ(Run(At(10, 0), At(12, 0), {}, {JobOf("job", "* * * * *")}).size(), 2U);
}

TEST_F(SimulatedDay, MakesUpForAClockThatIsSetOn) {
    EXPECT_EQ(Run(At(10, 0), At(13, 0), {{At(10, 20, 30), SimEvent::Kind::Clock, 3600}}, {JobOf("job", "0 11 * * *")}),
              Texts{"11:21:0 made-up 11:00"});
}

TEST_F(SimulatedDay, StartsAFixedJobOnceWhenTheClockIsSetBack) {
    EXPECT_EQ(Run(At(10, 0), At(13, 0), {{At(11, 20, 30), SimEvent::Kind::Clock, -3600}}, {JobOf("job", "0 11 * * *")}),
              (Texts{"11:00:0 due 11:00", "11:00:0 clock step 11:00"}));
    EXPECT_EQ(Run(At(10, 0), At(11, 30), {{At(11, 20, 30), SimEvent::Kind::Clock, -3600}}, {JobOf("job", "0 * * * *")}),
              (Texts{"10:00:0 due 10:00", "11:00:0 due 11:00", "11:00:0 due 11:00"}));
}

TEST_F(SimulatedDay, LooksAtNoMinuteTwiceInARow) {
    EXPECT_EQ(Run(At(10, 0), At(10, 3),
                  {{At(10, 1, 0), SimEvent::Kind::Passive, 0}, {At(10, 2, 10), SimEvent::Kind::Clock, -20}},
                  {JobOf("job", "* * * * *")}),
              (Texts{"10:00:0 due 10:00", "10:01:0 passive 10:01", "10:02:0 passive 10:02", "10:03:0 passive 10:03"}));
    const Texts vecTold =
        Run(At(10, 0), At(10, 3), {{At(10, 2, 10), SimEvent::Kind::Clock, -10}}, {JobOf("job", "* * * * *")});
    EXPECT_EQ(std::count(vecTold.begin(), vecTold.end(), "10:02:0 due 10:02"), 1);
}

TEST_F(SimulatedDay, GoesOnAfterTheServiceWasDown) {
    EXPECT_EQ(Run(At(10, 0), At(12, 0), {{At(10, 50), SimEvent::Kind::Down, 1815}},
                  {JobOf("fixed", "0 11 * * *"), JobOf("wildcard", "0 * * * *")}),
              (Texts{"10:00:0 due 10:00", "11:21:0 made-up 11:00", "11:21:0 service down 11:00", "12:00:0 due 12:00"}));
}

TEST_F(SimulatedDay, IsUpAgainAfterItsTimeEvenIfTheClockIsSetMeanwhile) {
    EXPECT_EQ(
        Run(At(10, 0), At(12, 0), {{At(10, 30), SimEvent::Kind::Down, 600}, {At(10, 35), SimEvent::Kind::Clock, 1800}},
            {JobOf("job", "0,5,10,15 11 * * *")}),
        (Texts{"11:10:0 due 11:10", "11:10:0 service down 11:00", "11:10:0 service down 11:05", "11:15:0 due 11:15"}));
}

TEST_F(SimulatedDay, StartsNothingWhileTheMachineHibernates) {
    EXPECT_EQ(Run(At(10, 0), At(12, 0), {{At(10, 50), SimEvent::Kind::Hibernate, 1815}},
                  {JobOf("fixed", "0 11 * * *"), JobOf("wildcard", "0 * * * *")}),
              (Texts{"10:00:0 due 10:00", "11:21:0 made-up 11:00", "11:21:0 hibernating 11:00", "12:00:0 due 12:00"}));
}

TEST_F(SimulatedDay, FollowsItsRole) {
    EXPECT_EQ(Run(At(10, 0), At(10, 3),
                  {{At(10, 1, 0), SimEvent::Kind::Passive, 0}, {At(10, 2, 30), SimEvent::Kind::Active, 0}},
                  {JobOf("job", "* * * * *")}),
              (Texts{"10:00:0 due 10:00", "10:01:0 passive 10:01", "10:02:0 passive 10:02", "10:03:0 due 10:03"}));
}

TEST_F(SimulatedDay, HoldsGuaranteesFromTheLastStartOn) {
    Job job = JobOf("job", "0 0 * * *");
    job.iAssureHours = 5;
    job.bAssureRun = true;
    job.iStartup = At(5, 30);
    EXPECT_EQ(Run(At(10, 0), At(16, 0), {}, {job}), (Texts{"10:31:0 assure 10:31", "15:32:0 assure 15:32"}));
    job.bAssureRun = false;
    EXPECT_EQ(Run(At(10, 0), At(16, 0), {}, {job}), Texts{"10:31:0 overdue"});
}

/// Runs at 10:50, and has to within an hour.
Job HourlyAssured() {
    Job job = JobOf("job", "50 10 * * *");
    job.iAssureHours = 1;
    job.bAssureRun = true;
    return job;
}

TEST_F(SimulatedDay, CountsAStampAheadOfAClockThatWentBackAsNow) {
    const SimEvent back{At(10, 55, 30), SimEvent::Kind::Clock, -2400}; // first seen at 10:16
    EXPECT_EQ(Run(At(10, 50), At(11, 30), {back}, {HourlyAssured()}),
              (Texts{"10:50:0 due 10:50", "10:50:0 clock step 10:50", "11:17:0 assure 11:17"}));
}

TEST_F(SimulatedDay, NoticesAStampAheadOfAClockThatWentBackInHibernation) {
    const SimEvent sleep{At(10, 54, 30), SimEvent::Kind::Hibernate, 240};
    const SimEvent back{At(10, 55, 30), SimEvent::Kind::Clock, -2400}; // awake at 10:19
    EXPECT_EQ(Run(At(10, 50), At(11, 30), {sleep, back}, {HourlyAssured()}),
              (Texts{"10:50:0 due 10:50", "10:50:0 clock step 10:50", "11:20:0 assure 11:20"}));
}

TEST_F(SimulatedDay, LeavesAClockThatWasSetUnderTheLiteralPolicyAlone) {
    _ePolicy = ClockPolicy::Literal;
    EXPECT_EQ(Run(At(10, 0), At(11, 30),
                  {{At(10, 20, 30), SimEvent::Kind::Clock, 600}, {At(11, 10), SimEvent::Kind::Clock, -1200}},
                  {JobOf("job", "25 10 * * *"), JobOf("hour", "0 11 * * *")}),
              (Texts{"11:00:0 due 11:00", "11:00:0 due 11:00"}));
}

TEST_F(SimulatedDay, SpringsOverTheGapOfAZoneAndStaysOutOfItsFold) {
    const support::ScopedTz zone("Europe/Berlin");
    const std::time_t tGap = 1'774'746'000;  // 2026-03-29 01:00 UTC: 2:00 becomes 3:00
    const std::time_t tFold = 1'792'890'000; // 2026-10-25 01:00 UTC: 3:00 becomes 2:00
    const std::vector<Job> vecJobs = {JobOf("job", "30 2 * * *")};
    EXPECT_EQ(Run(tGap - 7200, tGap + 7200, {}, vecJobs), Texts{"03:00:0 made-up 02:30"});
    EXPECT_EQ(Run(tFold - 7200, tFold + 7200, {}, vecJobs), (Texts{"02:30:0 due 02:30", "02:30:0 clock step 02:30"}));
}

} // namespace
