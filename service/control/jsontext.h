#pragma once

#include <string_view>

namespace VUKO::VUKOCrond::Service {

/// Whether a text is free of what the JSON library lets through although it is no JSON: bytes that are no UTF-8,
/// control characters in strings, escapes that name half a character, numbers such as 01 or 1. (whether the rest is
/// JSON, the library tells).
bool HasStrictForm(std::string_view strText);

} // namespace VUKO::VUKOCrond::Service
