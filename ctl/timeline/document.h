#pragma once

#include <iosfwd>
#include <string>

#include "ctl/timeline/timeline.h"

namespace VUKO::VUKOCrond::Ctl {

/// Writes a timeline as one JSON document, job by job: as a whole it may be very large.
void PrintTimelineJson(std::ostream& out, const Timeline& timeline, const std::string& strZone);

} // namespace VUKO::VUKOCrond::Ctl
