#pragma once

#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// Seconds of a span of time of systemd ("1h 30min", "90", "1.5d"). @return less than 0 for what is none.
double ReadTimeSpan(const std::string& strSpan);

} // namespace VUKO::VUKOCrond::Ctl
