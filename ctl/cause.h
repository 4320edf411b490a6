#pragma once

#include <json/json.h>

#include <ctime>
#include <string>

#include "service/engine/clockpolicy.h"

namespace VUKO::VUKOCrond::Ctl {

/// A minute of a job, and all that is known of it.
struct AskedMinute {
    Json::Value jsJob;             ///< as "show" tells it
    Json::Value jsOutcomes;        ///< its ledger, newest first
    Json::Value jsOutcome;         ///< the entry of that minute; null: there is none
    std::int64_t iLocalMinute = 0; ///< on the wall clock
    std::time_t tInstant = 0;      ///< an instant of it
    std::time_t tNow = 0;
    std::string strTime;   ///< as people read it
    bool bMatches = false; ///< whether its present values hold it
    Service::ClockPolicy ePolicy = Service::ClockPolicy::CatchUp;
};

/// Why the job ran or did not run at that minute: one sentence with its cause. Times are of the zone that is in use.
std::string CauseSentence(const AskedMinute& asked);

} // namespace VUKO::VUKOCrond::Ctl
