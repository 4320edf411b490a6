#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace VUKO::VUKOCrond::Service {

/// Something in a text that stands in no JSON document.
struct BadForm {
    std::size_t uFrom = 0; ///< its first byte
    const char* szWhat;    ///< in words that begin a sentence; null for what the JSON library finds and names itself
};

/// The first thing in a text that the JSON library lets through although it is no JSON: bytes that are no UTF-8,
/// control characters in strings, escapes that name half a character, comments, numbers such as 01 or 1. (whether the
/// rest is JSON, the library tells).
std::optional<BadForm> FindBadForm(std::string_view strText);

/// Whether there is none.
bool HasStrictForm(std::string_view strText);

} // namespace VUKO::VUKOCrond::Service
