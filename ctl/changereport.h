#pragma once

#include <json/json.h>

#include <optional>
#include <string>
#include <vector>

#include "ctl/common.h"
#include "ctl/definitionfiles.h"
#include "ctl/serviceview.h"

namespace VUKO::VUKOCrond::Ctl {

/// One job whose definition was changed, and stored.
struct ChangedJob {
    /// "added", "replaced", "changed", "enabled", "disabled", "removed", or "unchanged" where it was so already
    const char* szChange;
    Service::JobId id;
    FileName file;
    std::optional<Json::Value> before; ///< the definition before; nothing: there was none
    std::optional<Json::Value> after;
    std::string strNote = {}; ///< what else is to be told
};

/// Tells what the service has made of it, waiting for it where it runs: the next starts, or why there are none.
///
/// @return EXIT_WRONG where the service does not take something.
ExitStatus TellChanges(ServiceView& service, const std::vector<ChangedJob>& vecJobs, const Common& common);

} // namespace VUKO::VUKOCrond::Ctl
