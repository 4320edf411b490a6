#pragma once

#include <functional>

#include "service/core.h"

namespace VUKO::VUKOCrond::Service {

/// A start on its way from the decision to the launch.
struct Core::Planned {
    JobIndex uJob = 0;
    Account account;
    Outcome outcome;
    std::function<void(const RunEnd&)> onEnd;
    bool bIsRetry = false; ///< its entry stands in the ledger already
};

} // namespace VUKO::VUKOCrond::Service
