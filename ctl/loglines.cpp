#include "ctl/loglines.h"

#include <algorithm>
#include <regex>
#include <utility>

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// What stands before and after a job's name.
constexpr std::pair<const char*, const char*> FORMS[] = {{"running job: ", " with command: "},
                                                         {"Failed to initgroups for", " for user "},
                                                         {"Failed to setgid for", " for user "},
                                                         {"Failed to setuid for", " for user "}};

/// A line without its stamp, which may be missing.
std::string TextOf(const std::string& strLine) {
    static const std::regex stamp(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d )");
    constexpr std::size_t STAMP_LENGTH = 26;
    return std::regex_match(strLine.substr(0, STAMP_LENGTH), stamp) ? strLine.substr(STAMP_LENGTH) : strLine;
}

bool MayBeOf(const std::string& strText, const std::string& strName) {
    return std::any_of(std::begin(FORMS), std::end(FORMS),
                       [&](const auto& form) { return strText.starts_with(form.first + strName + form.second); });
}

} // namespace

LogLines::LogLines(std::string strName, std::vector<std::string> vecKnown)
    : _strName(std::move(strName)), _vecKnown(std::move(vecKnown)) {
    std::erase_if(_vecKnown, [this](const std::string& strOther) { return strOther.size() <= _strName.size(); });
}

bool LogLines::IsOfJob(const std::string& strLine) const {
    const std::string strText = TextOf(strLine);
    return MayBeOf(strText, _strName) &&
           std::none_of(_vecKnown.begin(), _vecKnown.end(),
                        [&strText](const std::string& strOther) { return MayBeOf(strText, strOther); });
}

bool LogLines::IsFailure(const std::string& strLine) {
    const std::string strText = TextOf(strLine);
    return strText.starts_with("Failed to ") || strText.find(" failed, return code: ") != std::string::npos;
}

} // namespace VUKO::VUKOCrond::Ctl
