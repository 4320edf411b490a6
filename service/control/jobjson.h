#pragma once

#include <json/json.h>

#include "service/engine/job.h"
#include "service/engine/outcome.h"

namespace VUKO::VUKOCrond::Service {

/// A job as the control socket shows it in a list.
Json::Value JobToJson(const Job& job);
/// The same with its definition.
Json::Value JobToJsonWhole(const Job& job);
/// An entry of the ledger.
Json::Value OutcomeToJson(const Outcome& outcome);
Json::Value EndToJson(const RunEnd& end);

/// "waiting", "running", "pending", "disabled" or "invalid".
const char* StateOf(const Job& job);

} // namespace VUKO::VUKOCrond::Service
