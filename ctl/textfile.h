#pragma once

#include <string>
#include <string_view>

namespace VUKO::VUKOCrond::Ctl {

/// Writes a text to a file that a person named, "-" for standard output. A file that is there is replaced in one step:
/// whoever reads it sees the old one or the new one. A symbolic link, device or folder is not replaced.
///
/// @throws ToolError that says why not; then all is as it was.
void WriteTextFile(const std::string& strFile, std::string_view strText);

} // namespace VUKO::VUKOCrond::Ctl
