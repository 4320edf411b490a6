#pragma once

#include <cstdint>

#include "service/core.h"
#include "service/metrics.h"

namespace VUKO::VUKOCrond::Service {

/// The figures of the service at this moment.
///
/// @param iStarted  when it was started, seconds since the epoch.
MetricsSnapshot TakeMetrics(Core& core, std::int64_t iStarted);

} // namespace VUKO::VUKOCrond::Service
