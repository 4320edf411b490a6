#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

namespace VUKO::VUKOCrond::Service {

/// One look at the clock. Everything that a tick decides is decided from one of these, so that a tick which takes long
/// enough to span a minute boundary still sees one minute.
struct ClockReading {
    std::time_t tNow = 0;
    /// Minutes on the local wall clock since it showed 1970-01-01 00:00: (tNow + offset from UTC) / 60, rounded down.
    std::int64_t iLocalMinute = 0;
    /// Seconds into that minute. Not tNow % 60 where the offset from UTC has seconds.
    int iSecond = 0;

    /// The instant at which the next local minute starts, as far as this reading can tell: the clock may be set or the
    /// zone may change before.
    std::time_t NextMinute() const { return tNow + (iSecond < 60 ? 60 - iSecond : 1); }
};

/// @param tmLocal  what localtime() made of `tNow`.
/// @return nothing for a year that the calendar does not reach.
std::optional<ClockReading> MakeReading(std::time_t tNow, const std::tm& tmLocal);

/// Looks at the clock and the zone once. A zone that was changed since the last look is noticed.
///
/// @return nothing when the time cannot be converted.
std::optional<ClockReading> ReadClock();

/// A minute of the wall clock with its own date, in the numbers of the schedule fields.
struct WallMinute {
    int iMinute = 0;  ///< 0..59
    int iHour = 0;    ///< 0..23
    int iDay = 1;     ///< 1..31
    int iMonth = 1;   ///< 1..12
    int iWeekday = 0; ///< 0..6, 0 is Sunday
};

WallMinute WallMinuteOf(std::int64_t iLocalMinute);

} // namespace VUKO::VUKOCrond::Service
