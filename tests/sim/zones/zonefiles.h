#pragma once

#include <ctime>
#include <string>
#include <vector>

namespace sim {

/// A change of a zone's offset from UTC.
struct Transition {
    std::time_t tInstant = 0; ///< the first second of the new offset
    long iBefore = 0;         ///< seconds
    long iAfter = 0;
};

/// The names of all installed zones, one for each distinct set of rules (many names are others' second names).
std::vector<std::string> InstalledZones();

/// The changes of the process's zone from 2000 to 2037, found by asking it every `iStep` seconds: what comes and goes
/// between two questions is not seen.
std::vector<Transition> Transitions(std::time_t iStep);

} // namespace sim
