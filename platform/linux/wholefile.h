#pragma once

#include <cstddef>
#include <string>

namespace VUKO::PLATFORM {

/// Reads a regular file of at most `uLimit` bytes. Opening never blocks.
///
/// @return 0, or the errno value of the failure: EFBIG for a larger file, also one that grows meanwhile; EISDIR for a
///         folder, EINVAL for anything else that is no regular file; `strText` then holds nothing of use.
int ReadWholeFile(const std::string& strPath, std::size_t uLimit, std::string& strText);

} // namespace VUKO::PLATFORM
