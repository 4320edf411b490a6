#pragma once

#include <json/json.h>

#include <string>

namespace VUKO::PLATFORM {

/// How deep arrays and objects may be nested.
constexpr int JSON_DEPTH_MAX = 128;

/// Reads a text that is one JSON document, with jsoncpp's reader at its strictest: no comments, no trailing commas, no
/// member name twice in an object, nothing behind the document. Beyond what jsoncpp looks at, the text has to be UTF-8,
/// and its strings and numbers those of RFC 8259. What is left to jsoncpp and the process's locale (std::locale) is how
/// it reads numbers with a fraction or an exponent.
///
/// @param value  receives the document; of no use unless the result is true.
/// @throws what jsoncpp throws for a document that is nested too deep.
bool ReadJson(const std::string& strText, Json::Value& value);

} // namespace VUKO::PLATFORM
