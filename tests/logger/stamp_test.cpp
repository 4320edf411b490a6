// The stamp that begins every line.

#include <limits>

#include "tests/logger/logger_fixture.h"
#include "tests/support/case_name.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scoped_tz.h"

using support::FakeClock;
using support::ScopedTz;

namespace {

struct Moment {
    const char* szName;
    const char* szZone;
    time_t tNow;
    const char* szStamp;
};

constexpr time_t MOMENT = 1794731433; // 2026-11-15 08:30:33 UTC

class LogStampIn : public LoggerOnFiles, public ::testing::WithParamInterface<Moment> {};

INSTANTIATE_TEST_SUITE_P(
    Zones, LogStampIn,
    ::testing::Values(Moment{"Utc", "UTC", MOMENT, "2026-11-15T08:30:33+00:00 "},
                      Moment{"Shanghai", "Asia/Shanghai", MOMENT, "2026-11-15T16:30:33+08:00 "},
                      Moment{"Minus12600Seconds", "XXX3:30", 1767335645, "2026-01-02T03:04:05-03:30 "},
                      Moment{"Plus20700Seconds", "Asia/Kathmandu", MOMENT, "2026-11-15T14:15:33+05:45 "},
                      Moment{"StJohns", "America/St_Johns", MOMENT, "2026-11-15T05:00:33-03:30 "},
                      Moment{"Minus17762Seconds", "XXX4:56:02", MOMENT, "2026-11-15T03:34:31-04:56 "},
                      Moment{"LocalMeanTime", "America/New_York", -2717668800, "1883-11-18T07:03:58-04:56 "},
                      Moment{"LessThanAMinuteEast", "XXX-0:00:59", MOMENT, "2026-11-15T08:31:32+00:00 "},
                      Moment{"LessThanAMinuteWest", "XXX0:00:59", MOMENT, "2026-11-15T08:29:34-00:00 "},
                      Moment{"FarthestEast", "Pacific/Kiritimati", MOMENT, "2026-11-15T22:30:33+14:00 "},
                      Moment{"AnotherDay", "Pacific/Niue", MOMENT, "2026-11-14T21:30:33-11:00 "},
                      Moment{"BeforeTheClockGoesOn", "Europe/Berlin", 1774745999, "2026-03-29T01:59:59+01:00 "},
                      Moment{"AfterTheClockWentOn", "Europe/Berlin", 1774746000, "2026-03-29T03:00:00+02:00 "},
                      Moment{"Epoch", "UTC", 0, "1970-01-01T00:00:00+00:00 "},
                      Moment{"YearOfFiveDigits", "UTC", 253402300800, "10000-01-01T00:00:00+00:00 "}),
    support::CaseName());

TEST_P(LogStampIn, ReadsAsTheLocalTimeWithItsOffset) {
    const ScopedTz zone(GetParam().szZone);
    const FakeClock clock(GetParam().tNow);
    EXPECT_EQ(_logger.GetNewLine(), GetParam().szStamp);
}

struct Offset {
    const char* szName;
    long lSeconds;
    const char* szText;
};

class LogStampWithOffset : public LoggerOnFiles, public ::testing::WithParamInterface<Offset> {};

INSTANTIATE_TEST_SUITE_P(Offsets, LogStampWithOffset,
                         ::testing::Values(Offset{"None", 0, "+00:00 "}, Offset{"Minus12600", -12600, "-03:30 "},
                                           Offset{"Plus20700", 20700, "+05:45 "},
                                           Offset{"Minus17762", -17762, "-04:56 "},
                                           Offset{"Plus17762", 17762, "+04:56 "}, Offset{"Minus1", -1, "-00:00 "},
                                           Offset{"Plus59", 59, "+00:00 "}, Offset{"Minus3599", -3599, "-00:59 "},
                                           Offset{"Plus50400", 50400, "+14:00 "},
                                           Offset{"Plus359999", 359999, "+99:59 "},
                                           Offset{"Minus360000", -360000, "-100:00 "}),
                         support::CaseName());

TEST_P(LogStampWithOffset, ShowsSignHoursAndMinutesAndDropsSeconds) {
    const ScopedTz zone("UTC");
    FakeClock clock(MOMENT);
    clock.ForceOffset(GetParam().lSeconds);
    EXPECT_EQ(_logger.GetNewLine(), std::string("2026-11-15T08:30:33") + GetParam().szText);
}

class LogStamp : public LoggerOnFiles {};

TEST_F(LogStamp, HasTwentySixCharacters) {
    EXPECT_EQ(_logger.GetNewLine().size(), 26U);
}

TEST_F(LogStamp, IsEmptyWhenTheLocalTimeCannotBeTold) {
    FakeClock clock(MOMENT);
    clock.FailLocaltime(EOVERFLOW);
    EXPECT_EQ(_logger.GetNewLine(), "");
    _logger._ssLog << _logger.GetNewLine() << "text\n";
    _logger.FlushAll();
    EXPECT_EQ(Log(), "text\n");
}

TEST_F(LogStamp, IsEmptyForATimeWhoseYearNoIntegerHolds) {
    const ScopedTz zone("UTC");
    const FakeClock clock(std::numeric_limits<time_t>::max());
    EXPECT_EQ(_logger.GetNewLine(), "");
}

TEST_F(LogStamp, IsEmptyWhenTheDateCannotBeFormatted) {
    fake::Files().bFailStrftime = true;
    EXPECT_EQ(_logger.GetNewLine(), "");
}

TEST_F(LogStamp, IsThatOfTheCallAndNotOfTheFlush) {
    const ScopedTz zone("UTC");
    FakeClock clock(MOMENT);
    _logger._ssLog << _logger.GetNewLine() << "text\n";
    clock.Set(MOMENT + 86400);
    _logger.SoftFlush();
    clock.Set(MOMENT + 2 * 86400);
    _logger.Flush();
    EXPECT_EQ(Log(), "2026-11-15T08:30:33+00:00 text\n");
}

TEST_F(LogStamp, ReadsTheClockOnce) {
    FakeClock clock(MOMENT);
    clock.AdvancePerReading(60);
    static_cast<void>(_logger.GetNewLine());
    EXPECT_EQ(clock.Readings(), 1);
}

TEST_F(LogStamp, LeavesTheBufferAlone) {
    static_cast<void>(_logger.GetNewLine());
    EXPECT_EQ(Buffered(), "");
}

} // namespace
