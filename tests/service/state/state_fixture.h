#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "service/state/statestore.h"
#include "tests/support/temp_dir.h"

namespace state {

using VUKO::VUKOCrond::Service::Outcome;
using VUKO::VUKOCrond::Service::RunId;
using VUKO::VUKOCrond::Service::StateError;
using VUKO::VUKOCrond::Service::StateStore;
using VUKO::VUKOCrond::Service::StoredClock;
using VUKO::VUKOCrond::Service::StoredJob;

/// Each member has a value of its own.
StoredJob Job(const std::string& strName);
StoredClock Clock(RunId uLastRun);
/// A start whose end is not known, and the same with its end.
Outcome OpenRun(RunId uRun);
Outcome EndedRun(RunId uRun);
/// A minute in which nothing was started.
Outcome Skip(std::int64_t iMinute);

/// Every member as text.
std::string ToText(const Outcome& outcome);
std::string ToText(const StoredJob& job);
/// All that a store holds, the ledgers included.
std::string Describe(StateStore& store);

/// Runs changes as one transaction.
void Transact(StateStore& store, const std::function<void()>& changes);

/// Runs a function that must throw a StateError.
/// @return its text.
std::string ErrorOf(const std::function<void()>& body);

/// Two copies in a folder of the test's own.
class StateFiles : public ::testing::Test {
protected:
    /// What the persistent copy holds, whatever becomes of the working one.
    std::string DescribePersistent() const;
    /// Names in the folder but those of the two copies.
    std::vector<std::string> Others() const;
    /// Runs SQL on one of the copies while no store has it open.
    static void Alter(const std::string& strPath, const char* szSql);

    const support::TempDir _dir;
    const std::string _strWorking = _dir / "working";
    const std::string _strPersistent = _dir / "persistent";
};

} // namespace state
