#include "service/runs.h"

#include <gtest/gtest.h>

#include <csignal>

#include "tests/sim/fake_launcher.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

constexpr std::int64_t SECOND = 1'000'000;
/// When everything begins.
constexpr std::int64_t NOW = 500 * SECOND;

using Signals = std::vector<std::pair<pid_t, int>>;
using Launched = VUKO::VUKOCrond::Service::Run; // a test has a Run() of its own

/// Launches whose signals go nowhere: number N waits in child 100 + N.
class RunsInHand : public ::testing::Test {
protected:
    Launched& Add(RunId uRun, std::int32_t iTimeout = 0) {
        Launched run;
        run.uRun = uRun;
        run.pidChild = static_cast<pid_t>(100 + uRun);
        run.iTimeout = iTimeout;
        return _runs.Add(run);
    }
    Signals Sent() { return _machine.TakeSignals(); }
    std::vector<RunId> Expire(std::int64_t iNowUsec) {
        std::vector<RunId> vecExpired;
        for (const Launched* const pRun : _runs.Expire(iNowUsec)) {
            vecExpired.push_back(pRun->uRun);
        }
        return vecExpired;
    }

    sim::Machine _machine; // takes the signals
    Runs _runs;
};

using Numbers = std::vector<RunId>;

TEST_F(RunsInHand, TellTheProgramsGroupToEndWhenItsTimeIsUsedUp) {
    Launched& run = Add(1, 60);
    EXPECT_EQ(_runs.NextDeadlineUsec(), std::nullopt); // it has not begun
    _runs.Begin(run, 700, NOW);
    EXPECT_EQ(_runs.NextDeadlineUsec(), NOW + 60 * SECOND);
    EXPECT_EQ(Expire(NOW + 60 * SECOND - 1), Numbers{});
    EXPECT_EQ(Sent(), Signals{});
    EXPECT_EQ(Expire(NOW + 60 * SECOND), Numbers{1});
    EXPECT_EQ(Sent(), (Signals{{-700, SIGTERM}}));
    EXPECT_TRUE(run.bTermSent);
}

TEST_F(RunsInHand, AreKilledAfterTheGraceAndAgainUntilTheyEnd) {
    Launched& run = Add(1, 60);
    _runs.Begin(run, 700, NOW);
    std::int64_t iAt = NOW + 60 * SECOND;
    Expire(iAt);
    Sent();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(_runs.NextDeadlineUsec(), iAt + Runs::GRACE_USEC);
        iAt += Runs::GRACE_USEC;
        EXPECT_EQ(Expire(iAt - 1), Numbers{});
        EXPECT_EQ(Sent(), Signals{});
        EXPECT_EQ(Expire(iAt), Numbers{}); // told of once, at TERM
        EXPECT_EQ(Sent(), (Signals{{-700, SIGKILL}}));
    }
    _runs.NoteEnded(run);
    EXPECT_EQ(_runs.NextDeadlineUsec(), std::nullopt);
    EXPECT_EQ(Expire(iAt + Runs::GRACE_USEC), Numbers{});
    EXPECT_EQ(Sent(), Signals{});
}

TEST_F(RunsInHand, HaveAllTheTimeOfTheWorldWithoutATimeout) {
    _runs.Begin(Add(1), 700, NOW);
    EXPECT_EQ(_runs.NextDeadlineUsec(), std::nullopt);
    EXPECT_EQ(Expire(NOW + 1'000'000 * SECOND), Numbers{});
    EXPECT_EQ(Sent(), Signals{});
}

TEST_F(RunsInHand, BeginOnce) {
    Launched& run = Add(1, 60);
    _runs.Begin(run, 700, NOW);
    _runs.Begin(run, 701, NOW + SECOND);
    EXPECT_EQ(run.pidProgram, 700);
    EXPECT_EQ(_runs.NextDeadlineUsec(), NOW + 60 * SECOND);
}

TEST_F(RunsInHand, ExpireAtOnceWhenTheirTimeWasUpBeforeTheClockBegan) {
    Launched& run = Add(1, 60);
    _runs.Begin(run, 700, -3600 * SECOND);
    EXPECT_EQ(Expire(NOW), Numbers{1});
    EXPECT_EQ(Sent(), (Signals{{-700, SIGTERM}}));
}

TEST_F(RunsInHand, AreToldToEndInTheirChildWhileTheyWait) {
    Launched& run = Add(1, 60);
    _runs.Terminate(run, NOW);
    EXPECT_EQ(Sent(), (Signals{{101, SIGTERM}}));
    EXPECT_EQ(_runs.NextDeadlineUsec(), NOW + Runs::GRACE_USEC);
    _runs.Terminate(run, NOW + SECOND);
    EXPECT_EQ(Sent(), Signals{}) << "told once";
    EXPECT_EQ(_runs.NextDeadlineUsec(), NOW + Runs::GRACE_USEC);
}

TEST_F(RunsInHand, AreNeverKilledInTheirChild) {
    Launched& run = Add(1);
    _runs.Terminate(run, NOW);
    Sent();
    Expire(NOW + Runs::GRACE_USEC);
    EXPECT_EQ(Sent(), Signals{}) << "nobody would tell of the end";
}

TEST_F(RunsInHand, AreToldAgainWhenTheyBeginAfterTheyWereToldToEnd) {
    Launched& run = Add(1, 60);
    _runs.Terminate(run, NOW);
    Sent();
    _runs.Begin(run, 700, NOW + SECOND);
    EXPECT_EQ(Sent(), (Signals{{-700, SIGTERM}}));
    EXPECT_EQ(_runs.NextDeadlineUsec(), NOW + Runs::GRACE_USEC) << "no time of its own any more";
    Expire(NOW + Runs::GRACE_USEC);
    EXPECT_EQ(Sent(), (Signals{{-700, SIGKILL}}));
}

TEST_F(RunsInHand, AreLeftAloneOnceTheyHaveEnded) {
    Launched& run = Add(1, 60);
    _runs.NoteEnded(run);
    _runs.Terminate(run, NOW);
    _runs.Begin(run, 700, NOW); // what was told of the beginning may be read last
    EXPECT_EQ(_runs.NextDeadlineUsec(), std::nullopt);
    EXPECT_EQ(Sent(), Signals{});
}

TEST_F(RunsInHand, TellTheNearestDeadlineOfAll) {
    _runs.Begin(Add(1, 60), 701, NOW);
    _runs.Begin(Add(2, 20), 702, NOW);
    Add(3, 1);
    _runs.Begin(Add(4), 704, NOW);
    EXPECT_EQ(_runs.NextDeadlineUsec(), NOW + 20 * SECOND);
    EXPECT_EQ(Expire(NOW + 60 * SECOND), (Numbers{1, 2}));
    EXPECT_EQ(Sent(), (Signals{{-701, SIGTERM}, {-702, SIGTERM}}));
    _runs.Remove(2);
    EXPECT_EQ(_runs.NextDeadlineUsec(), NOW + 60 * SECOND + Runs::GRACE_USEC);
}

TEST_F(RunsInHand, AreCountedUntilTheyEndOrAreTakenAway) {
    Launched& first = Add(1);
    Add(2);
    Launched ended;
    ended.uRun = 3;
    ended.bEnded = true;
    _runs.Add(ended);
    EXPECT_EQ(_runs.Going(), 2U);
    EXPECT_EQ(_runs.Size(), 3U);
    _runs.NoteEnded(first);
    _runs.NoteEnded(first);
    EXPECT_EQ(_runs.Going(), 1U);
    EXPECT_EQ(_runs.Size(), 3U);
    _runs.Remove(1);
    EXPECT_EQ(_runs.Going(), 1U);
    _runs.Remove(2);
    EXPECT_EQ(_runs.Going(), 0U);
    _runs.Remove(2);
    _runs.Remove(3);
    EXPECT_EQ(_runs.Going(), 0U);
    EXPECT_EQ(_runs.Size(), 0U);
}

TEST_F(RunsInHand, AreFoundByNumberAndByChild) {
    Launched& first = Add(1);
    Launched& second = Add(2);
    EXPECT_EQ(_runs.Find(1), &first);
    EXPECT_EQ(_runs.FindByChild(102), &second);
    EXPECT_EQ(_runs.Find(9), nullptr);
    EXPECT_EQ(_runs.FindByChild(1), nullptr);
    _runs.Remove(1);
    EXPECT_EQ(_runs.Find(1), nullptr);
    EXPECT_EQ(_runs.FindByChild(101), nullptr);
    EXPECT_EQ(_runs.FindByChild(102), &second);
}

TEST_F(RunsInHand, AreFoundByTheLatestChildWithThatPid) {
    Add(1);
    Launched later;
    later.uRun = 2;
    later.pidChild = 101;
    _runs.Add(later);
    EXPECT_EQ(_runs.FindByChild(101), _runs.Find(2));
    _runs.Remove(1);
    EXPECT_EQ(_runs.FindByChild(101), _runs.Find(2));
}

} // namespace
