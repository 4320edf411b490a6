#pragma once

namespace VUKO::VUKOCrond {

/// The name under which every room of the job record logs; administrators grep for "cronjob:NUMBER".
inline constexpr const char* szLogSource = "cronjob";

} // namespace VUKO::VUKOCrond
