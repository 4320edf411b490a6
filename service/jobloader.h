#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "service/definitions/definitionscan.h"
#include "service/engine/jobtable.h"
#include "service/state/statestore.h"

namespace VUKO::VUKOCrond::Service {

/// What loading has changed.
struct LoadReport {
    std::size_t uJobs = 0;    ///< jobs there are now, those not counted whose file is refused
    std::size_t uKept = 0;    ///< of these: the same definition as before, and everything else with it
    std::size_t uChanged = 0; ///< another definition under the same identity
    std::size_t uNew = 0;
    std::size_t uGone = 0;    ///< were there before
    std::size_t uInvalid = 0; ///< known jobs whose file holds something that is refused now
    std::vector<Refusal> vecRefusals;

    bool HasChanged() const { return uChanged != 0 || uNew != 0 || uGone != 0; }
};

/// What is kept of jobs that are not in the table: known from a former life of the service, or gone for now.
using KnownJobs = std::map<JobId, StoredJob>;

struct LoadResult {
    LoadReport report;
    std::vector<Job> vecJobs;
    std::vector<StoredJob> vecGone; ///< of the former jobs
    std::vector<JobId> vecToStore;  ///< jobs of which something has changed that is kept
};

/// Makes the jobs of a scan out of it and of what there was. A pure function: what it gives depends on the definitions
/// and on what is kept of each job, never on the way there.
///
/// A job whose definition says the same as before keeps everything. One that is new, or says something else, keeps what
/// is kept of it, the values of each field that reads as before among that; the other values are taken from the
/// template where one fits, or drawn. Of two definitions with one identity the first holds. A known job whose file
/// holds something that is refused stays known, and invalid.
///
/// @param former     the jobs until now; their running and pending launches go over.
/// @param mapKnown   what else is known.
/// @param iNow       seconds since the epoch, "startup" of what is new.
LoadResult LoadJobs(DefinitionScan scan, const JobTable& former, const KnownJobs& mapKnown,
                    const ScheduleTemplate& scheduleTemplate, std::int64_t iNow);

/// What is kept of a job.
StoredJob ToStored(const Job& job);

/// Draws the random values of a job anew, each on its own. @return its values then, as ScheduleToText() has them.
std::string Rerolled(const Job& job);

} // namespace VUKO::VUKOCrond::Service
