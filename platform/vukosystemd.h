#pragma once

/// The service manager.

#include <string>

#include "base/export.h"

/// Asks for a reload of a service and does not wait for the service.
///
/// Where systemd runs as the first process, the unit `service`.service is reloaded through systemd's own D-Bus
/// interface: the request is queued and its job is not waited for (a reload that waits would block during a
/// shutdown). A unit that does not run, or not yet, cannot be reloaded (ESRCH). Elsewhere SIGHUP goes to the process
/// that holds the service's PID file, /var/run/`service`.pid, by a lock on it; a stale file, a process of another name,
/// or a file that others than root could have written reach nobody.
///
/// @param service  the service's name without a suffix; a name with a '/' is refused.
/// @return true when the request was made; false when not: the reason is the last platform error. Never waits longer
///         than a few seconds.
VUKO_API bool VUKOSystemdReload(const std::string& service);
