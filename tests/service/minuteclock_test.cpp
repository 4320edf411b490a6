#include "service/minuteclock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "tests/support/fake_clock.h"
#include "tests/support/scoped_tz.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

using Minutes = std::vector<std::int64_t>;

constexpr std::time_t NOON = 1794916800; // 2026-11-17 12:00:00 UTC, a Tuesday

ClockReading ReadAt(std::time_t tNow) {
    const support::FakeClock clock(tNow);
    const std::optional<ClockReading> reading = ReadClock();
    EXPECT_TRUE(reading.has_value());
    return reading.value_or(ClockReading());
}

std::int64_t FloorDivide(std::int64_t iValue, std::int64_t iBy) {
    return iValue / iBy - (iValue % iBy < 0 ? 1 : 0);
}

/// What the local minute is defined as.
std::int64_t MinuteByOffset(std::time_t tNow) {
    std::tm tmLocal = {};
    localtime_r(&tNow, &tmLocal);
    return FloorDivide(tNow + tmLocal.tm_gmtoff, 60);
}

} // namespace

TEST(MinuteClock, WorksOnEachMinuteOnce) {
    MinuteClock clock(100);
    EXPECT_EQ(clock.Advance(101), Minutes{101});
    EXPECT_EQ(clock.Advance(101), Minutes{});
    EXPECT_EQ(clock.Advance(102), Minutes{102});
}

TEST(MinuteClock, DoesNotWorkOnTheMinuteItStartsWith) {
    MinuteClock clock(100);
    EXPECT_EQ(clock.Advance(100), Minutes{});
    EXPECT_EQ(clock.WorkedUpTo(), 100);
}

TEST(MinuteClock, LooksBackAtTheMinutesBetweenWhenATickIsLate) {
    for (std::int64_t iLate = 2; iLate <= 5; ++iLate) {
        MinuteClock clock(100);
        Minutes vecExpected;
        for (std::int64_t i = 1; i <= iLate; ++i) {
            vecExpected.push_back(100 + i);
        }
        EXPECT_EQ(clock.Advance(100 + iLate), vecExpected) << iLate;
        EXPECT_EQ(clock.WorkedUpTo(), 100 + iLate);
    }
}

TEST(MinuteClock, TakesALargerJumpForAClockThatWasSet) {
    MinuteClock clock(100);
    EXPECT_EQ(clock.Advance(106), Minutes{106});
    EXPECT_EQ(clock.Advance(100000), Minutes{100000});
    EXPECT_EQ(clock.Advance(100001), Minutes{100001});
}

TEST(MinuteClock, WaitsForAClockThatWasPutBackByALittle) {
    MinuteClock clock(100);
    for (std::int64_t iNow = 95; iNow <= 100; ++iNow) {
        EXPECT_EQ(clock.Advance(iNow), Minutes{}) << iNow;
    }
    EXPECT_EQ(clock.Advance(101), Minutes{101});
}

TEST(MinuteClock, WorksOnTheCurrentMinuteAfterALargerJumpBack) {
    MinuteClock clock(100);
    EXPECT_EQ(clock.Advance(94), Minutes{94});
    EXPECT_EQ(clock.Advance(94), Minutes{});
    EXPECT_EQ(clock.Advance(95), Minutes{95});
    EXPECT_EQ(clock.Advance(-5), Minutes{-5});
}

TEST(ClockReading, HasTheSecondsToTheNextMinute) {
    const support::ScopedTz zone("UTC0");
    EXPECT_EQ(ReadAt(NOON).NextMinute(), NOON + 60);
    EXPECT_EQ(ReadAt(NOON + 1).NextMinute(), NOON + 60);
    EXPECT_EQ(ReadAt(NOON + 59).NextMinute(), NOON + 60);
}

TEST(ClockReading, LetsALeapSecondPass) {
    std::tm tmLeap = {};
    tmLeap.tm_year = 116;
    tmLeap.tm_mon = 11;
    tmLeap.tm_mday = 31;
    tmLeap.tm_hour = 23;
    tmLeap.tm_min = 59;
    tmLeap.tm_sec = 60;
    const std::optional<ClockReading> reading = MakeReading(1000, tmLeap);
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->NextMinute(), 1001);
    tmLeap.tm_sec = 0;
    EXPECT_EQ(reading->iLocalMinute, MakeReading(940, tmLeap)->iLocalMinute);
}

TEST(ClockReading, CountsLocalMinutesWhereTheOffsetHasSeconds) {
    for (const char* const szZone : {"AAA-0:00:17", "BBB0:00:43", "CCC-5:45:59", "DDD11:59:01"}) {
        const support::ScopedTz zone(szZone);
        for (std::time_t tNow = NOON; tNow < NOON + 180; ++tNow) {
            const ClockReading reading = ReadAt(tNow);
            ASSERT_EQ(reading.iLocalMinute, MinuteByOffset(tNow)) << szZone << " " << tNow;
            const std::time_t tNext = reading.NextMinute();
            ASSERT_EQ(ReadAt(tNext).iLocalMinute, reading.iLocalMinute + 1) << szZone << " " << tNow;
            ASSERT_EQ(ReadAt(tNext - 1).iLocalMinute, reading.iLocalMinute) << szZone << " " << tNow;
        }
    }
}

TEST(ClockReading, AgreesWithTheOffsetAroundEveryChangeOfTheZone) {
    for (const char* const szZone : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "Asia/Kathmandu"}) {
        const support::ScopedTz zone(szZone);
        for (std::time_t tNow = 1767225600; tNow < 1798761600; tNow += 1799) { // all of 2026
            ASSERT_EQ(ReadAt(tNow).iLocalMinute, MinuteByOffset(tNow)) << szZone << " " << tNow;
        }
    }
}

TEST(ClockReading, AgreesWithTheOffsetBefore1970) {
    const support::ScopedTz zone("UTC0");
    for (const std::time_t tNow : {std::time_t{-1}, std::time_t{-60}, std::time_t{-61}, std::time_t{-2208988800}}) {
        EXPECT_EQ(ReadAt(tNow).iLocalMinute, MinuteByOffset(tNow));
    }
}

TEST(ClockReading, LooksAtTheClockOnce) {
    const support::ScopedTz zone("UTC0");
    support::FakeClock clock(NOON + 59);
    clock.AdvancePerReading(60);
    const std::optional<ClockReading> reading = ReadClock();
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->tNow, NOON + 59);
    EXPECT_EQ(reading->iSecond, 59);
    EXPECT_EQ(clock.Readings(), 1);
}

TEST(ClockReading, NoticesThatTheZoneHasChanged) {
    const support::FakeClock clock(NOON);
    const support::ScopedTz zone("UTC0");
    const std::int64_t iBefore = ReadClock()->iLocalMinute;
    setenv("TZ", "XXX-2", 1);
    EXPECT_EQ(ReadClock()->iLocalMinute, iBefore + 120);
}

TEST(ClockReading, IsMissingWhenTheTimeCannotBeConverted) {
    support::FakeClock clock(NOON);
    clock.FailLocaltime(EOVERFLOW);
    EXPECT_FALSE(ReadClock());
}

TEST(ClockReading, IsMissingBeyondTheCalendar) {
    std::tm tmFar = {};
    tmFar.tm_mday = 1;
    for (const int iYear : {32768 - 1900, 2000000, -32768 - 1900}) {
        tmFar.tm_year = iYear;
        EXPECT_FALSE(MakeReading(0, tmFar)) << iYear;
    }
    tmFar.tm_year = 32767 - 1900;
    EXPECT_TRUE(MakeReading(0, tmFar));
}

TEST(WallMinute, HasTheFieldsThatLocaltimeGives) {
    for (const char* const szZone : {"Europe/Berlin", "Asia/Kolkata", "AAA-0:00:17"}) {
        const support::ScopedTz zone(szZone);
        for (std::time_t tNow = 1709150000; tNow < 1709150000 + 86400 * 800L; tNow += 86400 / 5 + 61) {
            std::tm tmLocal = {};
            localtime_r(&tNow, &tmLocal);
            const WallMinute wall = WallMinuteOf(ReadAt(tNow).iLocalMinute);
            ASSERT_EQ(wall.iMinute, tmLocal.tm_min) << tNow;
            ASSERT_EQ(wall.iHour, tmLocal.tm_hour) << tNow;
            ASSERT_EQ(wall.iDay, tmLocal.tm_mday) << tNow;
            ASSERT_EQ(wall.iMonth, tmLocal.tm_mon + 1) << tNow;
            ASSERT_EQ(wall.iWeekday, tmLocal.tm_wday) << tNow;
        }
    }
}

TEST(WallMinute, CarriesItsOwnDateAcrossMidnight) {
    const support::ScopedTz zone("UTC0");
    const std::int64_t iMidnight = ReadAt(1798761600).iLocalMinute; // 2027-01-01, a Friday
    const WallMinute last = WallMinuteOf(iMidnight - 1);
    EXPECT_EQ(last.iMinute, 59);
    EXPECT_EQ(last.iHour, 23);
    EXPECT_EQ(last.iDay, 31);
    EXPECT_EQ(last.iMonth, 12);
    EXPECT_EQ(last.iWeekday, 4);
    const WallMinute first = WallMinuteOf(iMidnight);
    EXPECT_EQ(first.iDay, 1);
    EXPECT_EQ(first.iMonth, 1);
    EXPECT_EQ(first.iWeekday, 5);
}

/// In spring the wall clock jumps over an hour: too far for a late tick, so only the minute after the gap is worked on.
TEST(MinuteClock, GoesOnAfterTheGapOfSpring) {
    const support::ScopedTz zone("Europe/Berlin");
    const std::time_t tGap = 1774746000; // 2026-03-29 01:00 UTC: 2:00 becomes 3:00
    MinuteClock clock(ReadAt(tGap - 60).iLocalMinute);
    const std::int64_t iAfter = ReadAt(tGap).iLocalMinute;
    EXPECT_EQ(iAfter, clock.WorkedUpTo() + 61);
    EXPECT_EQ(clock.Advance(iAfter), Minutes{iAfter});
    EXPECT_EQ(WallMinuteOf(iAfter).iHour, 3);
}

/// In autumn an hour of the wall clock comes twice, and so does each of its minutes.
TEST(MinuteClock, GoesThroughTheRepeatedHourOfAutumn) {
    const support::ScopedTz zone("Europe/Berlin");
    const std::time_t tBack = 1792890000; // 2026-10-25 01:00 UTC: 3:00 becomes 2:00
    MinuteClock clock(ReadAt(tBack - 60).iLocalMinute);
    const std::int64_t iRepeated = ReadAt(tBack).iLocalMinute;
    EXPECT_EQ(iRepeated, clock.WorkedUpTo() - 59);
    EXPECT_EQ(clock.Advance(iRepeated), Minutes{iRepeated});
    EXPECT_EQ(clock.Advance(iRepeated + 1), Minutes{iRepeated + 1});
}
