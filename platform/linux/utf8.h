#pragma once

#include <cstddef>
#include <string_view>

namespace VUKO::PLATFORM {

/// @return the length in bytes of the UTF-8 character at the start of the text; 0 when there is none that is valid:
///         nothing overlong, no surrogates, nothing beyond U+10FFFF.
std::size_t Utf8Length(std::string_view strText);

/// @return true when the whole text is UTF-8.
bool IsUtf8(std::string_view strText);

} // namespace VUKO::PLATFORM
