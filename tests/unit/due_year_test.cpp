#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scoped_tz.h"
#include "tests/unit/definitions.h"
#include "tests/unit/local_time_oracle.h"

using namespace unit;

namespace {

constexpr std::int64_t YEAR_BEGIN = LocalTimeOracle::YEAR_BEGIN;
constexpr std::int64_t YEAR_END = LocalTimeOracle::YEAR_END;

/// The values of a field, as the schedule has them; -1 is any value.
struct Schedule {
    const char* szName;
    std::vector<int> aFields[5];
};

void PrintTo(const Schedule& schedule, std::ostream* pOut) {
    *pOut << schedule.szName;
}

const Schedule SCHEDULES[] = {
    {"EveryMinute", {{-1}, {-1}, {-1}, {-1}, {-1}}},
    {"HalfPastTwo", {{30}, {2}, {-1}, {-1}, {-1}}}, // the hour that DST skips and repeats
    {"MondaysThatAreTheFirst", {{0}, {0}, {1}, {-1}, {1}}},
    {"QuartersOfWorkingHours", {{0, 15, 30, 45}, {9, 10, 11, 12, 13, 14, 15, 16, 17}, {-1}, {-1}, {1, 2, 3, 4, 5}}},
    {"Oddities", {{7, -1}, {3}, {29, 30, 31}, {2, 4, 12}, {0, 3, 6}}},
    {"LeapDay", {{0}, {-1}, {29}, {2}, {-1}}},
};

bool Holds(const std::vector<int>& vecValues, int iValue) {
    for (const int i : vecValues) {
        if (i == -1 || i == iValue) {
            return true;
        }
    }
    return false;
}

bool IsDue(const Schedule& schedule, const LocalTimeOracle& local) {
    const int aNow[] = {local.iMinute, local.iHour, local.iDay, local.iMonth, local.iWeekday};
    for (std::size_t i = 0; i < std::size(aNow); ++i) {
        if (!Holds(schedule.aFields[i], aNow[i])) {
            return false;
        }
    }
    return true;
}

CronJob JobOf(const Schedule& schedule) {
    Json::Value jsSchedule(Json::objectValue);
    std::size_t i = 0;
    for (const char* const szType : {"Minute", "hour", "day", "month", "week"}) {
        for (const int iValue : schedule.aFields[i++]) {
            jsSchedule[szType].append(iValue);
        }
    }
    return JobWithSchedule(jsSchedule);
}

class DueYear : public testing::TestWithParam<std::tuple<ZoneYear, Schedule>> {};

/// How often a schedule is due in 2027 by the oracle.
int CountDue(const ZoneYear& zone, const Schedule& schedule) {
    LocalTimeOracle local(zone);
    int iDue = 0;
    for (std::int64_t iTime = YEAR_BEGIN; iTime < YEAR_END; iTime += 60, local.NextMinute()) {
        iDue += IsDue(schedule, local) ? 1 : 0;
    }
    return iDue;
}

} // namespace

TEST_P(DueYear, IsDueInTheMinutesInWhichACalendarCountedByHandSaysSo) {
    const auto& [zone, schedule] = GetParam();
    const support::ScopedTz tz(zone.szTz);
    support::FakeClock clock(0);
    const CronJob job = JobOf(schedule);
    LocalTimeOracle local(zone);
    for (std::int64_t iTime = YEAR_BEGIN; iTime < YEAR_END; iTime += 60, local.NextMinute()) {
        clock.Set(iTime + iTime / 60 % 60); // every second of a minute has its turn
        if (job.IsOnScheduled() != IsDue(schedule, local)) {
            FAIL() << zone.szName << " at " << iTime;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Of2027, DueYear,
                         testing::Combine(testing::ValuesIn(ZONES_OF_2027), testing::ValuesIn(SCHEDULES)),
                         [](const auto& paramInfo) {
                             return std::string(std::get<0>(paramInfo.param).szName) +
                                    std::get<1>(paramInfo.param).szName;
                         });

// What holds the oracle: the first of a month is a Monday in February, March and November 2027, the year has 261 days
// from Monday to Friday, and a skipped 02:30 and a repeated one make up for each other.
TEST(DueYearOracle, AgreesWithACountByHand) {
    const auto& [utc, berlin, adelaide] = ZONES_OF_2027;
    EXPECT_EQ(CountDue(utc, SCHEDULES[0]), 365 * 1440);
    EXPECT_EQ(CountDue(utc, SCHEDULES[1]), 365);
    EXPECT_EQ(CountDue(berlin, SCHEDULES[1]), 365 - 1 + 1);
    EXPECT_EQ(CountDue(adelaide, SCHEDULES[1]), 365 - 1 + 1);
    EXPECT_EQ(CountDue(utc, SCHEDULES[2]), 3);
    EXPECT_EQ(CountDue(utc, SCHEDULES[3]), 261 * 9 * 4);
    EXPECT_EQ(CountDue(utc, SCHEDULES[5]), 0);
}

TEST(DueYearOracle, EndsWhereTheNextYearBegins) {
    for (const ZoneYear& zone : ZONES_OF_2027) {
        LocalTimeOracle local(zone);
        for (std::int64_t iTime = YEAR_BEGIN; iTime < YEAR_END; iTime += 60) {
            local.NextMinute();
        }
        EXPECT_EQ(local.iHour, zone.iFirstHour) << zone.szName;
        EXPECT_EQ(local.iMinute, zone.iFirstMinute) << zone.szName;
        EXPECT_EQ(local.iDay, 1) << zone.szName;
        EXPECT_EQ(local.iMonth, 1) << zone.szName;
        EXPECT_EQ(local.iWeekday, 6) << "1 January 2028 is a Saturday";
    }
}
