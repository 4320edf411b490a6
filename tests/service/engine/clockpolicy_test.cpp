#include "service/engine/clockpolicy.h"

#include <gtest/gtest.h>

#include <ctime>
#include <iterator>

#include "service/engine/clockreading.h"
#include "service/engine/simulator.h"
#include "tests/support/scoped_tz.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

/// The rule as a table: how far the clock is from what has been worked on, and what follows.
struct Row {
    int iFrom;
    int iTo;
    bool bLooksBack;
    bool bWildcardLooksBack;
    bool bFixedDueNow;
    bool bMoves;
};

constexpr Row ROWS[] = {
    {-400, -181, false, false, true, true}, // the clock was set
    {-180, 0, false, false, false, false},  // it went back and has not caught up
    {1, 1, false, false, true, true},       // ordinary
    {2, 5, true, true, true, true},         // a little late
    {6, 180, true, false, true, true},      // it went forward
    {181, 400, false, false, true, true},   // it was set
};

constexpr std::int64_t WORKED_UP_TO = 29'000'000;

TEST(ClockPolicyWindow, FollowsTheTableForEveryDistance) {
    int iTested = 0;
    for (const Row& row : ROWS) {
        for (int iPassed = row.iFrom; iPassed <= row.iTo; ++iPassed, ++iTested) {
            SCOPED_TRACE(iPassed);
            const std::int64_t iNow = WORKED_UP_TO + iPassed;
            const TickWindow window = WindowOf(ClockPolicy::CatchUp, WORKED_UP_TO, iNow);
            EXPECT_EQ(window.iNow, iNow);
            EXPECT_EQ(window.iOldest, row.bLooksBack ? WORKED_UP_TO + 1 : iNow);
            EXPECT_EQ(window.HasGap(), row.bLooksBack);
            EXPECT_EQ(window.bWildcardLooksBack, row.bWildcardLooksBack);
            EXPECT_EQ(window.bFixedDueNow, row.bFixedDueNow);
            EXPECT_EQ(window.iWorkedUpTo, row.bMoves ? iNow : WORKED_UP_TO);
        }
    }
    EXPECT_EQ(iTested, 801);
}

TEST(ClockPolicyWindow, IsTheSameBeforeTheEpoch) {
    for (int iPassed = -400; iPassed <= 400; ++iPassed) {
        const TickWindow late = WindowOf(ClockPolicy::CatchUp, WORKED_UP_TO, WORKED_UP_TO + iPassed);
        const TickWindow early = WindowOf(ClockPolicy::CatchUp, -100, -100 + iPassed);
        EXPECT_EQ(late.iNow - late.iOldest, early.iNow - early.iOldest) << iPassed;
        EXPECT_EQ(late.iNow - late.iWorkedUpTo, early.iNow - early.iWorkedUpTo) << iPassed;
        EXPECT_EQ(late.bFixedDueNow, early.bFixedDueNow) << iPassed;
        EXPECT_EQ(late.bWildcardLooksBack, early.bWildcardLooksBack) << iPassed;
    }
}

TEST(ClockPolicyWindow, OfTheLiteralPolicyIsTheMinuteThatShows) {
    for (int iPassed = -400; iPassed <= 400; ++iPassed) {
        const TickWindow window = WindowOf(ClockPolicy::Literal, WORKED_UP_TO, WORKED_UP_TO + iPassed);
        EXPECT_FALSE(window.HasGap()) << iPassed;
        EXPECT_TRUE(window.bFixedDueNow) << iPassed;
        EXPECT_EQ(window.iWorkedUpTo, WORKED_UP_TO + iPassed);
    }
}

TEST(ClockPolicyName, ReadsBack) {
    for (const ClockPolicy ePolicy : {ClockPolicy::CatchUp, ClockPolicy::Literal}) {
        EXPECT_EQ(ClockPolicyOf(ToText(ePolicy)), ePolicy);
    }
    EXPECT_STREQ(ToText(ClockPolicy::CatchUp), "catchup");
    EXPECT_STREQ(ToText(ClockPolicy::Literal), "literal");
}

TEST(ClockPolicyName, IsNoOtherText) {
    for (const char* const szText : {"", "Literal", "catchup ", "catch-up", "literally"}) {
        EXPECT_FALSE(ClockPolicyOf(szText)) << szText;
    }
}

TEST(ClockReadingOfAnInstant, CountsTheMinutesThatTheWallClockShows) {
    struct {
        const char* szZone;
        std::time_t tInstant;
    } const aCases[] = {
        {"UTC0", 0},
        {"UTC0", 59},
        {"UTC0", 60},
        {"UTC0", 1'600'000'001},
        {"<+0545>-5:45", 1'600'000'030},
        {"<-0330>3:30", 1'600'000'059},
        {"<+14>-14", 1'609'459'199},
        {"<-12>12", 3'000'000'000},
        {"UTC0", -1},
        {"<+0030>-0:30", -100'000},
        {"<-00:44:30>0:44:30", 10'000}, // seconds in the offset
    };
    for (const auto& tested : aCases) {
        const support::ScopedTz zone(tested.szZone);
        const auto reading = ReadingAt(tested.tInstant);
        ASSERT_TRUE(reading);
        std::tm tmLocal = {};
        ASSERT_NE(localtime_r(&tested.tInstant, &tmLocal), nullptr);
        const std::int64_t iLocalSec = tested.tInstant + tmLocal.tm_gmtoff;
        const std::int64_t iRoundedDown = iLocalSec >= 0 ? iLocalSec / 60 : -((59 - iLocalSec) / 60);
        EXPECT_EQ(reading->iLocalMinute, iRoundedDown) << tested.szZone << " " << tested.tInstant;
        EXPECT_EQ(reading->iSecond, iLocalSec - iRoundedDown * 60) << tested.szZone << " " << tested.tInstant;
        EXPECT_EQ(reading->tNow, tested.tInstant);
    }
}

TEST(ClockReadingOfAnInstant, KnowsWhenTheNextMinuteBegins) {
    const support::ScopedTz zone("<-00:44:30>0:44:30");
    for (std::time_t tInstant = 1'000'000; tInstant < 1'000'180; ++tInstant) {
        const auto reading = ReadingAt(tInstant);
        ASSERT_TRUE(reading);
        const auto next = ReadingAt(reading->NextMinute());
        const auto before = ReadingAt(reading->NextMinute() - 1);
        ASSERT_TRUE(next && before);
        EXPECT_EQ(next->iLocalMinute, reading->iLocalMinute + 1);
        EXPECT_EQ(next->iSecond, 0);
        EXPECT_EQ(before->iLocalMinute, reading->iLocalMinute);
    }
}

TEST(ClockReadingOfAnInstant, StaysInItsMinuteInALeapSecond) {
    std::tm tmLeap = {};
    tmLeap.tm_year = 116;
    tmLeap.tm_mon = 11;
    tmLeap.tm_mday = 31;
    tmLeap.tm_hour = 23;
    tmLeap.tm_min = 59;
    tmLeap.tm_sec = 60;
    const auto reading = MakeReading(1'483'228'826, tmLeap);
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->iLocalMinute, 1'483'228'740 / 60);
    EXPECT_EQ(reading->NextMinute(), 1'483'228'827);
}

TEST(ClockReadingOfAnInstant, HasNoneBeyondTheCalendar) {
    std::tm tmFar = {};
    tmFar.tm_mday = 1;
    tmFar.tm_year = 40000;
    EXPECT_FALSE(MakeReading(0, tmFar));
    tmFar.tm_year = -40000;
    EXPECT_FALSE(MakeReading(0, tmFar));
    EXPECT_FALSE(ReadingAt(INT64_MAX));
}

TEST(WallMinute, IsWhatTheCalendarSays) {
    // Every minute of a leap day, its neighbours, and both ends of years; then a walk over a century by odd steps.
    const std::time_t aFrom[] = {951'696'000, 1'078'012'800, 946'598'400, 4'107'456'000, -86'400};
    for (const std::time_t tFrom : aFrom) {
        for (std::time_t tInstant = tFrom; tInstant < tFrom + 3 * 86'400; tInstant += 60) {
            std::tm tmWall = {};
            ASSERT_NE(gmtime_r(&tInstant, &tmWall), nullptr);
            const WallMinute wall = WallMinuteOf(tInstant / 60);
            ASSERT_EQ(wall.iMinute, tmWall.tm_min) << tInstant;
            ASSERT_EQ(wall.iHour, tmWall.tm_hour) << tInstant;
            ASSERT_EQ(wall.iDay, tmWall.tm_mday) << tInstant;
            ASSERT_EQ(wall.iMonth, tmWall.tm_mon + 1) << tInstant;
            ASSERT_EQ(wall.iWeekday, tmWall.tm_wday) << tInstant;
        }
    }
    for (std::int64_t iMinute = -20'000'000; iMinute < 40'000'000; iMinute += 7'919) {
        const std::time_t tInstant = iMinute * 60;
        std::tm tmWall = {};
        ASSERT_NE(gmtime_r(&tInstant, &tmWall), nullptr);
        const WallMinute wall = WallMinuteOf(iMinute);
        ASSERT_EQ(wall.iMinute, tmWall.tm_min) << iMinute;
        ASSERT_EQ(wall.iHour, tmWall.tm_hour) << iMinute;
        ASSERT_EQ(wall.iDay, tmWall.tm_mday) << iMinute;
        ASSERT_EQ(wall.iMonth, tmWall.tm_mon + 1) << iMinute;
        ASSERT_EQ(wall.iWeekday, tmWall.tm_wday) << iMinute;
    }
}

} // namespace
