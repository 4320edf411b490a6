#pragma once

#include <json/json.h>

#include <ostream>

namespace VUKO::VUKOCrond::Ctl {

/// Prints a member of a large document's outermost object, which is never in memory as a whole; a comma follows.
inline void PrintJsonMember(std::ostream& out, const char* szName, const Json::Value& jsValue) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    out << "  \"" << szName << "\": " << Json::writeString(builder, jsValue) << ",\n";
}

/// The same of an array whose items are made one by one, each in a line of its own; no comma follows.
template <typename Items, typename Make>
void PrintJsonArray(std::ostream& out, const char* szName, const Items& items, const Make& make) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    out << "  \"" << szName << "\": [";
    bool bFirst = true;
    for (const auto& item : items) {
        out << (bFirst ? "\n    " : ",\n    ") << Json::writeString(builder, make(item));
        bFirst = false;
    }
    out << (bFirst ? "]" : "\n  ]");
}

} // namespace VUKO::VUKOCrond::Ctl
