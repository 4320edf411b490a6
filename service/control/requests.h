#pragma once

#include <functional>

#include "service/control/server.h"
#include "service/core.h"

namespace VUKO::VUKOCrond::Service {

/// Answers the requests at the control socket out of the core; docs/CONTROL.md lists the verbs. Root sees and does
/// everything, an account sees and starts the jobs that run as itself.
///
/// @param core    outlives the handler.
/// @param reload  reads the definitions again.
ControlServer::Handler MakeRequestHandler(Core& core, std::function<void()> reload);

} // namespace VUKO::VUKOCrond::Service
