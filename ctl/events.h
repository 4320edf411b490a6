#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "service/engine/simulator.h"

namespace VUKO::VUKOCrond::Ctl {

/// Reads an events file of a simulation: lines "TIME clock +SECONDS", "TIME clock -SECONDS", "TIME down SECONDS",
/// "TIME hibernate SECONDS", "TIME passive", "TIME active"; empty lines and what follows "#" do not count. "-" is
/// standard input. No event may lie before an instant.
///
/// @return the events by their times. @throws ToolError that names the line.
std::vector<Service::SimEvent> ReadEvents(const std::string& strFile, std::time_t tFrom);

} // namespace VUKO::VUKOCrond::Ctl
