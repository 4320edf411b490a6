#include <functional>

#include "tests/service/core/core_fixture.h"

using namespace VUKO::VUKOCrond::Service;
using core_test::Texts;
using core_test::With;
using sim::DefinitionOf;

namespace {

/// One cause, and what the ledger of the job "a", due at 10:03, says of it.
struct Fault {
    const char* szName;
    std::function<void(sim::CoreLife&)> before; ///< at 10:02:00, after the tick
    Texts vecLedger;
    const char* szCrontab = "3 10 * * *";
    std::function<Json::Value(Json::Value)> edit = nullptr;
};

void PrintTo(const Fault& fault, std::ostream* pOut) {
    *pOut << fault.szName;
}

const std::vector<Fault> FAULTS = {
    {"Nothing", [](sim::CoreLife&) {}, {"10:03 started"}},
    {"Disabled",
     [](sim::CoreLife&) {},
     {"10:03 skipped: disabled"},
     "3 10 * * *",
     [](const Json::Value& js) { return With(js, "enabled", false); }},
    {"Passive", [](sim::CoreLife& life) { life.SetRole("passive @0\n"); }, {"10:03 skipped: passive"}},
    {"PassiveButMeantForIt",
     [](sim::CoreLife& life) { life.SetRole("passive @0\n"); },
     {"10:03 started"},
     "3 10 * * *",
     [](const Json::Value& js) { return With(js, "run_on_passive", true); }},
    {"Hibernating",
     [](sim::CoreLife& life) {
         life.bHibernating = true;
         life.RunMinutes(300);
         life.bHibernating = false;
     },
     {"10:03 skipped: hibernating"}},
    {"AwakeAgainSoon",
     [](sim::CoreLife& life) {
         life.bHibernating = true;
         life.RunMinutes(30);
         life.bHibernating = false;
     },
     {"10:03 made-up"}},
    {"HibernatingUnderTheLiteralPolicy",
     [](sim::CoreLife& life) {
         life.Kill();
         life.ePolicy = ClockPolicy::Literal;
         life.Start();
         life.bHibernating = true;
     },
     {"10:03 skipped: hibernating"}},
    {"Overlap",
     [](sim::CoreLife& life) { life.Core().RunNow(life.IndexOf("a"), life.Reading(), nullptr); },
     {"10:02 started (manual)", "10:03 skipped: overlap"}},
    {"ClockStepForward", [](sim::CoreLife& life) { life.SetClock(120); }, {"10:03 made-up"}},
    {"ClockStepForwardOverAWildcard",
     [](sim::CoreLife& life) { life.SetClock(600); },
     {"10:03 skipped: clock step"},
     "3 * * * *"},
    {"ClockStepBack",
     [](sim::CoreLife& life) {
         life.RunMinutes(1);
         life.Machine().End(life.Machine().Launches().back(), EndKind::Exited, 0);
         life.Settle();
         life.SetClock(-120);
     },
     {"10:03 started", "10:03 skipped: clock step"}},
    {"ServiceDown",
     [](sim::CoreLife& life) {
         life.Stop();
         life.Pass(300 * 60);
         life.Start();
     },
     {"10:03 skipped: service down"}},
    {"ServiceDownForAWhile",
     [](sim::CoreLife& life) {
         life.Stop();
         life.Pass(30 * 60);
         life.Start();
     },
     {"10:03 made-up"}},
    {"ForkFailed", [](sim::CoreLife& life) { life.Machine().iForksToFail = 100; }, {"10:03 skipped: fork failed"}},
    {"ForkFailedOnce", [](sim::CoreLife& life) { life.Machine().iForksToFail = 1; }, {"10:03 made-up"}},
    {"UserOfNoClassThatTheLibraryKnows",
     [](sim::CoreLife& life) { life.Machine().mapAccounts["nobody"] = 65534; },
     {"10:03 skipped: account unknown"},
     "3 10 * * *",
     [](const Json::Value& js) { return With(js, "user", "nobody"); }},
    {"AccountUnknown",
     [](sim::CoreLife& life) { life.Machine().mapAccounts.clear(); },
     {"10:03 skipped: account unknown"}},
    {"IdentityRefused",
     [](sim::CoreLife& life) { life.Machine().setRefused = {"root"}; },
     {"10:03 skipped: identity refused"}},
    {"DefinitionInvalid",
     [](sim::CoreLife& life) {
         life.mapFiles["/a.conf"] = {{}, true};
         life.Load();
     },
     {"10:03 skipped: definition invalid"}},
    {"Stopping", [](sim::CoreLife& life) { life.Core().BeginStop(OnStop::Wait); }, {"10:03 skipped: stopping"}},
    {"Draining", [](sim::CoreLife& life) { life.Core().Drain(true); }, {"10:03 skipped: stopping"}},
};

class LedgerFault : public core_test::CoreTest, public ::testing::WithParamInterface<Fault> {};

TEST_P(LedgerFault, IsRecordedAsExactlyThatForExactlyThatMinute) {
    const Fault& fault = GetParam();
    Json::Value jsDefinition = DefinitionOf("a", fault.szCrontab);
    StartWith({fault.edit ? fault.edit(jsDefinition) : jsDefinition});
    _life.RunMinutes(2);
    fault.before(_life);
    _life.RunMinutes(12);
    _log.Take();
    EXPECT_EQ(_life.Ledger("a"), fault.vecLedger);
}

INSTANTIATE_TEST_SUITE_P(, LedgerFault, ::testing::ValuesIn(FAULTS),
                         [](const auto& param) { return std::string(param.param.szName); });

using Ledger = core_test::CoreTest;

TEST_F(Ledger, TellsDelayedStartsFromOthers) {
    StartWith({DefinitionOf("a", "3~3 10 * * *"), DefinitionOf("b", "3~3 10 * * *"), DefinitionOf("c", "3 10 * * *")});
    _life.Core().Template().SetMaxDelay(10);
    _life.RunMinutes(4);
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:03 started"});
    EXPECT_EQ(_life.Ledger("b"), Texts{"10:03 delayed"});
    EXPECT_EQ(_life.History("b").front().iDelaySec, 5);
    EXPECT_EQ(_life.Ledger("c"), Texts{"10:03 started"});
}

TEST_F(Ledger, HasExactlyOneEntryForEachDueMinuteWhateverBefellIt) {
    StartWith({DefinitionOf("a", "* * * * *")});
    Texts vecExpected;
    const auto expect = [&](int iFrom, int iTo, const std::string& strWhat) {
        for (int i = iFrom; i <= iTo; ++i) {
            vecExpected.push_back("10:" + std::string(i < 10 ? "0" : "") + std::to_string(i) + " " + strWhat);
        }
    };
    const auto runAndEnd = [&](int iMinutes) {
        for (int i = 0; i < iMinutes; ++i) {
            _life.RunMinutes(1);
            for (sim::Launch& launch : _life.Machine().Launches()) {
                if (launch.bProgramThere) {
                    _life.Machine().End(launch, EndKind::Exited, 0);
                }
            }
            _life.Settle();
        }
    };
    runAndEnd(2);
    expect(1, 2, "started");
    _life.SetRole("passive @0\n");
    runAndEnd(2);
    expect(3, 4, "skipped: passive");
    _life.SetRole("active @0\n");
    _life.Machine().iForksToFail = 2;
    runAndEnd(3);
    expect(5, 6, "skipped: fork failed");
    expect(7, 7, "started");
    _life.Kill();
    _life.Pass(7 * 60);
    _life.Start();
    runAndEnd(2);
    expect(8, 14, "skipped: service down");
    expect(15, 16, "started");
    _life.bHibernating = true;
    runAndEnd(9);
    _life.bHibernating = false;
    runAndEnd(1);
    expect(17, 25, "skipped: hibernating");
    expect(26, 26, "started");
    _life.mapFiles["/a.conf"].bRefused = true;
    _life.mapFiles["/a.conf"].vecDefinitions.clear();
    _life.Load();
    runAndEnd(2);
    expect(27, 28, "skipped: definition invalid");
    _log.Take();
    EXPECT_EQ(_life.Ledger("a"), vecExpected);
}

} // namespace
