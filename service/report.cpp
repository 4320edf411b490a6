#include "service/report.h"

#include <algorithm>
#include <ostream>
#include <set>

#include "service/engine/calendarnames.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// More times of day than that are not listed one by one.
constexpr std::size_t MAX_LISTED_TIMES = 6;

/// The values of one field, sorted. -1 stands for any value and says more than the values beside it.
struct FieldValues {
    std::set<int> setValues;
    bool bAny = false;

    explicit FieldValues(const std::vector<int>& vecValues) {
        for (const int iValue : vecValues) {
            setValues.insert(iValue);
        }
        bAny = setValues.contains(-1);
    }
    bool IsNever() const { return setValues.empty(); }
};

template <typename ToText>
std::string Listed(const std::set<int>& setValues, const ToText& toText) {
    std::string strList;
    for (const int iValue : setValues) {
        if (!strList.empty()) {
            strList += ", ";
        }
        strList += toText(iValue);
    }
    return strList;
}

std::string Number(int iValue) {
    return std::to_string(iValue);
}

std::string TwoDigits(int iValue) {
    return (iValue < 10 ? "0" : "") + std::to_string(iValue);
}

std::string TimesOfDay(const FieldValues& minutes, const FieldValues& hours) {
    std::set<int> setTimes;
    for (const int iHour : hours.setValues) {
        for (const int iMinute : minutes.setValues) {
            setTimes.insert(iHour * 60 + iMinute);
        }
    }
    if (setTimes.size() > MAX_LISTED_TIMES) {
        return "at minute " + Listed(minutes.setValues, Number) + " of hour " + Listed(hours.setValues, Number);
    }
    return "at " + Listed(setTimes, [](int iTime) { return TwoDigits(iTime / 60) + ":" + TwoDigits(iTime % 60); });
}

std::string TimeInWords(const FieldValues& minutes, const FieldValues& hours) {
    if (minutes.bAny && hours.bAny) {
        return "every minute";
    }
    if (minutes.bAny) {
        return "every minute of hour " + Listed(hours.setValues, Number);
    }
    if (hours.bAny) {
        return "at minute " + Listed(minutes.setValues, Number) + " of every hour";
    }
    return TimesOfDay(minutes, hours);
}

/// Both day fields have to match, unlike in a classic crontab; "if" says so.
std::string DaysInWords(const FieldValues& days, const FieldValues& weekdays) {
    const auto nameOf = [](int iValue) { return std::string(WEEKDAYS.at(static_cast<std::size_t>(iValue))); };
    std::string strDays;
    if (!days.bAny) {
        strDays += " on day " + Listed(days.setValues, Number);
    }
    if (!weekdays.bAny) {
        strDays += (days.bAny ? " on " : " if that is a ") + Listed(weekdays.setValues, nameOf);
    }
    return strDays;
}

std::string Counted(std::size_t uCount, const std::string& strNoun) {
    return std::to_string(uCount) + " " + strNoun + (uCount == 1 ? "" : "s");
}

} // namespace

std::string ScheduleInWords(const Job& job) {
    const std::vector<std::vector<int>> vecFields = ScheduleValues(job.strSchedule);
    if (vecFields.size() != CronJob::GetAllScheduleTypes().size()) {
        return "never";
    }
    const FieldValues minutes(vecFields[0]);
    const FieldValues hours(vecFields[1]);
    const FieldValues days(vecFields[2]);
    const FieldValues months(vecFields[3]);
    const FieldValues weekdays(vecFields[4]);
    if (minutes.IsNever() || hours.IsNever() || days.IsNever() || months.IsNever() || weekdays.IsNever()) {
        return "never";
    }
    const auto nameOf = [](int iValue) { return std::string(MONTHS.at(static_cast<std::size_t>(iValue - 1))); };
    return TimeInWords(minutes, hours) + DaysInWords(days, weekdays) +
           (months.bAny ? std::string() : " in " + Listed(months.setValues, nameOf));
}

void PrintSchedule(std::ostream& out, const JobTable& table) {
    for (const Job& job : table.Jobs()) {
        if (!job.bInvalid) {
            out << ToText(job.id) << " as " << Escaped(job.strAccount) << ": " << job.strSchedule << " ("
                << ScheduleInWords(job) << ")\n";
        }
    }
    out.flush();
}

std::string Summary(const LoadReport& report) {
    std::string strChanges;
    const std::pair<std::size_t, const char*> aCounts[] = {{report.uNew, "new"},
                                                           {report.uChanged, "changed"},
                                                           {report.uKept, "as before"},
                                                           {report.uGone, "gone"},
                                                           {report.uInvalid, "invalid now"}};
    for (const auto& [uCount, szWhat] : aCounts) {
        if (uCount != 0) {
            strChanges += (strChanges.empty() ? "" : ", ") + std::to_string(uCount) + " " + szWhat;
        }
    }
    return Counted(report.uJobs, "job") + (strChanges.empty() ? "" : " (" + strChanges + ")") + ", " +
           Counted(report.vecRefusals.size(), "refusal");
}

} // namespace VUKO::VUKOCrond::Service
