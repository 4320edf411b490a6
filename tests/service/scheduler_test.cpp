#include "service/scheduler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "tests/service/service_fixture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scoped_tz.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

constexpr std::time_t NOON = 1794916800; // 2026-11-17 12:00:00 UTC, a Tuesday

class Scheduler : public testing::Test {
protected:
    ScheduledJob& Add(const std::string& strName, const std::string& strCrontab) {
        return Add(service_test::JobDefinition(strName, strCrontab));
    }
    ScheduledJob& Add(const Json::Value& jsDefinition) {
        const JobId id{"builtin", "", jsDefinition["name"].asString()};
        return _mapJobs.emplace(id, service_test::BuildScheduledJob(jsDefinition)).first->second;
    }
    /// A job that has to run every hour and last ran so many seconds before noon.
    ScheduledJob& AddAssured(const std::string& strName, const char* szAction, std::time_t tAgo) {
        Json::Value jsDefinition = service_test::JobDefinition(strName, "0 0 1 1 *");
        jsDefinition["assure_execute"] = 1;
        jsDefinition["assure_execute_action"] = szAction;
        ScheduledJob& scheduled = Add(jsDefinition);
        scheduled.job._jsJob["lastExecution"] = static_cast<Json::Int64>(NOON - tAgo);
        return scheduled;
    }

    static ClockReading At(std::time_t tNow) {
        const support::FakeClock clock(tNow);
        return *ReadClock();
    }

    /// NAME:REASON for each start, in their order.
    std::vector<std::string> Starts(const ClockReading& reading, std::int64_t iMinutesBack = 0) const {
        std::vector<std::int64_t> vecMinutes;
        for (std::int64_t i = iMinutesBack; i >= 0; --i) {
            vecMinutes.push_back(reading.iLocalMinute - i);
        }
        std::vector<std::string> vecStarts;
        for (const Start& start : Decide(reading, vecMinutes, _mapJobs).vecStarts) {
            const char* const aReasons[] = {"retry", "due", "assure"};
            vecStarts.push_back(start.id.strName + ":" + aReasons[static_cast<int>(start.eReason)]);
        }
        return vecStarts;
    }

    JobMap _mapJobs;

private:
    support::ScopedTz _zone{"UTC0"};
};

using Texts = std::vector<std::string>;

} // namespace

TEST_F(Scheduler, StartsWhatIsDueInTheMinute) {
    Add("always", "* * * * *");
    Add("noon", "0 12 * * *");
    Add("one past", "1 12 * * *");
    EXPECT_EQ(Starts(At(NOON)), (Texts{"always:due", "noon:due"}));
    EXPECT_EQ(Starts(At(NOON + 59)), (Texts{"always:due", "noon:due"}));
    EXPECT_EQ(Starts(At(NOON + 60)), (Texts{"always:due", "one past:due"}));
}

TEST_F(Scheduler, WantsAllFiveFieldsToMatch) {
    Add("tuesday the 17th", "0 12 17 11 2");
    Add("monday the 17th", "0 12 17 11 1");
    Add("tuesday the 18th", "0 12 18 11 2");
    Add("in december", "0 12 17 12 2");
    EXPECT_EQ(Starts(At(NOON)), Texts{"tuesday the 17th:due"});
}

TEST_F(Scheduler, StartsNothingWithoutAMinuteToLookAt) {
    Add("always", "* * * * *").job._strReadyCrontab = "ready";
    EXPECT_TRUE(Decide(At(NOON), {}, _mapJobs).vecStarts.empty());
}

TEST_F(Scheduler, LooksAtEachMinuteOfALateTickAndStartsAJobOnce) {
    Add("always", "* * * * *");
    Add("noon", "0 12 * * *");
    Add("before noon", "59 11 * * *");
    Add("two past", "2 12 * * *");
    EXPECT_EQ(Starts(At(NOON + 60), 1), (Texts{"always:due", "noon:due"}));
    EXPECT_EQ(Starts(At(NOON + 180), 4), (Texts{"always:due", "before noon:due", "noon:due", "two past:due"}));
}

TEST_F(Scheduler, GivesAMinuteOfTheDayBeforeItsOwnDate) {
    Add("last minute", "59 23 16 11 1");
    Add("wrong day", "59 23 17 11 *");
    EXPECT_EQ(Starts(At(NOON - 12 * 3600), 1), Texts{"last minute:due"});
}

TEST_F(Scheduler, DecidesByTheReadingAloneHoweverOftenTheClockWouldMove) {
    Add("a", "0 12 * * *");
    Add("b", "0 12 * * *");
    AddAssured("overdue", "run", 3601);
    support::FakeClock clock(NOON + 59);
    clock.AdvancePerReading(60);
    const ClockReading reading = *ReadClock();
    EXPECT_EQ(Starts(reading), (Texts{"a:due", "b:due", "overdue:assure"}));
    for (auto& [id, scheduled] : _mapJobs) {
        MarkReady(scheduled, StartReason::Due, reading);
    }
    EXPECT_EQ(clock.Readings(), 1);
}

TEST_F(Scheduler, StartsAnOverdueJobThatAsksForIt) {
    AddAssured("run", "run", 3601);
    AddAssured("run, in time", "run", 3600);
    AddAssured("wait", "wait", 3601);
    EXPECT_EQ(Starts(At(NOON)), Texts{"run:assure"});
}

TEST_F(Scheduler, CountsFromStartupForAJobThatNeverRan) {
    ScheduledJob& scheduled = AddAssured("job", "run", 0);
    scheduled.job._jsJob.removeMember("lastExecution");
    scheduled.job._jsJob["startup"] = static_cast<Json::Int64>(NOON - 3600);
    EXPECT_EQ(Starts(At(NOON)), Texts{});
    EXPECT_EQ(Starts(At(NOON + 1)), Texts{"job:assure"});
}

TEST_F(Scheduler, DoesNotStartAnOverdueJobTwiceWhenItIsDueAnyway) {
    Json::Value jsDefinition = service_test::JobDefinition("job");
    jsDefinition["assure_execute"] = 1;
    jsDefinition["assure_execute_action"] = "run";
    Add(jsDefinition).job._jsJob["lastExecution"] = 0;
    EXPECT_EQ(Starts(At(NOON)), Texts{"job:due"});
}

/// The library's own test reads the clock for each job; the service's has to say the same, the wrap of the hours'
/// seconds in 32 bits included.
TEST_F(Scheduler, JudgesTheGuaranteeAsTheLibraryDoes) {
    constexpr unsigned SEED = 20261121;
    std::cout << "seed " << SEED << "\n";
    std::mt19937 random(SEED);
    const int aHours[] = {0, 1, 24, -1, 596523, 596524, 1193046, 1193047, 2147483647, -2147483647 - 1};
    int iOverdue = 0;
    for (const int iHours : aHours) {
        for (int i = 0; i < 200; ++i) {
            _mapJobs.clear();
            ScheduledJob& scheduled = AddAssured("job", "run", 0);
            scheduled.job._iAssureExecute = iHours;
            const auto iPeriod = static_cast<std::int32_t>(static_cast<std::uint32_t>(iHours) * 3600U);
            const std::time_t tSlack = static_cast<std::time_t>(random() % 5) - 2;
            scheduled.job._jsJob["lastExecution"] = static_cast<Json::Int64>(NOON - iPeriod + tSlack);
            const support::FakeClock clock(NOON);
            const bool bLibrary = scheduled.job.IsExpiredAssure();
            ASSERT_EQ(Starts(*ReadClock()), bLibrary ? Texts{"job:assure"} : Texts{}) << iHours << " " << tSlack;
            iOverdue += bLibrary ? 1 : 0;
        }
    }
    EXPECT_GT(iOverdue, 200);
    EXPECT_LT(iOverdue, 1800);
}

/// The due test is the library's own, so it has to agree with it minute by minute, in a zone with summer time as well.
TEST_F(Scheduler, JudgesAMinuteAsTheLibraryDoes) {
    constexpr unsigned SEED = 20261121;
    std::cout << "seed " << SEED << "\n";
    const support::ScopedTz zone("Europe/Berlin");
    std::mt19937 random(SEED);
    for (int i = 0; i < 20; ++i) {
        Add("job" + std::to_string(i), "~,~,~,~ ~,~,~,* ~,~,~,*,~ ~,* ~,*");
        Add("fixed" + std::to_string(i), "~,* ~,* ~,~,~,~ ~,~,~,~ ~,~,*");
    }
    int iDue = 0;
    for (int i = 0; i < 3000; ++i) {
        const std::time_t tNow = 1767225600 + static_cast<std::time_t>(random() % (365U * 86400U));
        const support::FakeClock clock(tNow);
        Texts vecExpected;
        for (const auto& [id, scheduled] : _mapJobs) {
            if (scheduled.job.IsOnScheduled()) {
                vecExpected.push_back(id.strName + ":due");
            }
        }
        ASSERT_EQ(Starts(*ReadClock()), vecExpected) << tNow;
        iDue += static_cast<int>(vecExpected.size());
    }
    EXPECT_GT(iDue, 100);
}

TEST_F(Scheduler, TriesAJobThatCouldNotBeStartedAgainBeforeTheOthers) {
    Add("a", "* * * * *");
    ScheduledJob& left = Add("b", "* * * * *"); // due again in the same minute: one start all the same
    MarkReady(left, StartReason::Due, At(NOON - 60));
    Add("c", "* * * * *");
    EXPECT_EQ(Starts(At(NOON)), (Texts{"b:retry", "a:due", "c:due"}));
}

TEST_F(Scheduler, KeepsTheLabelAndTheTimeOfAStartThatIsPending) {
    ScheduledJob& left = AddAssured("job", "run", 3601);
    MarkReady(left, StartReason::Assure, At(NOON - 60));
    EXPECT_EQ(left.strReadyLabel, "assure");
    MarkReady(left, StartReason::Retry, At(NOON));
    EXPECT_EQ(left.strReadyLabel, "assure");
    EXPECT_EQ(left.job._jsJob["expireTime"].asInt64(), NOON - 60);
}

TEST_F(Scheduler, MarksAJobAsTheLibraryWould) {
    ScheduledJob& marked = Add("marked", "0,30 12 * * *");
    ScheduledJob byLibrary = service_test::BuildScheduledJob(service_test::JobDefinition("marked", "0,30 12 * * *"));
    MarkReady(marked, StartReason::Due, At(NOON));
    const support::FakeClock clock(NOON);
    ASSERT_TRUE(byLibrary.job.SetReadyIfScheduled());
    EXPECT_EQ(marked.job._strReadyCrontab, byLibrary.job._strReadyCrontab);
    EXPECT_EQ(marked.job._jsJob["expireTime"], byLibrary.job._jsJob["expireTime"]);
    EXPECT_EQ(marked.strReadyLabel, "");
}

TEST_F(Scheduler, GoesOnPastAJobItCannotJudge) {
    Add("a", "* * * * *").job._jsJob["schedule"][SZK_HOUR][0] = "noon";
    AddAssured("b", "run", 0).job._jsJob["lastExecution"] = Json::Value(Json::arrayValue);
    Add("c", "* * * * *");
    const ClockReading reading = At(NOON);
    EXPECT_EQ(Starts(reading), Texts{"c:due"});
    const std::vector<Fault> vecFaults = Decide(reading, {reading.iLocalMinute}, _mapJobs).vecFaults;
    ASSERT_EQ(vecFaults.size(), 2U);
    EXPECT_EQ(vecFaults[0].id.strName, "a");
    EXPECT_FALSE(vecFaults[0].strReason.empty());
    EXPECT_EQ(vecFaults[1].id.strName, "b");
}
