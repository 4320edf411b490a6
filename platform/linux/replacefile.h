#pragma once

#include <string>

namespace VUKO::PLATFORM {

/// Puts a file with this text at a path, in one step: through a temporary file in the same folder (hidden, mode 0600
/// until it is whole), synced and renamed. A regular file that is replaced hands its owner, group and mode on; a
/// symbolic link is replaced itself; a folder, pipe, socket or device is not.
///
/// @param bDurable  sync the folder too.
/// @return whether that is done; if not, errno and the last platform error tell the step that failed, and no temporary
///         file is left.
bool ReplaceFile(const std::string& strPath, const std::string& strText, bool bDurable);

} // namespace VUKO::PLATFORM
