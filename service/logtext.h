#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace VUKO::VUKOCrond::Service {

/// Whether a text that is printed as it is could do more than be read there: NUL and the other control characters of
/// ASCII and of Unicode, bytes that are no UTF-8, line and paragraph separators, and the marks that turn the direction
/// of what follows (they let a line show something else than it says). Letters beyond ASCII are no such characters.
bool HoldsControlCharacter(std::string_view strText);

/// The characters (code points) of a UTF-8 text; a byte that is no part of one counts for one.
std::size_t CountCharacters(std::string_view strText);

/// A stranger's text as it may stand in a log line: whatever is not printable ASCII becomes \xNN, so that it can
/// neither begin a line of its own nor move a terminal's cursor.
std::string Escaped(std::string_view strText);

/// The same in double quotes, with a quote or backslash in it escaped, cut after `uMax` bytes (three dots then follow
/// the closing quote).
std::string Quoted(std::string_view strText, std::size_t uMax = 60);

} // namespace VUKO::VUKOCrond::Service
