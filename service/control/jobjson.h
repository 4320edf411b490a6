#pragma once

#include <json/json.h>

#include "service/engine/job.h"
#include "service/engine/outcome.h"
#include "service/launch/surroundings.h"

namespace VUKO::VUKOCrond::Service {

/// A job as the control socket shows it.
Json::Value JobToJson(const Job& job);
/// The same without texts that are too long for a list: each job has room in a page, so that none hides those behind.
Json::Value JobToJsonInList(const Job& job);
/// The same with its definition.
Json::Value JobToJsonWhole(const Job& job);
/// What its program would find around it.
Json::Value SurroundingsToJson(const Surroundings& surroundings);
/// An entry of the ledger.
Json::Value OutcomeToJson(const Outcome& outcome);
Json::Value EndToJson(const RunEnd& end);

/// "waiting", "running", "pending", "disabled" or "invalid".
const char* StateOf(const Job& job);

} // namespace VUKO::VUKOCrond::Service
