#pragma once

#include <vector>

#include "ctl/import/item.h"
#include "ctl/import/plan.h"
#include "ctl/place.h"
#include "ctl/serviceview.h"

namespace VUKO::VUKOCrond::Ctl {

/// Code of the note that the service has something against one of the jobs.
constexpr const char* NOT_TAKEN = "not-taken";

/// What has come of an import that was stored: which of its jobs starts first, or why the service does not know them.
/// The service has its moment to see them before.
Note EffectOf(const std::vector<PlannedItem>& vecItems, const Place& place, ServiceView& service);

} // namespace VUKO::VUKOCrond::Ctl
