#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// The five fields of a text, as a classic crontab reads them.
struct ClassicText {
    struct Field {
        std::set<int> setValues;
        bool bStar = false; ///< begins with "*": as a day field, it does not join the other by OR
    };
    std::array<Field, 5> aFields;
};

/// What a text means in a classic crontab: numbers, names of months and weekdays, ranges, steps, 7 for Sunday.
///
/// @return nothing for a text that means nothing there, or not the same in each ("~" is a random value in some).
std::optional<ClassicText> ReadClassic(const std::string& strText);

/// A text that means here, minute by minute, what the other means in a classic crontab.
///
/// @return nothing where no single text does: a classic crontab joins two restricted day fields by OR.
std::optional<std::string> RewriteClassic(const std::string& strText);

/// The pieces between blanks.
std::vector<std::string> SplitWords(const std::string& strText);

/// The last day that a month ever has. @param iMonth  1..12
int LastDayOf(int iMonth);

} // namespace VUKO::VUKOCrond::Ctl
