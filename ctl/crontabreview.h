#pragma once

#include <string>
#include <vector>

#include "ctl/warning.h"

namespace VUKO::VUKOCrond::Ctl {

/// What may surprise in a five-field text, be it accepted or not.
std::vector<Warning> LookAtCrontab(const std::string& strCrontab);

} // namespace VUKO::VUKOCrond::Ctl
