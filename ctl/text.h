#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// Whether the locale's characters are UTF-8, so that block characters and an ellipsis may be shown.
bool SpeaksUtf8();

/// A text that was written by anybody, as it may stand on a terminal: whatever could do more than be read there
/// (control characters, marks that turn the direction, bytes that are no UTF-8) becomes \xNN. Letters of all scripts
/// stay.
std::string Readable(const std::string& strText);
/// An identity that the service has told, which does so in ASCII: with the letters themselves instead of their escapes.
/// What would not be Readable() stays escaped.
std::string Spelled(const std::string& strIdentity);
/// The same as Readable(), line by line: line feeds stay.
std::string ReadableLines(const std::string& strText);

/// The columns of a terminal that a readable text takes: two for wide characters, none for combining ones.
std::size_t WidthOf(const std::string& strText);

/// A readable text in pieces of at most so many columns (of one at least), parted at blanks where there are any.
std::vector<std::string> Wrapped(const std::string& strText, std::size_t uWidth);

/// A readable text that takes no more columns than given, its end replaced by an ellipsis where it would.
std::string CutTo(const std::string& strText, std::size_t uWidth);
/// The same with the ellipsis after the first third.
std::string CutMiddle(const std::string& strText, std::size_t uWidth);

} // namespace VUKO::VUKOCrond::Ctl
