#pragma once

#include <cstddef>

namespace VUKO::VUKOCrond::Service {

/// Reaps every child that has ended, those included that the service did not start: as the first process of a
/// container it is given other processes' children. Does not wait.
///
/// A child that ended by a signal or with another status than 0 is logged: a job's child ends with 0 whatever its
/// program did, so this one did not get that far.
///
/// @return how many were reaped.
std::size_t ReapChildren();

} // namespace VUKO::VUKOCrond::Service
