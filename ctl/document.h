#pragma once

#include <json/json.h>

#include <cstddef>
#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// A JSON document and the text that it was read from.
struct Document {
    std::string strText;
    Json::Value jsValue;       ///< its parts know where they stand in the text
    std::string strReason;     ///< why there is no document, fit for people; empty when there is one
    bool bDenied = false;      ///< because one may not read the file
    std::string strBareReason; ///< the same without line and column
    std::size_t uLine = 0;     ///< of the fault in a text that is no JSON, counted from 1; 0: not known
    std::size_t uByteColumn = 0;
};

/// Reads a file, "-" for standard input. It may be a pipe, too.
Document ReadDocument(const std::string& strFile);

} // namespace VUKO::VUKOCrond::Ctl
