#pragma once

#include <json/json.h>

#include <vector>

#include "ctl/warning.h"

namespace VUKO::VUKOCrond::Ctl {

/// A member that nobody reads; it is the key that is concerned.
constexpr const char* CODE_UNKNOWN_MEMBER = "unknown-member";

/// What may surprise in a definition, as far as its members are of the right kind.
///
/// @param jsDefinition  an object.
std::vector<Warning> LookAtDefinition(const Json::Value& jsDefinition);

} // namespace VUKO::VUKOCrond::Ctl
