#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace VUKO::VUKOCrond::Ctl {

/// So much of a text is read: more than the platform takes of a document, or any cron of a crontab.
constexpr std::size_t TEXT_SIZE_MAX = std::size_t{5} << 20;

/// Reads a file that a person named, "-" for standard input, or the beginning of it that is TEXT_SIZE_MAX long or some
/// more. It may be a pipe, or a device without an end.
///
/// @return 0, or the errno value of the failure.
int ReadTextFile(const std::string& strFile, std::string& strText);

/// Writes a text to a file that a person named, "-" for standard output. A file that is there is replaced in one step:
/// whoever reads it sees the old one or the new one. A symbolic link, device or folder is not replaced.
///
/// @throws ToolError that says why not; then all is as it was.
void WriteTextFile(const std::string& strFile, std::string_view strText);

} // namespace VUKO::VUKOCrond::Ctl
