#pragma once

#include <string>

namespace VUKO::VUKOCrond::Service {

/// What tells this boot of the machine from all others; "unknown" where the kernel does not say.
std::string BootId();

} // namespace VUKO::VUKOCrond::Service
