#pragma once

#include <json/json.h>

#include <string>

namespace VUKO::PLATFORM {

/// How deep arrays and objects may be nested.
constexpr int JSON_DEPTH_MAX = 128;

/// Reads a text that is one JSON document: RFC 8259 to the letter, in UTF-8, no member name twice in an object, no
/// number beyond what a double holds, no deeper than JSON_DEPTH_MAX.
///
/// jsoncpp's own strict reader is not strict enough for definitions that decide what runs as root: it takes leading
/// zeros, a lone "-", "1.", control characters in texts, broken surrogate pairs and a NUL at the end, and it reads
/// numbers by the process's locale ("1.500" as 1500 where the point groups thousands).
///
/// @param value  receives the document; of no use unless the result is true. Its kinds are those that jsoncpp gives: a
///               number without fraction and exponent is an Int, or a UInt or double where it must be.
bool ReadJson(const std::string& strText, Json::Value& value);

} // namespace VUKO::PLATFORM
