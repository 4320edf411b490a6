#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "service/core.h"

namespace VUKO::VUKOCrond::Service {

/// Exit statuses of the program.
enum ExitStatus : int { EXIT_ORDERLY = 0, EXIT_FAILED = 1, EXIT_BAD_USAGE = 2 };

struct Options {
    std::string strRoot;         ///< existing folder below which all folders and files lie; empty: none
    bool bCheck = false;         ///< only look at the definitions
    bool bPrintSchedule = false; ///< print what was drawn for each job after loading
    ClockPolicy ePolicy = ClockPolicy::CatchUp;
    OnStop eOnStop = OnStop::Leave;
    std::string strRoleFile;    ///< empty: the usual one
    std::string strMetricsFile; ///< empty: none is written
};

/// Reads the command line.
///
/// @return the status to end with at once, when the options ask for no more than a text (written to `out`) or cannot
///         be understood (the reason written to `err`); nothing when the program is to go on.
std::optional<ExitStatus> ParseOptions(int iCount, const char* const* aArguments, Options& options, std::ostream& out,
                                       std::ostream& err);

} // namespace VUKO::VUKOCrond::Service
