#include "tests/service/core/core_fixture.h"

using namespace VUKO::VUKOCrond::Service;
using core_test::Texts;
using core_test::With;
using sim::DefinitionOf;
using sim::Step;

namespace {

using Core = core_test::CoreTest;

TEST_F(Core, HasADecisionInTheStoreBeforeTheFirstLaunch) {
    StartWith({DefinitionOf("a", "* * * * *"), DefinitionOf("b", "* * * * *"), DefinitionOf("c", "1 11 * * *")});
    std::vector<std::size_t> vecStored;
    _life.Machine().onStep = [&](Step eStep, const std::string&) {
        if (eStep == Step::Start) {
            vecStored.push_back(_life.Ledger("a").size() + _life.Ledger("b").size());
        }
    };
    _life.RunMinutes(1);
    EXPECT_EQ(vecStored, (std::vector<std::size_t>{2, 2}));
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:01 started"});
    EXPECT_EQ(_life.Ledger("c"), Texts{});
}

TEST_F(Core, NeverTicksTwiceInAMinute) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.RunMinutes(1);
    End("a");
    _life.Pass(30);
    _life.Tick();
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:01 started"});
    EXPECT_EQ(_life.Core().Count().uTicks, 1U);
}

TEST_F(Core, TellsHowARunEnded) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Job("a").uRunning, 1U);
    _life.Pass(7);
    End("a", 3);
    const Job job = _life.Job("a");
    EXPECT_EQ(job.uRunning, 0U);
    EXPECT_EQ(job.eLastEnd, EndKind::Exited);
    EXPECT_EQ(job.iLastCode, 3);
    EXPECT_EQ(job.iLastSuccessUsec, 0);
    EXPECT_EQ(_life.History("a").front().end.iDurationUsec, 7'000'000);
    EXPECT_TRUE(_life.Core().IsQuiet());
    EXPECT_EQ(_life.Machine().SlotsTaken(), 0U);
}

TEST_F(Core, TriesAgainAtEachTickWhenNoChildCanBeMade) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.Machine().iForksToFail = 3;
    _life.RunMinutes(3);
    EXPECT_EQ(Launches(), 0U);
    EXPECT_TRUE(_life.Job("a").IsPending());
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:01 made-up"});
    EXPECT_EQ(Launches(), 1U);
    EXPECT_FALSE(_life.Job("a").IsPending());
}

TEST_F(Core, CountsAStartThatIsTriedAgainOnceAndOneThatIsGivenUpAsNone) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.Machine().iForksToFail = 3;
    _life.RunMinutes(4);
    using Counts = std::map<std::string, std::uint64_t>;
    EXPECT_EQ(_life.Core().Count().mapStarts, (Counts{{"made-up", 1}}));
    _life.Machine().iForksToFail = 1;
    End("a");
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::ForkFailed);
    EXPECT_EQ(_life.Core().Count().mapStarts, (Counts{{"made-up", 1}}));
    EXPECT_EQ(_life.Core().Count().mapSkips, (Counts{{"fork failed", 1}}));
}

TEST_F(Core, GivesAStartUpOnceWhenItWasTriedOften) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.Machine().iForksToFail = 1000;
    _life.RunMinutes(20);
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:01 skipped: fork failed"});
    EXPECT_EQ(_life.Machine().iForksToFail, 1000 - 1 - MAX_RETRIES);
    EXPECT_EQ(_life.Core().Count().mapSkips.at("fork failed"), 1U);
}

TEST_F(Core, GivesAStartUpWhenTheNextOneIsDue) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.Machine().iForksToFail = 2;
    _life.RunMinutes(3);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 skipped: fork failed", "10:02 skipped: fork failed", "10:03 started"}));
}

TEST_F(Core, MakesNothingAgainThatWasGivenUp) {
    StartWith({DefinitionOf("a", "1,2,3 10 * * *")});
    _life.Machine().iForksToFail = 1000;
    _life.RunMinutes(20);
    _life.Machine().iForksToFail = 0;
    _life.Kill();
    _life.Start();
    _life.RunMinutes(1);
    EXPECT_EQ(Launches(), 0U);
}

TEST_F(Core, KeepsAPendingStartWhenTheJobIsStartedByHand) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.Machine().iForksToFail = 1;
    _life.RunMinutes(1);
    _life.Pass(20);
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::None);
    _life.Settle();
    End("a");
    _life.RunMinutes(1);
    EXPECT_EQ(Launches(), 2U);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 made-up", "10:01 started (manual)"}));
}

TEST_F(Core, TellsWhoeverStartsAJobByHandThatNoChildCanBeMade) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.Machine().iForksToFail = 2;
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::ForkFailed);
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 made-up", "10:01 skipped: fork failed (manual)"}));
    EXPECT_EQ(Launches(), 1U);
}

TEST_F(Core, DoesNotStartAJobWhoseLastRunIsStillGoing) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.RunMinutes(2);
    EXPECT_EQ(_log.Take(),
              Texts{"<5>tick:5 job pkg/a is not started again: process " + std::to_string(Launch("a").pidChild) +
                    " is still going, since 2026-03-02T10:01:00+00:00"});
    const Outcome skipped = _life.History("a").back();
    EXPECT_EQ(skipped.eReason, SkipReason::Overlap);
    EXPECT_EQ(skipped.pidOther, Launch("a").pidChild);
    EXPECT_EQ(skipped.iOtherSince, core_test::START + 30);
    End("a");
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 started", "10:02 skipped: overlap", "10:03 started"}));
}

TEST_F(Core, StartsAJobBesideItsLastRunWhereThatIsAllowed) {
    StartWith({With(DefinitionOf("a", "* * * * *"), "overlap", "allow")});
    _life.RunMinutes(3);
    EXPECT_EQ(_life.Job("a").uRunning, 3U);
    End("a");
    EXPECT_EQ(_life.Job("a").uRunning, 2U);
    _life.Machine().End(_life.Machine().Launches().front(), EndKind::Exited, 5);
    _life.Settle();
    EXPECT_EQ(_life.Job("a").uRunning, 1U);
    EXPECT_EQ(_life.Job("a").iLastCode, 0) << "an older run is not the last because it ends later";
}

TEST_F(Core, KnowsOfTheRunOfAJobThatWasAwayMeanwhile) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.RunMinutes(1);
    const sim::DefinitionText text = _life.mapFiles.extract("/a.conf").mapped();
    _life.Load();
    _life.mapFiles["/a.conf"] = text;
    _life.Load();
    EXPECT_EQ(_life.Job("a").uRunning, 1U);
    _life.RunMinutes(1);
    EXPECT_EQ(_log.Take().size(), 1U);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 started", "10:02 skipped: overlap"}));
    End("a");
    EXPECT_EQ(_life.Job("a").uRunning, 0U);
}

TEST_F(Core, EndsTheEntryOfAPendingStartWhoseJobIsTakenAway) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.Machine().iForksToFail = 1;
    _life.RunMinutes(1);
    const sim::DefinitionText text = _life.mapFiles.extract("/a.conf").mapped();
    _life.Load();
    _life.mapFiles["/a.conf"] = text;
    _life.Load();
    _life.RunMinutes(2);
    EXPECT_EQ(Launches(), 0U);
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:01 skipped: definition invalid"});
}

TEST_F(Core, StartsAJobByHandAndTellsOfItsEnd) {
    StartWith({With(DefinitionOf("a", "1 11 * * *"), "enabled", false)});
    std::vector<int> vecEnds;
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(),
                                  [&](const RunEnd& end) { vecEnds.push_back(end.iCode); }),
              SkipReason::None);
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::Overlap);
    _life.Settle();
    EXPECT_EQ(Launch("a").strLabel, "manual");
    EXPECT_TRUE(vecEnds.empty());
    End("a", 4);
    EXPECT_EQ(vecEnds, std::vector<int>{4});
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:00 started (manual)"});
}

TEST_F(Core, StartsNothingByHandWhileTheMachineHibernates) {
    StartWith({DefinitionOf("a", "1 11 * * *")});
    _life.bHibernating = true;
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::Hibernating);
    EXPECT_EQ(Launches(), 0U);
}

} // namespace
