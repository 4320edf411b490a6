#pragma once

#include <json/json.h>

#include <functional>
#include <string>
#include <vector>

#include "ctl/toolerror.h"

namespace VUKO::VUKOCrond::Ctl {

/// What every command may need of the command line.
struct Common {
    std::string strRoot; ///< canonical; empty: none
    bool bJson = false;
    bool bNoPager = false;
    std::vector<std::string> vecCommand; ///< what stands behind "--", for `add`
    std::function<ExitStatus()> run;     ///< what the command that was chosen does
};

/// Prints one JSON document.
void PrintJson(const Json::Value& jsValue);

} // namespace VUKO::VUKOCrond::Ctl
