#pragma once

#include <string_view>

namespace VUKO::PLATFORM {

/// Whether the strings and numbers of a text are those of RFC 8259, down to the letter. How they are put together is
/// not looked at: this is the part of the grammar that jsoncpp's strict reader is lax about. It takes leading zeros,
/// "1.", "+1" and a lone "-", control characters in strings, halves of surrogate pairs, comments between members and
/// behind values, and a NUL behind the document.
bool HasStrictJsonTokens(std::string_view strText);

} // namespace VUKO::PLATFORM
