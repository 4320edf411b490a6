#pragma once

#include <json/json.h>

#include <optional>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// Something that is accepted, or nearly, and means something else than whoever wrote it may think.
struct Warning {
    std::string strCode;  ///< stable, for programs
    std::string strField; ///< key of the definition's member
    std::string strText;
    std::optional<std::string> rewrite; ///< a five-field text that says here what the other says in a classic crontab
};

struct Review {
    std::vector<std::string> vecErrors; ///< why it is refused
    std::vector<Warning> vecWarnings;
};

/// Looks at a five-field text.
Review ReviewCrontab(const std::string& strCrontab);

/// Looks at a definition: all that the library and the service have against it, and what may surprise.
Review ReviewDefinition(const Json::Value& jsDefinition);

/// "errors" and "warnings", as the machine interface has them.
void PutReview(Json::Value& jsResult, const Review& review);

/// What five fields mean here, in words. @param strCrontab  one that is accepted.
std::string MeaningOf(const std::string& strCrontab);

} // namespace VUKO::VUKOCrond::Ctl
