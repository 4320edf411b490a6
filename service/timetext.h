#pragma once

#include <cstdint>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// An instant in local time with its offset, "2026-11-20T03:00:00+02:00"; "@EPOCH" where it cannot be converted.
///
/// @param iEpoch  seconds since the epoch.
std::string TimeText(std::int64_t iEpoch);

} // namespace VUKO::VUKOCrond::Service
