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

/// A start that will not be made any more. Its launch is over before it began: it is not to be looked for as one that
/// goes on.
inline void GiveUp(Outcome& outcome, SkipReason eReason) {
    outcome.eKind = OutcomeKind::Skipped;
    outcome.eReason = eReason;
    outcome.end.eKind = outcome.uRun != 0 ? EndKind::NotStarted : EndKind::Open;
}

} // namespace VUKO::VUKOCrond::Service
