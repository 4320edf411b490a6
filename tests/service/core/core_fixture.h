#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/sim/core_life.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/scoped_tz.h"

namespace core_test {

namespace Service = VUKO::VUKOCrond::Service;
using Texts = std::vector<std::string>;

/// 2026-03-02 10:00:30, a Monday.
constexpr std::time_t START = 1'772'445'630;

/// A service in the middle of a minute, with the log caught: a message that nobody takes fails the test.
class CoreTest : public ::testing::Test {
protected:
    CoreTest() : _life(START) {}

    void StartWith(const std::vector<Json::Value>& vecDefinitions) {
        for (const Json::Value& jsDefinition : vecDefinitions) {
            _life.Put(jsDefinition);
        }
        _life.Start();
        _life.Machine().Forget();
    }
    /// The job's latest launch.
    sim::Launch& Launch(const std::string& strName) {
        std::vector<sim::Launch>& vecLaunches = _life.Machine().Launches();
        const auto it = std::find_if(vecLaunches.rbegin(), vecLaunches.rend(),
                                     [&](const sim::Launch& launch) { return launch.strJob == "pkg/" + strName; });
        if (it == vecLaunches.rend()) {
            throw std::out_of_range("no launch of " + strName);
        }
        return *it;
    }
    std::size_t Launches() { return _life.Machine().Launches().size(); }
    void End(const std::string& strName, int iStatus = 0) {
        _life.Machine().End(Launch(strName), Service::EndKind::Exited, iStatus);
        _life.Settle();
    }

    support::ScopedTz _zone{"UTC"};
    support::CapturedSyslog _log;
    sim::CoreLife _life;
};

inline Json::Value With(Json::Value jsDefinition, const char* szMember, const Json::Value& jsValue) {
    jsDefinition[szMember] = jsValue;
    return jsDefinition;
}

} // namespace core_test
