#pragma once

#include <cstdint>
#include <ostream>

namespace unit {

/// A zone in 2027: where its local time stands at the year's beginning in UTC, and the two moments at which its clocks
/// are changed by an hour. Written out by hand: no function of the C library and no zone file has a part in it.
struct ZoneYear {
    const char* szName;
    const char* szTz; ///< the same, as the C library is told
    int iFirstHour;   ///< local time at 1 January 2027, 00:00 UTC
    int iFirstMinute;
    std::int64_t iForward; ///< when clocks are put forward an hour; 0 for never
    std::int64_t iBack;    ///< when they are put back an hour; 0 for never
};

/// Names a zone in the names and the failures of tests.
inline void PrintTo(const ZoneYear& zone, std::ostream* pOut) {
    *pOut << zone.szName;
}

inline constexpr ZoneYear ZONES_OF_2027[] = {
    {"Utc", "UTC0", 0, 0, 0, 0},
    // The last Sundays of March and October, both at 01:00 UTC: 28 March and 31 October.
    {"Berlin", "CET-1CEST,M3.5.0,M10.5.0/3", 1, 0, 1'806'195'600, 1'824'944'400},
    // The first Sundays of October, 02:00 at UTC+9:30, and April, 03:00 at UTC+10:30, both at 16:30 UTC of the day
    // before: 2 October and 3 April.
    {"Adelaide", "ACST-9:30ACDT,M10.1.0,M4.1.0/3", 10, 30, 1'822'494'600, 1'806'769'800},
};

/// The local time of a zone, carried on minute by minute like the wheels of a counter, from the beginning of 2027.
class LocalTimeOracle {
public:
    static constexpr std::int64_t YEAR_BEGIN = 1'798'761'600; ///< 1 January 2027, 00:00 UTC
    static constexpr std::int64_t YEAR_END = YEAR_BEGIN + 365 * 86400;

    explicit LocalTimeOracle(const ZoneYear& zone)
        : iMinute(zone.iFirstMinute), iHour(zone.iFirstHour), _zone(zone), _iTime(YEAR_BEGIN) {}

    void NextMinute() {
        _iTime += 60;
        if (++iMinute == 60) {
            iMinute = 0;
            NextHour();
        }
        if (_iTime == _zone.iForward) {
            NextHour();
        } else if (_iTime == _zone.iBack) {
            --iHour; // at 03:00, in all these zones
        }
    }

    int iMinute;
    int iHour;
    int iDay = 1;
    int iMonth = 1;
    int iWeekday = 5; ///< 1 January 2027 is a Friday; 0 is Sunday

private:
    void NextHour() {
        if (++iHour < 24) {
            return;
        }
        iHour = 0;
        iWeekday = iWeekday == 6 ? 0 : iWeekday + 1;
        constexpr int aDaysOfMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        if (++iDay > aDaysOfMonth[iMonth - 1]) {
            iDay = 1;
            iMonth = iMonth == 12 ? 1 : iMonth + 1;
        }
    }

    ZoneYear _zone;
    std::int64_t _iTime;
};

} // namespace unit
