#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// What happened in one hour of the day.
struct HourCount {
    std::size_t uStarts = 0;
    std::size_t uSkips = 0;
};

/// Draws a line for each hour, the first being that of midnight: counts, and a bar of starts with one of skips behind
/// it. The widest takes what is left of the terminal, or of 80 columns where there is none; what is counted at all is
/// seen.
void PrintHistogram(std::ostream& out, const std::vector<HourCount>& vecHours);

} // namespace VUKO::VUKOCrond::Ctl
