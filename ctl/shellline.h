#pragma once

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// A command line as a POSIX shell would part it, up to the cursor.
struct ShellLine {
    std::vector<std::string> vecWords; ///< without their quotes; the last one is the word at the cursor, maybe empty
    std::string strLastRaw;            ///< the last one as it is written
    char cOpenQuote = '\0';            ///< the quote that is open at the cursor
};

/// Nothing is expanded: what stands in a line is only read.
ShellLine ReadShellLine(const std::string& strLine);

/// A text as it has to be written at the cursor. @param cOpenQuote  as above
std::string QuotedForShell(const std::string& strText, char cOpenQuote);

} // namespace VUKO::VUKOCrond::Ctl
