#pragma once

#include <string>
#include <vector>

#include "ctl/import/item.h"
#include "ctl/import/unitfile.h"

namespace VUKO::VUKOCrond::Ctl {

/// What the timers of some folders become: jobs that start the timer's unit, so that all that the unit says still
/// holds.
///
/// @param vecNames  the timers asked for, with or without ".timer"; none: all that are wanted at boot, of which those
///                  without a calendar are passed over.
/// @throws ToolError for one that is asked for and not there.
ImportItems ConvertTimers(const UnitFolders& folders, const std::vector<std::string>& vecNames);

} // namespace VUKO::VUKOCrond::Ctl
