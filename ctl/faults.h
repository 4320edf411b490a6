#pragma once

#include <json/json.h>

#include <vector>

#include "service/definitions/definitionfault.h"
#include "service/definitions/definitionpolicy.h"

namespace VUKO::VUKOCrond::Ctl {

/// All that the library and the service have against a definition, not only the first of it.
///
/// @param origin  where it lies, as far as that bears on the account that it may run as.
std::vector<Service::DefinitionFault> FindFaults(const Json::Value& jsDefinition,
                                                 const Service::DefinitionOrigin& origin);

} // namespace VUKO::VUKOCrond::Ctl
