#pragma once

#include <json/json.h>

#include <ctime>
#include <string>

#include "ctl/client.h"

namespace VUKO::VUKOCrond::Ctl {

/// What the functions below need of the service: its status, with the role that has just been set. The service's zone
/// becomes that of this process.
Json::Value AskStatus(Client& client);

/// ", but not ...": what keeps an enabled job for now from starting when its schedule says so; empty: nothing.
std::string ObstacleText(const Json::Value& jsJob, const Json::Value& jsStatus);

/// "next start: 2026-11-23T23:30:00+00:00 (in 2d 17h)", or why there is none; and what keeps the job from it for now.
std::string NextStartText(const Json::Value& jsJob, const Json::Value& jsStatus, std::time_t tNow);

/// The instant as a JSON value; null for none.
Json::Value NextStartJson(const Json::Value& jsJob, const Json::Value& jsStatus, std::time_t tNow);

} // namespace VUKO::VUKOCrond::Ctl
