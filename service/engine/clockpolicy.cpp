#include "service/engine/clockpolicy.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// Up to here the tick itself was late: no clock moved.
constexpr std::int64_t MAX_LATE = 5;
/// Up to here the clock was moved for a reason that wants its minutes made up for: daylight saving time, a zone, a
/// correction. Beyond, it was set.
constexpr std::int64_t MAX_STEP = 180;

} // namespace

const char* ToText(ClockPolicy ePolicy) {
    return ePolicy == ClockPolicy::Literal ? "literal" : "catchup";
}

std::optional<ClockPolicy> ClockPolicyOf(std::string_view strText) {
    for (const ClockPolicy ePolicy : {ClockPolicy::CatchUp, ClockPolicy::Literal}) {
        if (strText == ToText(ePolicy)) {
            return ePolicy;
        }
    }
    return std::nullopt;
}

TickWindow WindowOf(ClockPolicy ePolicy, std::int64_t iWorkedUpTo, std::int64_t iNow) {
    TickWindow window;
    window.iNow = iNow;
    window.iOldest = iNow;
    window.iWorkedUpTo = iNow;
    if (ePolicy == ClockPolicy::Literal) {
        return window;
    }
    const std::int64_t iPassed = iNow - iWorkedUpTo;
    if (-MAX_STEP <= iPassed && iPassed <= 0) {
        window.bFixedDueNow = false;
        window.iWorkedUpTo = iWorkedUpTo;
    } else if (1 < iPassed && iPassed <= MAX_STEP) {
        window.iOldest = iWorkedUpTo + 1;
        window.bWildcardLooksBack = iPassed <= MAX_LATE;
    }
    return window;
}

} // namespace VUKO::VUKOCrond::Service
