#pragma once

#include <sys/types.h>

#include <cstdint>

namespace VUKO::VUKOCrond::Service {

/// When a process was started, in clock ticks since boot: with its pid, that names it for good. A process that has
/// ended and was not reaped has it still.
///
/// @return 0 when there is no such process, or it cannot be told.
std::uint64_t StartTimeOf(pid_t pid);

/// Whether the very process runs that was started then: another one of its number does not count, nor does one that
/// has ended and was not reaped.
bool IsRunning(pid_t pid, std::uint64_t uStartTime);

} // namespace VUKO::VUKOCrond::Service
