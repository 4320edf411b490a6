#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

#include "ctl/timeline/timeline.h"

namespace VUKO::VUKOCrond::Ctl {

/// What a chart is drawn for.
struct ChartLook {
    std::size_t uWidth = 80; ///< columns of the terminal
    bool bUtf8 = false;      ///< characters beyond ASCII may be used; names of jobs have theirs replaced else
    std::string strZone;     ///< name of the zone, to be told
};

/// Draws a timeline in characters: a scale of hours, a row for each job, a row for the load, a legend, and a list of
/// the collisions. Styles are those of ctl/terminal.h.
void PrintChart(std::ostream& out, const Timeline& timeline, const ChartLook& look);

} // namespace VUKO::VUKOCrond::Ctl
