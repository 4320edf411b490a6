#pragma once

#include <cstddef>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// Why a text is no JSON document.
struct JsonFault {
    std::string strText;     ///< fit for a log line; never empty
    std::size_t uLine = 0;   ///< counted from 1; 0: not known
    std::size_t uColumn = 0; ///< in bytes, counted from 1
};

/// The first fault of a text that is no JSON document, as far as the JSON library can tell.
JsonFault FindJsonFault(const std::string& strText);

/// Why a text is no JSON document, for the person who wrote it: the line and column of the first fault and what was
/// expected there, as far as the JSON library can tell.
///
/// @return the reason, fit for a log line; never empty.
std::string WhyNotJson(const std::string& strText);

/// The same for a file, of which the first part is looked at when it is large.
std::string WhyFileIsNotJson(const std::string& strPath);

} // namespace VUKO::VUKOCrond::Service
