#pragma once

#include <stdexcept>
#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// Exit statuses of the tool; scripts rely on them.
enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_WRONG = 1, ///< the thing asked about is wrong or absent
    EXIT_BAD_USAGE = 2,
    EXIT_UNREACHABLE = 3, ///< the service could not be reached
    EXIT_DENIED = 4
};

/// Ends the tool with a message for people and a status for scripts.
class ToolError : public std::runtime_error {
public:
    ToolError(ExitStatus eStatus, const std::string& strMessage) : std::runtime_error(strMessage), _eStatus(eStatus) {}

    ExitStatus Status() const { return _eStatus; }

private:
    ExitStatus _eStatus;
};

} // namespace VUKO::VUKOCrond::Ctl
