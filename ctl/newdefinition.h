#pragma once

#include <json/json.h>

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// A definition in the words of a command line. What was not said is not in the definition.
struct NewDefinition {
    std::string strName;
    std::string strUser;
    std::string strPackageUser;
    std::string strPeriod;  ///< "crontab", "hourly", "daily", "weekly" or "monthly"
    std::string strCrontab; ///< for "crontab"
    int iAssureHours = 0;
    std::string strAssureAction;
    int iTimeout = 0;
    std::string strOverlap;
    std::string strDescription;
    bool bRunOnPassive = false;
    bool bDisabled = false;
    std::vector<std::string> vecCommand;
};

/// The definition; its program with its whole path, see WholePathOf().
Json::Value ToDefinition(const NewDefinition& wanted);

/// The path that is stored for a program: one that is named without a slash is looked for in PATH, as nobody does when
/// the job is started, and one that is relative begins here, where the job does not.
///
/// @throws ToolError where PATH holds none, and where it is a whole command line in one word.
std::string WholePathOf(const std::string& strProgram);

} // namespace VUKO::VUKOCrond::Ctl
