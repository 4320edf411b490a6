#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_dir.h"

namespace docs {

/// The fenced block that follows a text in a document of the repository.
inline std::string BlockAfter(const std::string& strDocument, const std::string& strText) {
    const std::string strAll = support::ReadFile(std::string(VUKO_SOURCE_DIR) + "/" + strDocument);
    const std::size_t uText = strAll.find(strText);
    const std::size_t uFence = uText == std::string::npos ? uText : strAll.find("```", uText);
    const std::size_t uBegin = uFence == std::string::npos ? uFence : strAll.find('\n', uFence);
    const std::size_t uEnd = uBegin == std::string::npos ? uBegin : strAll.find("```", uBegin);
    if (uEnd == std::string::npos) {
        ADD_FAILURE() << strDocument << " has no block after: " << strText;
        return std::string();
    }
    return strAll.substr(uBegin + 1, uEnd - uBegin - 1);
}

} // namespace docs
