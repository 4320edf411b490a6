#pragma once

#include <cstdint>

namespace VUKO::VUKOCrond::Service {

/// Microseconds of a clock that only runs while the machine does, and that nobody sets.
std::int64_t MonotonicUsec();

/// Microseconds since the epoch.
std::int64_t RealtimeUsec();

/// Seconds since the machine was booted, asleep or not.
std::int64_t UptimeSec();

} // namespace VUKO::VUKOCrond::Service
