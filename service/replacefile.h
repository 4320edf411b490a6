#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace VUKO::VUKOCrond::Service {

/// Whether a file is to be on the disk, or may be lost with the machine as long as it is whole.
enum class Durability { Written, Synced };

/// Puts a file with this text and mode, and the service as its owner, at a path, in one step: a reader sees the old
/// file or the new one. The temporary file lies in the same folder, and its name (".vuko-NUMBER.tmp") is none that a
/// reader of that folder would take for one of its own. A symbolic link at the path is replaced; a folder, pipe, socket
/// or device is not.
///
/// @return the reason why that failed, fit for a log line, and then all is as it was; empty when done.
std::string ReplaceFile(const std::string& strPath, std::string_view strText, mode_t uMode, Durability eDurability);

} // namespace VUKO::VUKOCrond::Service
