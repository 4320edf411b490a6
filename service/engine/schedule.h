#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "service/engine/clockreading.h"

namespace VUKO::VUKOCrond::Service {

/// A generated schedule in the form in which a tick can ask many of them: one bit for each value of each field.
///
/// It answers as CronJob::IsTypeReady() does for the five fields: a field without values never matches, and a value
/// that no clock shows matches nothing.
class Schedule {
public:
    /// Matches nothing.
    Schedule() = default;
    /// @param strText  as ScheduleToText() has it; one that holds no five fields of numbers matches nothing.
    explicit Schedule(const std::string& strText);

    bool Matches(const WallMinute& wall) const {
        return Holds(_uMinutes, wall.iMinute) && Holds(_uHours, wall.iHour) && Holds(_uDays, wall.iDay) &&
               Holds(_uMonths, wall.iMonth) && Holds(_uWeekdays, wall.iWeekday);
    }
    /// Whether the minutes or the hours hold "any".
    bool IsWildcard() const { return _bAnyMinute || _bAnyHour; }

    bool HasAnyMinute() const { return _bAnyMinute; }
    bool HasAnyHour() const { return _bAnyHour; }
    std::uint64_t Minutes() const { return _uMinutes; }
    std::uint32_t Hours() const { return _uHours; }

    bool operator==(const Schedule&) const = default;

private:
    static bool Holds(std::uint64_t uMask, int iValue) { return ((uMask >> iValue) & 1U) != 0; }

    std::uint64_t _uMinutes = 0;
    std::uint32_t _uHours = 0;
    std::uint32_t _uDays = 0;
    std::uint16_t _uMonths = 0;
    std::uint8_t _uWeekdays = 0;
    bool _bAnyMinute : 1 = false;
    bool _bAnyHour : 1 = false;
};

/// The generated values of a job in one line, to keep: fields in the order of GetAllScheduleTypes(), values joined by
/// ",", fields by one blank. As CronJob::ToCurrentCrontabString() has it.
std::string ScheduleToText(const CronJob& job);

/// The values of each field of such a line; empty for a text that is none.
std::vector<std::vector<int>> ScheduleValues(const std::string& strText);

/// Puts kept values back into a job's document.
///
/// @return false, and nothing is changed, for a text that holds no five fields of numbers.
bool ScheduleFromText(CronJob& job, const std::string& strText);

/// What the five fields of a job allow, in one line: the same for two jobs exactly when they read the same. A field is
/// a list of "5", "*" and "3~9"; "X" for an empty one.
std::string FieldsToText(const CronJob& job);

/// The pieces between the blanks.
std::vector<std::string> SplitFields(const std::string& strLine);

} // namespace VUKO::VUKOCrond::Service
