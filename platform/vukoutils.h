#pragma once

/// Text helpers.

#include <string>
#include <vector>

#include "base/export.h"

namespace VUKOUtils {

/// Splits a text at every character that stands in `delimiters` and appends the pieces, in order, to `out`. Empty
/// pieces are dropped: "1,,2," gives "1" and "2", and a text of delimiters alone gives nothing.
///
/// @param out         receives the pieces; what it holds already stays.
/// @param text        may hold NUL bytes; they are ordinary characters.
/// @param delimiters  NUL-terminated; without any the whole text is one piece.
VUKO_API void StringExplode(std::vector<std::string>& out, const std::string& text, const char* delimiters);

} // namespace VUKOUtils
