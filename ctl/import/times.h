#pragma once

#include <array>
#include <set>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

enum TimeField { MINUTE, HOUR, DAY, MONTH, WEEK, TIME_FIELDS };

/// All minutes whose five fields lie in five sets: what one text of five fields can say.
struct Times {
    std::array<std::set<int>, TIME_FIELDS> aSets;

    /// Every minute there is.
    static Times All();
    bool IsAny(std::size_t uField) const;
};

/// The values of a field that is not restricted; weekdays are 0 to 6.
const std::set<int>& EveryValue(std::size_t uField);

/// The same minutes, in as few parts as is easy, of which no two hold the same minute: a job made of each runs once in
/// each of the minutes. What never comes (a 30th of February) is left out.
std::vector<Times> Disjoint(const std::vector<Times>& vecTimes);

/// One field: "*", or its values.
std::string FieldText(const Times& times, std::size_t uField);

/// The five fields.
std::string TimesText(const Times& times);

/// Hours, rounded up, that lie between two of the minutes at most, looked at over all years of a leap cycle; 0 where
/// there are fewer than two.
int LongestGapHours(const std::vector<Times>& vecTimes);

} // namespace VUKO::VUKOCrond::Ctl
