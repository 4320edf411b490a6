#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// A bar of a row of them.
struct Bar {
    std::int64_t iValue = 0;
    bool bBad = false; ///< marked: coloured, or where there are no colours below by "!"
};

/// A row of bars, from nothing to the largest value, one column each, with a line of marks below where bad ones cannot
/// be coloured (after a line feed, and `uIndent` blanks). Block characters where the locale has them, else digits from
/// 0 to 9.
std::string Sparkline(const std::vector<Bar>& vecBars, std::size_t uIndent);

} // namespace VUKO::VUKOCrond::Ctl
