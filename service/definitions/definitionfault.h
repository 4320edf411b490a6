#pragma once

#include <json/json.h>

#include <cstddef>
#include <optional>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// A part of a definition: a member, an element of its array, or some bytes of its text.
struct DefinitionPlace {
    std::string strField = {};                    ///< key of the member; empty: the definition as a whole
    std::optional<Json::ArrayIndex> element = {}; ///< counted from 0
    std::size_t uFrom = 0;                        ///< first byte in the member's text
    std::size_t uCount = 0;                       ///< 0: all of it
};

/// What is wrong with a definition, and where.
struct DefinitionFault {
    std::string strReason = {}; ///< in one line that is fit for a log and names the field; empty: nothing is wrong
    DefinitionPlace place = {};

    explicit operator bool() const { return !strReason.empty(); }
};

} // namespace VUKO::VUKOCrond::Service
