#include "ctl/meaning.h"

#include <algorithm>
#include <set>
#include <vector>

#include "ctl/fields.h"
#include "service/engine/calendarnames.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// More times of day than that are not listed one by one.
constexpr std::size_t MAX_LISTED_TIMES = 6;

using Ranges = std::vector<CronJob::Range>;

bool IsAny(const Ranges& ranges) {
    return std::any_of(ranges.begin(), ranges.end(), [](const CronJob::Range& range) { return range.kind == ANY; });
}

std::set<int> ValuesOf(const Ranges& ranges) {
    std::set<int> setValues;
    for (const CronJob::Range& range : ranges) {
        if (range.kind == VALUE) {
            setValues.insert(range.from);
        }
    }
    return setValues;
}

/// "a, b and c"
std::string Joined(const std::vector<std::string>& vecWords, const char* szLast) {
    std::string strText;
    for (std::size_t u = 0; u < vecWords.size(); ++u) {
        strText += (u == 0 ? "" : u + 1 == vecWords.size() ? std::string(" ") + szLast + " " : ", ") + vecWords[u];
    }
    return strText;
}

std::string TwoDigits(int iValue) {
    return (iValue < 10 ? "0" : "") + std::to_string(iValue);
}

std::string ValueText(std::size_t uField, int iValue) {
    const auto uValue = static_cast<std::size_t>(iValue);
    return uField == WEEKDAY ? Service::WEEKDAYS.at(uValue)
           : uField == MONTH ? Service::MONTHS.at(uValue - 1)
                             : std::to_string(iValue);
}

/// Whether a random item draws from all that "~" draws from.
bool IsWhole(std::size_t uField, const CronJob::Range& range) {
    static const FieldRanges whole = RangesOf("~ ~ ~ ~ ~").value_or(FieldRanges());
    return range.from == whole[uField].front().from && range.to == whole[uField].front().to;
}

std::string RandomText(std::size_t uField, const CronJob::Range& range) {
    constexpr const char* NAMES[] = {"minute", "hour", "day", "month", "weekday"};
    const std::string strText = std::string("one random ") + NAMES[uField];
    if (!IsWhole(uField, range)) {
        return strText + " from " + ValueText(uField, range.from) + " to " + ValueText(uField, range.to);
    }
    return uField == DAY ? strText + " up to " + std::to_string(range.to) : strText;
}

/// "minutes 5 and 30", "Monday or one random weekday", ...
std::string FieldText(std::size_t uField, const Ranges& ranges, const char* szJoin) {
    constexpr const char* NAMES[] = {"minute ", "hour ", "day ", "", ""};
    constexpr const char* SEVERAL[] = {"minutes ", "hours ", "days ", "", ""};
    const std::set<int> setValues = ValuesOf(ranges);
    std::vector<std::string> vecWords;
    for (const int iValue : setValues) {
        vecWords.push_back(ValueText(uField, iValue));
    }
    if (!vecWords.empty()) {
        vecWords.front().insert(0, setValues.size() > 1 ? SEVERAL[uField] : NAMES[uField]);
    }
    for (const CronJob::Range& range : ranges) {
        if (range.kind == RANDOM) {
            vecWords.push_back(RandomText(uField, range));
        }
    }
    return Joined(vecWords, szJoin);
}

/// "03:00 and 15:00"; empty where that cannot be said, or is too long.
std::string TimesOfDay(const Ranges& minutes, const Ranges& hours) {
    const std::set<int> setMinutes = ValuesOf(minutes);
    const std::set<int> setHours = ValuesOf(hours);
    if (setMinutes.size() * setHours.size() > MAX_LISTED_TIMES || IsAny(minutes) || IsAny(hours) || IsRandom(minutes) ||
        IsRandom(hours)) {
        return std::string();
    }
    std::vector<std::string> vecTimes;
    for (const int iHour : setHours) {
        for (const int iMinute : setMinutes) {
            vecTimes.push_back(TwoDigits(iHour) + ":" + TwoDigits(iMinute));
        }
    }
    return Joined(vecTimes, "and");
}

std::string TimeText(const FieldRanges& fields) {
    const std::string strTimes = TimesOfDay(fields[MINUTE], fields[HOUR]);
    if (!strTimes.empty()) {
        return "at " + strTimes;
    }
    const std::string strHours = IsAny(fields[HOUR]) ? std::string("every hour") : FieldText(HOUR, fields[HOUR], "and");
    if (!IsAny(fields[MINUTE])) {
        return "at " + FieldText(MINUTE, fields[MINUTE], "and") + " of " + strHours;
    }
    return IsAny(fields[HOUR]) ? "every minute" : "every minute of " + strHours;
}

std::string WeekdayText(const Ranges& weekdays) {
    const bool bBeginsWithName = !ValuesOf(weekdays).empty();
    return ", if that is " + std::string(bBeginsWithName ? "a " : "") + FieldText(WEEKDAY, weekdays, "or");
}

std::string DateText(const FieldRanges& fields) {
    const bool bAnyDay = IsAny(fields[DAY]);
    const bool bAnyWeekday = IsAny(fields[WEEKDAY]);
    const std::string strMonths = IsAny(fields[MONTH]) ? "" : FieldText(MONTH, fields[MONTH], "and");
    if (!bAnyDay && bAnyWeekday) {
        return ", on " + FieldText(DAY, fields[DAY], "and") + " of " + (strMonths.empty() ? "every month" : strMonths);
    }
    const std::string strInMonths = strMonths.empty() ? "" : " in " + strMonths;
    if (bAnyDay && bAnyWeekday) {
        return (IsAny(fields[HOUR]) ? "" : ", every day") + strInMonths;
    }
    return bAnyDay ? ", on " + FieldText(WEEKDAY, fields[WEEKDAY], "and") + strInMonths
                   : ", on " + FieldText(DAY, fields[DAY], "and") + strInMonths + WeekdayText(fields[WEEKDAY]);
}

} // namespace

std::string MeaningOf(const std::string& strCrontab) {
    const std::optional<FieldRanges> fields = RangesOf(strCrontab);
    if (!fields) {
        return std::string();
    }
    if (std::any_of(fields->begin(), fields->end(), [](const Ranges& ranges) { return ranges.empty(); })) {
        return "never";
    }
    const bool bRandom = IsRandom(*fields);
    return TimeText(*fields) + DateText(*fields) + (bRandom ? "; what is random is drawn once and then kept" : "");
}

} // namespace VUKO::VUKOCrond::Ctl
