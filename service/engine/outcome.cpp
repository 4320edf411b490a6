#include "service/engine/outcome.h"

namespace VUKO::VUKOCrond::Service {

const char* ToText(OutcomeKind eKind) {
    switch (eKind) {
    case OutcomeKind::Started:
        return "started";
    case OutcomeKind::MadeUp:
        return "made-up";
    case OutcomeKind::Delayed:
        return "delayed";
    case OutcomeKind::Skipped:
        break;
    }
    return "skipped";
}

const char* ToText(SkipReason eReason) {
    switch (eReason) {
    case SkipReason::None:
        break;
    case SkipReason::Disabled:
        return "disabled";
    case SkipReason::Passive:
        return "passive";
    case SkipReason::Hibernating:
        return "hibernating";
    case SkipReason::Overlap:
        return "overlap";
    case SkipReason::ClockStep:
        return "clock step";
    case SkipReason::ServiceDown:
        return "service down";
    case SkipReason::ForkFailed:
        return "fork failed";
    case SkipReason::AccountUnknown:
        return "account unknown";
    case SkipReason::DefinitionInvalid:
        return "definition invalid";
    case SkipReason::Stopping:
        return "stopping";
    case SkipReason::IdentityRefused:
        return "identity refused";
    }
    return "";
}

const char* ToText(EndKind eKind) {
    switch (eKind) {
    case EndKind::Open:
        return "running";
    case EndKind::Exited:
        return "exited";
    case EndKind::Signaled:
        return "signaled";
    case EndKind::NotStarted:
        return "not-started";
    case EndKind::Lost:
        break;
    }
    return "lost";
}

} // namespace VUKO::VUKOCrond::Service
