#pragma once

#include <json/json.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// Makes a zone that of the process: a name of the zone database or a POSIX rule; empty leaves the system's.
///
/// @throws ToolError for a text that is neither: the C library would take it for UTC without a word.
void UseZone(const std::string& strZone);

/// The zone's name, as people know it: what was asked for, else the system's own, else "UTC".
std::string ZoneName(const std::string& strAskedFor);

/// Whether two names of zones mean the same: links of the zone database, as "UTC" and "Etc/UTC" are, do.
bool IsSameZone(const std::string& strOne, const std::string& strOther);

/// Makes the zone that of the service, as its status tells it: jobs start by its wall clock, whatever TZ is here.
void UseServiceZone(const Json::Value& jsStatus);

/// Reads "@EPOCH" or local "YYYY-MM-DDTHH:MM[:SS]", of the years 1 to 9999. A local time that comes twice means the
/// first; one that never comes means the instant as far after the gap.
///
/// @throws ToolError
std::time_t ParseTime(const std::string& strText);
/// The minute of the wall clock that such a text names, counted as in Service::ClockReading: as it is written, also
/// where the clock leaves it out; for an epoch, the one that the clock shows then.
std::int64_t ParseWallMinute(const std::string& strText);
/// Such a minute: "2026-11-20T03:00"
std::string WallText(std::int64_t iLocalMinute);

/// "2026-11-20T03:00:00+02:00"
std::string LocalText(std::time_t tInstant);
/// The local time in a form of strftime(), 63 bytes at most.
std::string LocalFormat(std::time_t tInstant, const char* szFormat);

/// "2026-11-20 03:00", for people who know their zone; with seconds, or with the zone's abbreviation.
std::string ShortText(std::time_t tInstant);
std::string ShortTextWithSeconds(std::time_t tInstant);
std::string ShortTextWithZone(std::time_t tInstant);

/// The same day and time of day so many years on; the 28th for a 29th of February that is not there.
std::time_t YearsLater(std::time_t tInstant, int iYears);

/// Midnight at the beginning of a local day, so many days after that of the instant; where there is no midnight, the
/// instant that is as far after the gap.
std::time_t DayBegin(std::time_t tInstant, int iDays);

} // namespace VUKO::VUKOCrond::Ctl
