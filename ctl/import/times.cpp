#include "ctl/import/times.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "ctl/classic.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using IntSet = std::set<int>;

IntSet Range(int iFrom, int iTo) {
    IntSet setValues;
    for (int i = iFrom; i <= iTo; ++i) {
        setValues.insert(i);
    }
    return setValues;
}

IntSet Common(const IntSet& setA, const IntSet& setB) {
    IntSet setBoth;
    std::set_intersection(setA.begin(), setA.end(), setB.begin(), setB.end(), std::inserter(setBoth, setBoth.end()));
    return setBoth;
}

IntSet Without(const IntSet& setA, const IntSet& setB) {
    IntSet setRest;
    std::set_difference(setA.begin(), setA.end(), setB.begin(), setB.end(), std::inserter(setRest, setRest.end()));
    return setRest;
}

bool EverComes(const Times& times) {
    const bool bEmpty = std::any_of(times.aSets.begin(), times.aSets.end(), [](const IntSet& s) { return s.empty(); });
    return !bEmpty && std::any_of(times.aSets[MONTH].begin(), times.aSets[MONTH].end(),
                                  [&](int iMonth) { return *times.aSets[DAY].begin() <= LastDayOf(iMonth); });
}

/// What of one is not in the other, in parts without a common minute.
std::vector<Times> Minus(Times times, const Times& other) {
    std::vector<Times> vecParts;
    // The days first: what is left of the two day fields of a crontab is one part, then.
    for (const std::size_t uField : {DAY, WEEK, MONTH, HOUR, MINUTE}) {
        Times part = times;
        part.aSets[uField] = Without(times.aSets[uField], other.aSets[uField]);
        if (!part.aSets[uField].empty()) {
            vecParts.push_back(part);
        }
        times.aSets[uField] = Common(times.aSets[uField], other.aSets[uField]);
        if (times.aSets[uField].empty()) {
            break;
        }
    }
    return vecParts;
}

/// Makes one of two that differ in no more than one field.
bool Unite(Times& times, const Times& other) {
    std::size_t uDifferent = TIME_FIELDS;
    for (std::size_t uField = 0; uField < TIME_FIELDS; ++uField) {
        if (times.aSets[uField] != other.aSets[uField]) {
            if (uDifferent != TIME_FIELDS) {
                return false;
            }
            uDifferent = uField;
        }
    }
    if (uDifferent != TIME_FIELDS) {
        times.aSets[uDifferent].insert(other.aSets[uDifferent].begin(), other.aSets[uDifferent].end());
    }
    return true;
}

void UniteAll(std::vector<Times>& vecTimes) {
    for (std::size_t i = 0; i < vecTimes.size();) {
        const auto itSame = std::find_if(vecTimes.begin() + static_cast<std::ptrdiff_t>(i) + 1, vecTimes.end(),
                                         [&](const Times& other) { return Unite(vecTimes[i], other); });
        if (itSame == vecTimes.end()) {
            ++i;
        } else {
            vecTimes.erase(itSame);
            i = 0; // what has grown may now go with one before it
        }
    }
}

/// Minutes of the days, over the years of a leap cycle, on which a part comes.
class Calendar {
public:
    explicit Calendar(const std::vector<Times>& vecTimes) : _vecTimes(vecTimes) {}

    /// The first and the last minute of a day that match; -1 for none.
    std::pair<int, int> Of(const std::chrono::year_month_day& date, int iWeekday) const {
        std::pair<int, int> ends(-1, -1);
        for (const Times& times : _vecTimes) {
            if (times.aSets[MONTH].count(static_cast<int>(static_cast<unsigned>(date.month()))) != 0 &&
                times.aSets[DAY].count(static_cast<int>(static_cast<unsigned>(date.day()))) != 0 &&
                times.aSets[WEEK].count(iWeekday) != 0) {
                const int iFirst = *times.aSets[HOUR].begin() * 60 + *times.aSets[MINUTE].begin();
                const int iLast = *times.aSets[HOUR].rbegin() * 60 + *times.aSets[MINUTE].rbegin();
                ends = {ends.first < 0 ? iFirst : std::min(ends.first, iFirst), std::max(ends.second, iLast)};
            }
        }
        return ends;
    }

private:
    const std::vector<Times>& _vecTimes;
};

/// Between two minutes of one day, at most.
int LongestGapOfDay(const std::vector<Times>& vecTimes) {
    IntSet setMinutes;
    for (const Times& times : vecTimes) {
        for (const int iHour : times.aSets[HOUR]) {
            for (const int iMinute : times.aSets[MINUTE]) {
                setMinutes.insert(iHour * 60 + iMinute);
            }
        }
    }
    int iGap = 0;
    for (auto it = setMinutes.begin(); it != setMinutes.end() && std::next(it) != setMinutes.end(); ++it) {
        iGap = std::max(iGap, *std::next(it) - *it);
    }
    return iGap;
}

} // namespace

const std::set<int>& EveryValue(std::size_t uField) {
    static const std::array<IntSet, TIME_FIELDS> aValues = {Range(0, 59), Range(0, 23), Range(1, 31), Range(1, 12),
                                                            Range(0, 6)};
    return aValues.at(uField);
}

Times Times::All() {
    Times times;
    for (std::size_t uField = 0; uField < TIME_FIELDS; ++uField) {
        times.aSets[uField] = EveryValue(uField);
    }
    return times;
}

bool Times::IsAny(std::size_t uField) const {
    return aSets[uField] == EveryValue(uField);
}

std::vector<Times> Disjoint(const std::vector<Times>& vecTimes) {
    std::vector<Times> vecComing;
    std::copy_if(vecTimes.begin(), vecTimes.end(), std::back_inserter(vecComing), EverComes);
    UniteAll(vecComing);
    std::vector<Times> vecResult;
    for (const Times& times : vecComing) {
        std::vector<Times> vecParts = {times};
        for (const Times& taken : vecResult) {
            std::vector<Times> vecLeft;
            for (const Times& part : vecParts) {
                for (Times& left : Minus(part, taken)) {
                    vecLeft.push_back(std::move(left));
                }
            }
            vecParts = std::move(vecLeft);
        }
        std::copy_if(vecParts.begin(), vecParts.end(), std::back_inserter(vecResult), EverComes);
    }
    UniteAll(vecResult);
    return vecResult;
}

std::string FieldText(const Times& times, std::size_t uField) {
    if (times.IsAny(uField)) {
        return "*";
    }
    std::string strList;
    for (const int iValue : times.aSets[uField]) {
        strList += (strList.empty() ? "" : ",") + std::to_string(iValue);
    }
    return strList;
}

std::string TimesText(const Times& times) {
    std::string strText = FieldText(times, MINUTE);
    for (std::size_t uField = HOUR; uField < TIME_FIELDS; ++uField) {
        strText += " " + FieldText(times, uField);
    }
    return strText;
}

int LongestGapHours(const std::vector<Times>& vecTimes) {
    using namespace std::chrono;
    const Calendar calendar(vecTimes);
    std::int64_t iLast = -1;
    std::int64_t iGap = 0;
    // 40 years hold every weekday of every date, and 2096 to 2104, without a leap year between.
    for (sys_days day = year(2070) / 1 / 1; day < sys_days(year(2110) / 1 / 1); day += days(1)) {
        const auto [iFirst, iEnd] = calendar.Of(year_month_day(day), static_cast<int>(weekday(day).c_encoding()));
        if (iFirst >= 0) {
            const std::int64_t iMidnight = std::int64_t{day.time_since_epoch().count()} * 24 * 60;
            iGap = iLast < 0 ? iGap : std::max(iGap, iMidnight + iFirst - iLast);
            iLast = iMidnight + iEnd;
        }
    }
    iGap = iLast < 0 ? 0 : std::max<std::int64_t>(iGap, LongestGapOfDay(vecTimes));
    return static_cast<int>((iGap + 59) / 60);
}

} // namespace VUKO::VUKOCrond::Ctl
