#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Service {

/// A child that has ended.
struct ReapedChild {
    pid_t pid = 0;
    int iStatus = 0; ///< as waitpid() gives it

    bool operator==(const ReapedChild&) const = default;
};

/// Reaps every child that has ended, those included that the service did not start: as the first process of a
/// container it is given other processes' children. Does not wait.
std::vector<ReapedChild> ReapChildren();

/// Logs the end of a child that ended by a signal or with another status than 0: a job's child ends with 0 whatever its
/// program did, so this one did not get that far.
///
/// @param strJob  the job that it was the child of, fit for a log line; empty for a child of nobody's.
void LogEnd(const ReapedChild& child, const std::string& strJob);

} // namespace VUKO::VUKOCrond::Service
