#pragma once

#include <string>

namespace VUKO::PLATFORM {

/// Sends a signal to the process that holds the PID file /var/run/`strService`.pid.
///
/// The holder is told by its write lock (fcntl(2), over any part of the file), never by the file's text, so a file that
/// a dead service left behind names nobody. The file must be a regular file that only root (or this process's own
/// user) could write, and the holder must be a program of the service's name; the kernel cuts that to 15 characters.
///
/// @return 0, or the errno value of the failure: ESRCH when nobody of that name holds the file.
int SignalHolderOfPidFile(const std::string& strService, int iSignal);

} // namespace VUKO::PLATFORM
