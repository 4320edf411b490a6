#pragma once

#include <json/json.h>

#include "ctl/sheet.h"

namespace VUKO::VUKOCrond::Ctl {

/// Adds what a job's program will find around it: the "effective" of the service. @param strAccount  for where there is
/// none: the account is not there.
void AddSurroundings(Sheet& sheet, const Json::Value& jsEffective, const std::string& strAccount);

} // namespace VUKO::VUKOCrond::Ctl
