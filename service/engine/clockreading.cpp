#include "service/engine/clockreading.h"

#include <chrono>

namespace VUKO::VUKOCrond::Service {

namespace {

using SysMinutes = std::chrono::sys_time<std::chrono::minutes>;

constexpr int TM_YEAR_BASE = 1900;

} // namespace

std::optional<ClockReading> MakeReading(std::time_t tNow, const std::tm& tmLocal) {
    constexpr int iLastYear = static_cast<int>(std::chrono::year::max());
    if (tmLocal.tm_year > iLastYear - TM_YEAR_BASE || tmLocal.tm_year < -iLastYear - TM_YEAR_BASE) {
        return std::nullopt;
    }
    // Taken from the wall clock's own fields and not from tNow: the two part where the zone counts leap seconds, and
    // jobs are due by the wall clock.
    const std::chrono::year_month_day date(std::chrono::year(tmLocal.tm_year + TM_YEAR_BASE),
                                           std::chrono::month(static_cast<unsigned>(tmLocal.tm_mon + 1)),
                                           std::chrono::day(static_cast<unsigned>(tmLocal.tm_mday)));
    const SysMinutes wall =
        std::chrono::sys_days(date) + std::chrono::hours(tmLocal.tm_hour) + std::chrono::minutes(tmLocal.tm_min);
    return ClockReading{tNow, wall.time_since_epoch().count(), tmLocal.tm_sec};
}

std::optional<ClockReading> ReadClock() {
    tzset(); // the zone file may have been replaced
    const std::time_t tNow = time(nullptr);
    const std::tm* const pLocal = localtime(&tNow);
    return pLocal == nullptr ? std::nullopt : MakeReading(tNow, *pLocal);
}

WallMinute WallMinuteOf(std::int64_t iLocalMinute) {
    const SysMinutes wall{std::chrono::minutes(iLocalMinute)};
    const std::chrono::sys_days day = std::chrono::floor<std::chrono::days>(wall);
    const std::chrono::year_month_day date(day);
    const auto iMinuteOfDay = static_cast<int>((wall - day).count());
    return WallMinute{iMinuteOfDay % 60, iMinuteOfDay / 60, static_cast<int>(static_cast<unsigned>(date.day())),
                      static_cast<int>(static_cast<unsigned>(date.month())),
                      static_cast<int>(std::chrono::weekday(day).c_encoding())};
}

} // namespace VUKO::VUKOCrond::Service
