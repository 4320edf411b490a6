#pragma once

#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// What five fields mean here, in words; empty for a text that is refused.
std::string MeaningOf(const std::string& strCrontab);

} // namespace VUKO::VUKOCrond::Ctl
