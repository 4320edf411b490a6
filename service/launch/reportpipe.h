#pragma once

#include <vector>

#include "service/launch/launcher.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

/// The pipe on which the processes of launches tell the service what becomes of them. Neither side ever waits.
class ReportPipe {
public:
    /// @throws std::system_error
    ReportPipe();

    int ReadEnd() const { return _fdRead.Get(); }
    int WriteEnd() const { return _fdWrite.Get(); }

    /// What has been written since the last call.
    std::vector<RunReport> Read();

    /// Writes one report, whole, to a pipe's end. @return false when it cannot be: the pipe is full, or nobody reads.
    static bool Write(int iWriteEnd, const RunReport& report);

private:
    UniqueFd _fdRead;
    UniqueFd _fdWrite;
};

} // namespace VUKO::VUKOCrond::Service
