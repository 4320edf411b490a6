#pragma once

#include <json/json.h>

#include <ctime>
#include <optional>
#include <string>

#include "ctl/client.h"
#include "ctl/table.h"
#include "service/engine/clockpolicy.h"

namespace VUKO::VUKOCrond::Ctl {

/// Asks for the service's status, and makes its zone that of this process: whatever is shown of its jobs is in it.
Json::Value StatusInItsZone(Client& client);
/// Its present: what is reckoned from now on, is by its clock and policy.
std::time_t NowOf(const Json::Value& jsStatus);
Service::ClockPolicy PolicyOf(const Json::Value& jsStatus);

/// The members of a request that name a job.
Json::Value Naming(const std::string& strJob);

/// When a job of a list starts next by its schedule; nothing when it is disabled, invalid, or nothing comes.
std::optional<std::time_t> NextStartOf(const Json::Value& jsJob, Service::ClockPolicy ePolicy, std::time_t tNow);

/// Its state, and how that looks.
Cell StateCell(const Json::Value& jsJob);
/// How a run ended, of an object that says so in `szKindMember`.
Cell EndCell(const Json::Value& jsEnd, const char* szKindMember);
/// Whether a run ended badly: not by exit status 0.
bool HasFailed(const Json::Value& jsEnd, const char* szKindMember);

} // namespace VUKO::VUKOCrond::Ctl
