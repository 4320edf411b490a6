#pragma once

#include "service/job.h"

namespace VUKO::VUKOCrond::Service {

/// Starts a job that is ready, at once and without waiting for it. The caller reaps.
///
/// A child that could not be prepared ends here with status 1; it never comes back to the caller.
///
/// @return false when no child could be made (the library has logged it): the job is ready still, for a later try.
bool Launch(ScheduledJob& job);

} // namespace VUKO::VUKOCrond::Service
