#include "tests/service/core/core_fixture.h"

using namespace VUKO::VUKOCrond::Service;
using core_test::Texts;
using core_test::With;
using sim::Crash;
using sim::DefinitionOf;
using sim::Step;

namespace {

class Recovery : public core_test::CoreTest {
protected:
    /// The service dies at the n-th time that it comes to a step.
    void DieAt(Step eStep, int iTime) {
        _life.Machine().onStep = [this, eStep, iLeft = iTime](Step eNow, const std::string&) mutable {
            if (eNow == eStep && --iLeft == 0) {
                _life.Machine().onStep = nullptr;
                throw Crash();
            }
        };
    }
    void Restart() {
        _life.Kill();
        _life.Start();
    }
    Texts Jobs() {
        Texts vecJobs;
        for (const sim::Launch& launch : _life.Machine().Launches()) {
            if (launch.pidProgram != 0) {
                vecJobs.push_back(launch.strJob);
            }
        }
        std::sort(vecJobs.begin(), vecJobs.end());
        return vecJobs;
    }
};

const Texts ALL_THREE = {"pkg/a", "pkg/b", "pkg/c"};

class RecoveryFromEachInstant : public Recovery, public ::testing::WithParamInterface<std::pair<Step, int>> {};

TEST_P(RecoveryFromEachInstant, StartsEachDueJobExactlyOnce) {
    StartWith({DefinitionOf("a", "1 10 * * *"), DefinitionOf("b", "1 10 * * *"), DefinitionOf("c", "1 10 * * *")});
    DieAt(GetParam().first, GetParam().second);
    EXPECT_THROW(_life.RunMinutes(1), Crash);
    Restart();
    _life.Tick();
    _life.Settle();
    _log.Take();
    _life.RunMinutes(3);
    EXPECT_EQ(Jobs(), ALL_THREE);
    for (const char* const szJob : {"a", "b", "c"}) {
        EXPECT_EQ(_life.Ledger(szJob), Texts{"10:01 started"}) << szJob;
        EXPECT_EQ(_life.Job(szJob).uRunning, 1U) << szJob;
        End(szJob);
        EXPECT_EQ(_life.Job(szJob).uRunning, 0U) << szJob;
        EXPECT_EQ(_life.History(szJob).front().end.eKind, EndKind::Exited) << szJob;
    }
    EXPECT_TRUE(_life.Core().IsQuiet());
    EXPECT_EQ(_life.Machine().SlotsTaken(), 0U);
}

INSTANTIATE_TEST_SUITE_P(, RecoveryFromEachInstant,
                         ::testing::Values(std::pair(Step::Account, 1), std::pair(Step::Start, 1),
                                           std::pair(Step::Started, 1), std::pair(Step::Start, 2),
                                           std::pair(Step::Started, 2), std::pair(Step::Start, 3),
                                           std::pair(Step::Started, 3)));

TEST_F(Recovery, HearsOfTheEndOfARunThatEndedWhileItWasAway) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.RunMinutes(1);
    _life.Kill();
    _life.Pass(20);
    _life.Machine().End(Launch("a"), EndKind::Exited, 5);
    _life.Start();
    EXPECT_EQ(_life.Job("a").uRunning, 0U);
    EXPECT_EQ(_life.Job("a").iLastCode, 5);
    EXPECT_EQ(_life.History("a").front().end.iCode, 5);
    EXPECT_TRUE(_life.Core().IsQuiet());
}

TEST_F(Recovery, TakesOverARunThatGoesOn) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.RunMinutes(1);
    _life.Kill();
    _life.Start();
    EXPECT_EQ(_life.Job("a").uRunning, 1U);
    EXPECT_EQ(_life.Job("a").pidRunning, Launch("a").pidChild);
    _life.RunMinutes(1);
    EXPECT_EQ(_log.Take().size(), 1U);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 started", "10:02 skipped: overlap"}));
    End("a");
    EXPECT_EQ(_life.Job("a").uRunning, 0U);
}

TEST_F(Recovery, CountsTheTimeThatARunHasHad) {
    StartWith({With(DefinitionOf("a", "1 10 * * *"), "timeout", 100)});
    _life.RunMinutes(1);
    _life.Pass(30);
    Restart();
    EXPECT_TRUE(_life.Machine().TakeSignals().empty());
    EXPECT_EQ(_life.Core().NextDeadlineUsec(), _life.NowUsec() + 70'000'000);
    _life.Pass(70);
    _life.Core().ExpireTimeouts();
    EXPECT_EQ(_life.Machine().TakeSignals().size(), 1U);
    EXPECT_EQ(_log.Take().size(), 1U);
}

TEST_F(Recovery, TellsARunThatIsLostFromOneThatEnded) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.RunMinutes(1);
    _life.Kill();
    _life.Machine().KillChild(Launch("a"));
    Launch("a").bProgramThere = false;
    _life.Start();
    EXPECT_EQ(_life.Job("a").uRunning, 0U);
    EXPECT_EQ(_life.History("a").front().end.eKind, EndKind::Lost);
}

TEST_F(Recovery, StartsADelayedStartThatHasNotBegunExactlyOnce) {
    StartWith({DefinitionOf("a", "1~1 10 * * *"), DefinitionOf("b", "1~1 10 * * *")});
    _life.Core().Template().SetMaxDelay(40);
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("b"), Texts{"10:01 delayed"});
    _life.Pass(5);
    Restart(); // its child waits on
    EXPECT_EQ(_life.Job("b").uRunning, 1U);
    _life.Pass(5);
    _life.Kill();
    _life.Machine().KillChild(Launch("b")); // and now it is gone
    _life.Start();
    EXPECT_EQ(_log.Take(), Texts{"<5>recovery:1 job pkg/b was to start before the service ended and is started now"});
    _life.Pass(9);
    _life.Settle();
    EXPECT_EQ(Launch("b").pidProgram, 0);
    _life.Pass(1); // the twentieth second
    _life.Settle();
    EXPECT_EQ(Jobs(), (Texts{"pkg/a", "pkg/b"}));
    Restart();
    _life.RunMinutes(2);
    EXPECT_EQ(Jobs(), (Texts{"pkg/a", "pkg/b"}));
    EXPECT_EQ(_life.Ledger("b"), Texts{"10:01 delayed"});
}

TEST_F(Recovery, StartsLaterWhatItsOwnStoppingEndedBeforeItBegan) {
    StartWith({DefinitionOf("a", "1~1 10 * * *"), DefinitionOf("b", "1~1 10 * * *")});
    _life.Core().Template().SetMaxDelay(40);
    _life.RunMinutes(1);
    _life.Stop(OnStop::Terminate);
    EXPECT_EQ(Jobs(), Texts{"pkg/a"});
    _life.Start();
    EXPECT_EQ(_log.Take().size(), 1U);
    _life.RunMinutes(2);
    EXPECT_EQ(Jobs(), (Texts{"pkg/a", "pkg/b"}));
}

TEST_F(Recovery, StartsNothingWhileTheMachineHibernates) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    DieAt(Step::Start, 1);
    EXPECT_THROW(_life.RunMinutes(1), Crash);
    _life.Kill();
    _life.bHibernating = true;
    _life.Start();
    _life.RunMinutes(10);
    EXPECT_EQ(Launches(), 0U);
    _life.bHibernating = false;
    _life.RunMinutes(1);
    _log.Take();
    EXPECT_EQ(Jobs(), Texts{"pkg/a"});
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:01 made-up"});
}

TEST_F(Recovery, DoesNotStartAnythingAgainWhenTheRunTableIsLost) {
    StartWith({With(DefinitionOf("a", "1,2 10 * * *"), "overlap", "allow")});
    _life.RunMinutes(2);
    _life.Kill();
    _life.Machine().LoseTable();
    _life.Start();
    _life.RunMinutes(1);
    EXPECT_EQ(Launches(), 2U);
    for (const Outcome& outcome : _life.History("a")) {
        EXPECT_EQ(outcome.end.eKind, EndKind::Lost);
    }
}

TEST_F(Recovery, GivesUpAStartThatItCannotMakeWhenTheNextOneIsDue) {
    StartWith({DefinitionOf("a", "1,2 10 * * *")});
    DieAt(Step::Start, 1);
    EXPECT_THROW(_life.RunMinutes(1), Crash);
    _life.Kill();
    _life.Machine().iForksToFail = 1;
    _life.Start();
    _log.Take();
    EXPECT_TRUE(_life.Job("a").IsPending());
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 skipped: fork failed", "10:02 started"}));
    Restart();
    _life.RunMinutes(1);
    EXPECT_EQ(Jobs(), Texts{"pkg/a"});
}

TEST_F(Recovery, GivesUpTheOlderOfTwoStartsThatItCannotMake) {
    StartWith({With(DefinitionOf("a", "2~2 10 * * *"), "overlap", "allow"),
               With(DefinitionOf("b", "2~2 10 * * *"), "overlap", "allow")});
    _life.Core().Template().SetMaxDelay(300);
    _life.RunMinutes(2); // "b" waits for 150 seconds
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("b"), _life.Reading(), nullptr), SkipReason::None);
    _life.Kill(); // the second child has not come to take its launch
    for (sim::Launch& launch : _life.Machine().Launches()) {
        if (launch.strJob == "pkg/b") {
            _life.Machine().KillChild(launch);
        }
    }
    _life.Machine().iForksToFail = 2;
    _life.Start();
    _log.Take();
    EXPECT_EQ(_life.Ledger("b"), (Texts{"10:02 skipped: fork failed", "10:02 started (manual)"}));
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("b"), (Texts{"10:02 skipped: fork failed", "10:02 made-up (manual)"}));
    Restart();
    _life.RunMinutes(1);
    EXPECT_EQ(Jobs(), (Texts{"pkg/a", "pkg/b"}));
}

TEST_F(Recovery, DoesNotStartWhatBelongsToAFormerBoot) {
    StartWith({DefinitionOf("a", "1 10 * * *"), DefinitionOf("b", "* * * * *")});
    _life.RunMinutes(1);
    _life.Core().Save();
    _life.Kill();
    _life.Reboot();
    _life.Pass(600);
    _life.iUptimeSec = 20;
    _life.Start();
    EXPECT_EQ(_life.History("a").front().end.eKind, EndKind::Lost);
    EXPECT_EQ(_life.Job("b").uRunning, 0U);
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("b"), (Texts{"10:01 started", "10:12 started"}));
    EXPECT_EQ(_life.Ledger("a"), Texts{"10:01 started"});
}

TEST_F(Recovery, KnowsARunThatWasStartedByHandBeforeTheFirstTickOfABoot) {
    StartWith({DefinitionOf("a", "* * * * *")});
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::None);
    _life.Settle();
    Restart();
    EXPECT_EQ(_life.Job("a").uRunning, 1U);
    _life.RunMinutes(1);
    EXPECT_EQ(_log.Take().size(), 1U);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:00 started (manual)", "10:01 skipped: overlap"}));
}

TEST_F(Recovery, GoesOnFromWhereItHadWorkedUpTo) {
    StartWith({DefinitionOf("fixed", "3 10 * * *"), DefinitionOf("wild", "* * * * *")});
    _life.RunMinutes(1);
    End("wild");
    _life.Kill();
    _life.Pass(3 * 60);
    _life.Start();
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("fixed"), Texts{"10:03 made-up"});
    EXPECT_EQ(_life.Ledger("wild"),
              (Texts{"10:01 started", "10:02 skipped: service down", "10:03 skipped: service down",
                     "10:04 skipped: service down", "10:05 started"}));
}

TEST_F(Recovery, GivesNoNumberOutTwice) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.RunMinutes(1);
    const RunId uFormer = Launch("a").uRun;
    End("a");
    DieAt(Step::Account, 1);
    EXPECT_THROW(_life.RunMinutes(1), Crash);
    Restart();
    _life.Tick();
    _life.Settle();
    EXPECT_GT(Launch("a").uRun, uFormer);
}

} // namespace
