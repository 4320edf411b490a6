#pragma once

#include <string>

#include "service/state/sqlite.h"

namespace VUKO::VUKOCrond::Service {

/// A SELECT of these columns, followed by the rest of it.
std::string Select(const char* szColumns, const std::string& strRest);

/// The statements that are used while the service runs. An open run that has to make room for newer entries moves to a
/// slot of its own below the ring, until its end is known: it must not be forgotten that it is going.
struct Statements {
    explicit Statements(const Connection& c);

    Statement begin, commit, setAhead, isSameClock, putClock, addJob, putJob, dropLedger, dropJob, countOutcome,
        makeRoom, addOutcome, updateRun, dropEnded, history;
};

} // namespace VUKO::VUKOCrond::Service
