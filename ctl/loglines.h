#pragma once

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// Tells which lines of the execution log are of a job. They name it by its name alone, and without quotes: where one
/// job's name is the beginning of another's line, the longest name that is known decides.
class LogLines {
public:
    /// @param vecKnown  names of jobs that there are; may hold the job itself.
    LogLines(std::string strName, std::vector<std::string> vecKnown);

    bool IsOfJob(const std::string& strLine) const;
    /// Whether a line tells that something has failed.
    static bool IsFailure(const std::string& strLine);

private:
    std::string _strName;
    std::vector<std::string> _vecKnown;
};

} // namespace VUKO::VUKOCrond::Ctl
