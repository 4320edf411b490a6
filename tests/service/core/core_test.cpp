#include <csignal>

#include "tests/service/core/core_fixture.h"

using namespace VUKO::VUKOCrond::Service;
using core_test::Texts;
using core_test::With;
using sim::DefinitionOf;
using sim::Step;

namespace {

using Core = core_test::CoreTest;

TEST_F(Core, TellsARunToEndWhenItsTimeIsUpAndKillsItTenSecondsLater) {
    StartWith({With(DefinitionOf("a", "1 10 * * *"), "timeout", 90)});
    _life.RunMinutes(1);
    Launch("a").bHeedsTerm = false;
    _life.Pass(89);
    _life.Core().ExpireTimeouts();
    EXPECT_TRUE(_life.Machine().TakeSignals().empty());
    EXPECT_EQ(_life.Core().NextDeadlineUsec(), _life.NowUsec() + 1'000'000);
    const pid_t pidGroup = -Launch("a").pidProgram;
    _life.Pass(1);
    _life.Core().ExpireTimeouts();
    EXPECT_EQ(_life.Machine().TakeSignals(), (std::vector<std::pair<pid_t, int>>{{pidGroup, SIGTERM}}));
    EXPECT_EQ(_log.Take(), Texts{"<4>runs:1 job pkg/a has used up its 90 seconds and is told to end"});
    _life.Pass(9);
    _life.Core().ExpireTimeouts();
    EXPECT_TRUE(_life.Machine().TakeSignals().empty());
    _life.Pass(1);
    _life.Core().ExpireTimeouts();
    EXPECT_EQ(_life.Machine().TakeSignals(), (std::vector<std::pair<pid_t, int>>{{pidGroup, SIGKILL}}));
    _life.Settle();
    EXPECT_EQ(_life.Job("a").eLastEnd, EndKind::Signaled);
    EXPECT_EQ(_life.Core().NextDeadlineUsec(), std::nullopt);
}

TEST_F(Core, KeepsTrackOfAProgramThatHasKilledTheChildThatWaitsForIt) {
    StartWith({With(DefinitionOf("a", "1 10 * * *"), "timeout", 90)});
    _life.RunMinutes(1);
    _life.Machine().KillChild(Launch("a"));
    _life.Settle();
    EXPECT_EQ(_life.Job("a").uRunning, 1U);
    EXPECT_EQ(_life.Job("a").eLastEnd, EndKind::Open);
    const pid_t pidGroup = -Launch("a").pidProgram;
    _life.Pass(90);
    _life.Core().ExpireTimeouts();
    EXPECT_EQ(_life.Machine().TakeSignals(), (std::vector<std::pair<pid_t, int>>{{pidGroup, SIGTERM}}));
    EXPECT_EQ(_log.Take().size(), 1U);
    _life.Core().LookAtAdopted();
    EXPECT_EQ(_life.Job("a").uRunning, 0U);
    EXPECT_EQ(_life.Job("a").eLastEnd, EndKind::Lost);
    EXPECT_EQ(_life.Machine().SlotsTaken(), 0U);
}

TEST_F(Core, DoesNotCountTheDelayAsTimeThatARunHasHad) {
    Json::Value jsDefinition = With(DefinitionOf("a", "1 10 * * *"), "timeout", 10);
    StartWith({jsDefinition});
    EXPECT_EQ(_life.Core().Template().SetMaxDelay(60), "");
    jsDefinition["crontab"] = "2~2 10 * * *";
    _life.Put(jsDefinition);
    Json::Value jsOther = jsDefinition;
    jsOther["name"] = "b";
    _life.Put(jsOther);
    _life.Load();
    _life.RunMinutes(2);
    EXPECT_EQ(_life.Ledger("b"), Texts{"10:02 delayed"});
    EXPECT_EQ(_life.History("b").front().iDelaySec, 30);
    End("a");
    _life.Pass(29);
    _life.Settle();
    EXPECT_EQ(Launch("b").pidProgram, 0);
    EXPECT_EQ(_life.Core().NextDeadlineUsec(), std::nullopt);
    _life.Pass(1);
    _life.Settle();
    EXPECT_NE(Launch("b").pidProgram, 0);
    EXPECT_EQ(_life.Core().NextDeadlineUsec(), _life.NowUsec() + 10'000'000);
}

TEST_F(Core, LeavesRunningJobsRunningWhenItStops) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.RunMinutes(1);
    _life.Core().BeginStop(OnStop::Leave);
    EXPECT_TRUE(_life.Machine().TakeSignals().empty());
    EXPECT_FALSE(_life.Core().IsQuiet());
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 started", "10:02 skipped: stopping"}));
    End("a");
    EXPECT_TRUE(_life.Core().IsQuiet());
}

TEST_F(Core, TellsRunningJobsToEndAndKillsThemWhenItStopsSo) {
    StartWith({DefinitionOf("a", "* * * * *"), DefinitionOf("b", "* * * * *")});
    _life.RunMinutes(1);
    Launch("b").bHeedsTerm = false;
    _life.Core().BeginStop(OnStop::Terminate);
    _life.Settle();
    EXPECT_EQ(_life.Job("a").eLastEnd, EndKind::Signaled);
    EXPECT_FALSE(_life.Core().IsQuiet());
    _life.Pass(10);
    _life.Core().ExpireTimeouts();
    _life.Settle();
    EXPECT_TRUE(_life.Core().IsQuiet());
    EXPECT_EQ(_life.Job("b").iLastCode, SIGKILL);
}

TEST_F(Core, StartsNothingWhileItDrains) {
    StartWith({DefinitionOf("a", "* * * * *")});
    _life.Core().Drain(true);
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::Stopping);
    _life.Core().Drain(false);
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a"), (Texts{"10:01 skipped: stopping", "10:02 started"}));
}

TEST_F(Core, TellsOnceOfAJobThatIsOverdueAndWaits) {
    Json::Value jsDefinition = With(DefinitionOf("a", "0 5 1 1 *"), "assure_execute", 1);
    StartWith({jsDefinition});
    const Texts vecOverdue{"<4>tick:2 job pkg/a is overdue: it has not run for more than 1 hours and waits for its "
                           "next minute"};
    _life.RunMinutes(60);
    EXPECT_EQ(_log.Take(), Texts{});
    _life.RunMinutes(3);
    EXPECT_EQ(_log.Take(), vecOverdue);
    _life.Kill();
    _life.Start();
    _life.RunMinutes(3);
    EXPECT_EQ(Launches(), 0U);
    EXPECT_EQ(_life.Core().RunNow(_life.IndexOf("a"), _life.Reading(), nullptr), SkipReason::None);
    End("a");
    _life.RunMinutes(63);
    EXPECT_EQ(_log.Take(), vecOverdue) << "again, as it has run since";
}

TEST_F(Core, RunsAnOverdueJobThatAsksForItOnceTheBootHasSettled) {
    Json::Value jsDefinition = With(DefinitionOf("a", "0 5 1 1 *"), "assure_execute", 1);
    jsDefinition["assure_execute_action"] = "run";
    StartWith({jsDefinition});
    _life.RunMinutes(2);
    _life.Core().Save();
    _life.Kill();
    _life.Reboot();
    _life.Pass(7200);
    _life.iUptimeSec = 30;
    _life.Start();
    _life.RunMinutes(4);
    EXPECT_EQ(Launches(), 0U);
    _life.RunMinutes(2);
    EXPECT_EQ(_life.Ledger("a"), Texts{"12:07 started (assure)"});
}

TEST_F(Core, TakesAStampThatLiesInTheFutureAsNow) {
    Json::Value jsDefinition = With(DefinitionOf("a", "0 5 1 1 *"), "assure_execute", 1);
    jsDefinition["assure_execute_action"] = "run";
    StartWith({jsDefinition});
    _life.RunMinutes(1);
    _life.SetClock(-86'400);
    _life.RunMinutes(1);
    EXPECT_EQ(_log.Take(), Texts{"<4>tick:1 job pkg/a: its \"startup\" lies in the future and is taken as now"});
    EXPECT_EQ(_life.Job("a").iStartup, _life.Now());
    _life.RunMinutes(59);
    EXPECT_EQ(Launches(), 0U);
    _life.RunMinutes(2);
    EXPECT_EQ(Launches(), 1U);
}

TEST_F(Core, LooksForStampsInTheFutureAlsoWhenTheClockWasSetBackInASleep) {
    StartWith({With(DefinitionOf("a", "0 5 1 1 *"), "assure_execute", 1), DefinitionOf("b", "* * * * *")});
    _life.RunMinutes(1);
    End("b");
    _life.bHibernating = true;
    _life.RunMinutes(1);
    _life.SetClock(-86'400);
    _life.RunMinutes(1);
    _life.bHibernating = false;
    _life.RunMinutes(1);
    EXPECT_EQ(_log.Take(), Texts{"<4>tick:1 job pkg/a: its \"startup\" lies in the future and is taken as now"});
}

TEST_F(Core, RunsJobsAlsoWhenNothingCanBeWrittenDown) {
    StartWith({DefinitionOf("a", "* * * * *")});
    {
        const sim::ScopedFullDisk full;
        _life.RunMinutes(1);
        EXPECT_EQ(Launches(), 1U);
        End("a");
        EXPECT_EQ(_life.Job("a").uRunning, 0U);
        _life.RunMinutes(1);
        EXPECT_EQ(Launches(), 2U);
    }
    const Texts vecMessages = _log.Take();
    ASSERT_EQ(vecMessages.size(), 1U) << ::testing::PrintToString(vecMessages);
    EXPECT_EQ(vecMessages[0].rfind("<3>core:3 the tick cannot be written down: ", 0), 0U) << vecMessages[0];
    End("a");
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a").back(), "10:03 started");
}

TEST_F(Core, KeepsTrackOfJobsThatWereLoadedWhileNothingCouldBeWrittenDown) {
    StartWith({DefinitionOf("a", "* * * * *")});
    {
        const sim::ScopedFullDisk full;
        _life.Put(DefinitionOf("b", "* * * * *"));
        _life.Put(DefinitionOf("c", "2 10 * * *"));
        _life.Load();
        _life.RunMinutes(1);
        End("a");
        End("b");
    }
    EXPECT_EQ(_log.Take().size(), 1U);
    EXPECT_EQ(_life.Job("b").uRunning, 0U);
    _life.RunMinutes(1);
    EXPECT_EQ(_life.Ledger("a").back(), "10:02 started");
    EXPECT_EQ(_life.Ledger("b").back(), "10:02 started");
    EXPECT_EQ(_life.Ledger("c"), Texts{"10:02 started"});
}

TEST_F(Core, WritesDownLaterHowARunEndedThatItCouldNotWriteDown) {
    StartWith({DefinitionOf("a", "1 10 * * *")});
    _life.RunMinutes(1);
    {
        const sim::ScopedFullDisk full;
        _life.Pass(5);
        End("a", 2);
    }
    EXPECT_EQ(_log.Take().size(), 1U);
    _life.RunMinutes(1);
    EXPECT_EQ(_life.History("a").front().end.iCode, 2);
    _life.Kill();
    _life.Start();
    _life.RunMinutes(1);
    EXPECT_EQ(Launches(), 1U);
}

TEST_F(Core, SavesOnlyWhatIsWorthIt) {
    StartWith({DefinitionOf("a", "5 10 * * *")});
    _life.Core().Save();
    EXPECT_FALSE(_life.Core().IsWorthSaving());
    _life.RunMinutes(3);
    EXPECT_FALSE(_life.Core().IsWorthSaving());
    _life.RunMinutes(2);
    EXPECT_TRUE(_life.Core().IsWorthSaving());
    _life.bHibernating = true;
    _life.Core().Save();
    EXPECT_TRUE(_life.Core().IsWorthSaving());
    _life.bHibernating = false;
    _life.Core().Save();
    EXPECT_FALSE(_life.Core().IsWorthSaving());
    EXPECT_EQ(_life.Core().LastSavedAt(), _life.Now());
}

} // namespace
