#pragma once

#include <string>
#include <string_view>

namespace VUKO::VUKOCrond::Service {

/// Whether a text that is printed as it is could do more than be read there. NUL is such a character; letters beyond
/// ASCII are not.
bool HoldsControlCharacter(std::string_view strText);

/// A stranger's text as it may stand in a log line: whatever is not printable ASCII becomes \xNN, so that it can
/// neither begin a line of its own nor move a terminal's cursor.
std::string Escaped(std::string_view strText);

/// The same in double quotes, with a quote or backslash in it escaped, cut after `uMax` bytes (three dots then follow
/// the closing quote).
std::string Quoted(std::string_view strText, std::size_t uMax = 60);

} // namespace VUKO::VUKOCrond::Service
