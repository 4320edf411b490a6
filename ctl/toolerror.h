#pragma once

#include <stdexcept>
#include <string>
#include <utility>

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
    /// @param strCode  the service's error code, where the error is one of its replies.
    ToolError(ExitStatus eStatus, const std::string& strMessage, std::string strCode = std::string())
        : std::runtime_error(strMessage), _eStatus(eStatus), _strCode(std::move(strCode)) {}

    ExitStatus Status() const { return _eStatus; }
    const std::string& Code() const { return _strCode; }

private:
    ExitStatus _eStatus;
    std::string _strCode;
};

} // namespace VUKO::VUKOCrond::Ctl
