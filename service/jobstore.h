#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "service/definitions/definitionscan.h"
#include "service/job.h"

namespace VUKO::VUKOCrond::Service {

/// What loading has changed.
struct LoadReport {
    std::size_t uJobs = 0;    ///< jobs there are now
    std::size_t uKept = 0;    ///< of these: the same definition as before, and everything else with it
    std::size_t uChanged = 0; ///< another definition under the same identity
    std::size_t uNew = 0;
    std::size_t uGone = 0;                ///< were there before
    std::vector<std::string> vecRefusals; ///< one line each, fit for a log
};

/// The jobs that the service knows.
class JobStore {
public:
    /// Makes the jobs those of a scan. A job whose definition is as before keeps its schedule, its stamps and its
    /// pending start; one whose definition has changed keeps "startup", "lastExecution" and the schedule of each field
    /// whose ranges are as before. Of two definitions with one identity the first holds.
    ///
    /// Logs nothing of its own.
    LoadReport Load(DefinitionScan scan);

    JobMap& Jobs() { return _mapJobs; }
    const JobMap& Jobs() const { return _mapJobs; }

private:
    JobMap _mapJobs;
};

} // namespace VUKO::VUKOCrond::Service
