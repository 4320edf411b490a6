// The stamp that begins every line.

#include <limits>

#include "tests/logger/logger_fixture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/scoped_tz.h"

using support::FakeClock;
using support::ScopedTz;

namespace {

struct Moment {
    const char* szZone;
    time_t tNow;
    const char* szStamp;
    const char* szNote;
};

constexpr time_t MOMENT = 1794731433; // 2026-11-15 08:30:33 UTC

class LogStampIn : public LoggerOnFiles, public ::testing::WithParamInterface<Moment> {};

INSTANTIATE_TEST_SUITE_P(
    Zones, LogStampIn,
    ::testing::Values(Moment{"UTC", MOMENT, "2026-11-15T08:30:33+00:00 ", "no offset counts as east"},
                      Moment{"Asia/Shanghai", MOMENT, "2026-11-15T16:30:33+08:00 ", ""},
                      Moment{"XXX3:30", 1767335645, "2026-01-02T03:04:05-03:30 ", "-12600 s"},
                      Moment{"Asia/Kathmandu", MOMENT, "2026-11-15T14:15:33+05:45 ", "+20700 s"},
                      Moment{"America/St_Johns", MOMENT, "2026-11-15T05:00:33-03:30 ", ""},
                      Moment{"America/New_York", -2717668800, "1883-11-18T07:03:58-04:56 ", "-17762 s"},
                      Moment{"XXX4:56:02", MOMENT, "2026-11-15T03:34:31-04:56 ", "-17762 s"},
                      Moment{"XXX-0:00:59", MOMENT, "2026-11-15T08:31:32+00:00 ", "less than a minute east"},
                      Moment{"XXX0:00:59", MOMENT, "2026-11-15T08:29:34-00:00 ", "less than a minute west"},
                      Moment{"Pacific/Kiritimati", MOMENT, "2026-11-15T22:30:33+14:00 ", "the farthest east"},
                      Moment{"Pacific/Niue", MOMENT, "2026-11-14T21:30:33-11:00 ", "another day"},
                      Moment{"Europe/Berlin", 1774745999, "2026-03-29T01:59:59+01:00 ", "before the clock goes on"},
                      Moment{"Europe/Berlin", 1774746000, "2026-03-29T03:00:00+02:00 ", "after it"},
                      Moment{"UTC", 0, "1970-01-01T00:00:00+00:00 ", ""},
                      Moment{"UTC", 253402300800, "10000-01-01T00:00:00+00:00 ", "a year of five digits"}));

TEST_P(LogStampIn, ReadsAsTheLocalTimeWithItsOffset) {
    const ScopedTz zone(GetParam().szZone);
    const FakeClock clock(GetParam().tNow);
    EXPECT_EQ(_logger.GetNewLine(), GetParam().szStamp) << GetParam().szNote;
}

struct Offset {
    long lSeconds;
    const char* szText;
};

class LogStampWithOffset : public LoggerOnFiles, public ::testing::WithParamInterface<Offset> {};

INSTANTIATE_TEST_SUITE_P(Offsets, LogStampWithOffset,
                         ::testing::Values(Offset{0, "+00:00 "}, Offset{-12600, "-03:30 "}, Offset{20700, "+05:45 "},
                                           Offset{-17762, "-04:56 "}, Offset{17762, "+04:56 "}, Offset{-1, "-00:00 "},
                                           Offset{59, "+00:00 "}, Offset{-3599, "-00:59 "}, Offset{50400, "+14:00 "},
                                           Offset{359999, "+99:59 "}, Offset{-360000, "-100:00 "}));

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
