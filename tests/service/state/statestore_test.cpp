/// What the state keeps, and what a transaction is.

#include <limits>
#include <memory>

#include "tests/service/state/state_fixture.h"
#include "tests/support/forked.h"

using namespace state;

namespace {

using Notes = std::vector<std::string>;

class State : public StateFiles {};

std::int64_t AddJob(StateStore& store, const StoredJob& job) {
    std::int64_t iKey = 0;
    Transact(store, [&] { iKey = store.PutJob(job); });
    return iKey;
}

std::vector<RunId> RunsOf(const std::vector<Outcome>& vecOutcomes) {
    std::vector<RunId> vecRuns;
    for (const Outcome& outcome : vecOutcomes) {
        vecRuns.push_back(outcome.uRun);
    }
    return vecRuns;
}

} // namespace

TEST_F(State, IsEmptyWhenThereIsNoFile) {
    StateStore store(_strWorking, _strPersistent);
    EXPECT_TRUE(store.IsFresh());
    EXPECT_FALSE(store.IsDirty());
    EXPECT_EQ(Describe(store), "clock  0 0 0 0\n");
    EXPECT_EQ(store.Notes(), Notes());
    EXPECT_EQ(support::ModeOf(_strWorking), 0600);
    EXPECT_FALSE(support::Exists(_strPersistent));
}

TEST_F(State, KeepsEveryMember) {
    std::string strExpected;
    StoredJob job = Job("backup");
    job.iKey = 1;
    {
        StateStore store(_strWorking, _strPersistent);
        Transact(store, [&] {
            store.PutClock(Clock(3));
            EXPECT_EQ(store.PutJob(Job("backup")), 1);
            store.AddOutcome(1, Skip(29883000));
            store.AddOutcome(1, EndedRun(2));
            store.AddOutcome(1, OpenRun(3));
        });
    }
    StateStore store(_strWorking, _strPersistent);
    EXPECT_FALSE(store.IsFresh());
    EXPECT_EQ(Describe(store), "clock 0b4f1f2e-6a7d-4b58-9a44-5d1c1f0e7a11 29883450 29883451 29883400 3\n" +
                                   ToText(job) + "\n  " + ToText(OpenRun(3)) + "\n  " + ToText(EndedRun(2)) + "\n  " +
                                   ToText(Skip(29883000)) + "\nopen 1 " + ToText(OpenRun(3)) + "\n");
    EXPECT_EQ(store.Notes(), Notes());
}

TEST_F(State, KeepsTheLeastAndTheGreatestValues) {
    StateStore store(_strWorking, _strPersistent);
    StoredJob job;
    job.id.strName = std::string("a\0b", 3);
    job.iKey = AddJob(store, job);
    Outcome outcome;
    outcome.iMinute = -1;
    outcome.eReason = VUKO::VUKOCrond::Service::SkipReason::IdentityRefused;
    outcome.uRun = std::numeric_limits<std::int64_t>::max();
    outcome.end.eKind = VUKO::VUKOCrond::Service::EndKind::Lost;
    Transact(store, [&] { store.AddOutcome(job.iKey, outcome); });
    EXPECT_EQ(Describe(store), "clock  0 0 0 0\n" + ToText(job) + "\n  " + ToText(outcome) + "\n");
}

TEST_F(State, ReplacesAJobAndLeavesItsLedger) {
    StateStore store(_strWorking, _strPersistent);
    StoredJob job = Job("backup");
    job.iKey = AddJob(store, job);
    Transact(store, [&] { store.AddOutcome(job.iKey, EndedRun(1)); });
    job.iLastExecution = 5;
    job.iGoneSince = 0;
    job.bOverdueReported = false;
    job.strSchedule = "{}";
    EXPECT_EQ(AddJob(store, job), job.iKey);
    ASSERT_EQ(store.Load().vecJobs.size(), 1U);
    EXPECT_EQ(ToText(store.Load().vecJobs[0]), ToText(job));
    EXPECT_EQ(RunsOf(store.History(job.iKey, 10)), std::vector<RunId>{1});
}

TEST_F(State, TakesAJobOfTheSameIdentityForTheSameJob) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    Transact(store, [&] { store.AddOutcome(iKey, EndedRun(1)); });
    StoredJob job = Job("backup");
    job.iStartup = 9;
    EXPECT_EQ(AddJob(store, job), iKey);
    EXPECT_EQ(store.Load().vecJobs.size(), 1U);
    EXPECT_EQ(store.Load().vecJobs[0].iStartup, 9);
    EXPECT_EQ(store.History(iKey, 10).size(), 1U);
}

TEST_F(State, RefusesAJobThatIsNotThereOrTooLongToKeep) {
    StateStore store(_strWorking, _strPersistent);
    StoredJob job = Job("backup");
    job.iKey = 7;
    store.Begin();
    EXPECT_EQ(ErrorOf([&] { store.PutJob(job); }), _strWorking + ": there is no job 7");
    store.Begin();
    EXPECT_EQ(ErrorOf([&] { store.AddOutcome(7, Skip(1)); }), _strWorking + ": there is no job 7");
    job.iKey = 0;
    job.strSchedule.assign(1024 * 1024 + 1, 'x');
    store.Begin();
    EXPECT_EQ(ErrorOf([&] { store.PutJob(job); }),
              _strWorking + ": job \"backup\" has a text that is too long to be kept");
    EXPECT_EQ(ErrorOf([&] { store.PutJob(job); }), _strWorking + ": a change outside of a transaction");
}

TEST_F(State, KeepsTheLastHundredOutcomesNewestFirst) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    const std::int64_t iOther = AddJob(store, Job("other"));
    Transact(store, [&] {
        for (RunId uRun = 1; uRun <= 250; ++uRun) {
            store.AddOutcome(iKey, EndedRun(uRun));
        }
        store.AddOutcome(iOther, EndedRun(251));
    });
    const std::vector<RunId> vecRuns = RunsOf(store.History(iKey, 1000));
    ASSERT_EQ(vecRuns.size(), 100U);
    for (std::size_t i = 0; i < vecRuns.size(); ++i) {
        EXPECT_EQ(vecRuns[i], 250 - i);
    }
    EXPECT_EQ(RunsOf(store.History(iKey, 2)), (std::vector<RunId>{250, 249}));
    EXPECT_EQ(RunsOf(store.History(iOther, 1000)), std::vector<RunId>{251});
}

TEST_F(State, LearnsTheEndOfARun) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    Transact(store, [&] {
        store.AddOutcome(iKey, OpenRun(1));
        store.AddOutcome(iKey, OpenRun(2));
        store.UpdateRun(iKey, EndedRun(1));
    });
    ASSERT_EQ(store.History(iKey, 10).size(), 2U);
    EXPECT_EQ(ToText(store.History(iKey, 10)[1]), ToText(EndedRun(1)));
    ASSERT_EQ(store.Load().vecOpenRuns.size(), 1U);
    EXPECT_EQ(store.Load().vecOpenRuns[0].outcome.uRun, 2U);
}

TEST_F(State, DoesNotTakeSkippedMinutesForARun) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    Outcome skip = Skip(5);
    Transact(store, [&] {
        store.AddOutcome(iKey, skip);
        skip.iDelaySec = 99;
        store.UpdateRun(iKey, skip);
    });
    EXPECT_EQ(ToText(store.History(iKey, 10).at(0)), ToText(Skip(5)));
    EXPECT_TRUE(store.Load().vecOpenRuns.empty());
}

TEST_F(State, RemembersAnOpenRunThatHasLeftTheLedger) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    Transact(store, [&] {
        store.AddOutcome(iKey, OpenRun(1));
        for (int i = 0; i < 300; ++i) {
            store.AddOutcome(iKey, Skip(i));
        }
    });
    EXPECT_EQ(store.History(iKey, 1000).size(), 100U);
    ASSERT_EQ(store.Load().vecOpenRuns.size(), 1U);
    EXPECT_EQ(ToText(store.Load().vecOpenRuns[0].outcome), ToText(OpenRun(1)));
    const std::string strBefore = ToText(store.History(iKey, 1).at(0));
    Transact(store, [&] { store.UpdateRun(iKey, EndedRun(1)); });
    EXPECT_TRUE(store.Load().vecOpenRuns.empty());
    EXPECT_EQ(store.History(iKey, 1000).size(), 100U);
    EXPECT_EQ(ToText(store.History(iKey, 1).at(0)), strBefore);
}

TEST_F(State, HasNothingToUpdateWhenARunIsForgotten) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    Transact(store, [&] {
        store.AddOutcome(iKey, EndedRun(1));
        for (int i = 0; i < 100; ++i) {
            store.AddOutcome(iKey, Skip(i));
        }
    });
    store.Persist();
    Transact(store, [&] { store.UpdateRun(iKey, OpenRun(1)); });
    EXPECT_TRUE(store.Load().vecOpenRuns.empty());
    EXPECT_FALSE(store.IsDirty());
}

TEST_F(State, ForgetsAJobWithItsLedgerAndOpenRuns) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    Transact(store, [&] { store.AddOutcome(iKey, OpenRun(1)); });
    Transact(store, [&] { store.ForgetJob(iKey); });
    EXPECT_EQ(Describe(store), "clock  0 0 0 0\n");
    EXPECT_TRUE(store.History(iKey, 10).empty());
}

TEST_F(State, DropsJobsThatAreGoneForLongButNotThoseThatStillRun) {
    StateStore store(_strWorking, _strPersistent);
    std::int64_t iRunning = 0;
    Transact(store, [&] {
        for (const std::int64_t iGoneSince : {0, 99, 100, 101}) {
            StoredJob job = Job("gone-" + std::to_string(iGoneSince));
            job.iGoneSince = iGoneSince;
            store.AddOutcome(store.PutJob(job), EndedRun(1));
        }
        StoredJob job = Job("running");
        job.iGoneSince = 1;
        iRunning = store.PutJob(job);
        store.AddOutcome(iRunning, OpenRun(2));
    });
    const auto names = [&] {
        std::string strNames;
        for (const StoredJob& job : store.Load().vecJobs) {
            strNames += job.id.strName + " ";
        }
        return strNames;
    };
    Transact(store, [&] { store.DropGoneBefore(100); });
    EXPECT_EQ(names(), "gone-0 gone-100 gone-101 running ");
    EXPECT_TRUE(store.History(2, 10).empty());
    EXPECT_EQ(store.History(3, 10).size(), 1U);
    Transact(store, [&] {
        store.UpdateRun(iRunning, EndedRun(2));
        store.DropGoneBefore(101);
    });
    EXPECT_EQ(names(), "gone-0 gone-101 ");
}

TEST_F(State, IsAsBeforeATransactionThatWasRolledBack) {
    StateStore store(_strWorking, _strPersistent);
    const std::int64_t iKey = AddJob(store, Job("backup"));
    store.Persist();
    const std::string strBefore = Describe(store);
    const auto change = [&] {
        store.Begin();
        store.PutClock(Clock(9));
        store.PutJob(Job("other"));
        store.AddOutcome(iKey, OpenRun(1));
    };
    change();
    store.Rollback();
    EXPECT_EQ(Describe(store), strBefore);
    change();
    EXPECT_NE(ErrorOf([&] { store.AddOutcome(77, Skip(1)); }), "");
    EXPECT_EQ(Describe(store), strBefore);
    EXPECT_NE(ErrorOf([&] { store.Commit(); }), "");
    EXPECT_FALSE(store.IsDirty());
    store.Rollback();
    change();
    store.Commit();
    EXPECT_NE(Describe(store), strBefore);
}

TEST_F(State, IsAsBeforeATransactionThatWasNeverCommitted) {
    std::string strBefore;
    {
        StateStore store(_strWorking, _strPersistent);
        AddJob(store, Job("backup"));
        strBefore = Describe(store);
        store.Begin();
        store.PutJob(Job("other"));
    }
    StateStore store(_strWorking, _strPersistent);
    EXPECT_EQ(Describe(store), strBefore);
    EXPECT_EQ(store.Notes(), Notes());
}

TEST_F(State, UndoesATransactionThatIsBegunTwice) {
    StateStore store(_strWorking, _strPersistent);
    store.Begin();
    store.PutJob(Job("backup"));
    EXPECT_EQ(ErrorOf([&] { store.Begin(); }),
              _strWorking + ": cannot begin a transaction: cannot start a transaction within a transaction");
    EXPECT_TRUE(store.Load().vecJobs.empty());
    EXPECT_EQ(AddJob(store, Job("backup")), 1);
}

TEST_F(State, IsNotTouchedByAForkedChildThatDropsIt) {
    auto store = std::make_unique<StateStore>(_strWorking, _strPersistent);
    AddJob(*store, Job("backup"));
    store->Begin();
    StoredJob large = Job("large");
    large.strSchedule.assign(500000, 'x'); // more than is kept in memory: the journal is needed
    store->PutJob(large);
    support::RunForked([&](int) {
        store.reset();
        return 0;
    });
    store->Rollback();
    EXPECT_EQ(store->Load().vecJobs.size(), 1U);
    const support::ChildEnd end = support::RunForked(
        [&](int) { return ErrorOf([&] { StateStore second(_strWorking, _strPersistent); }).empty() ? 1 : 0; });
    EXPECT_EQ(end.iExitStatus, 0) << "the lock is gone";
    AddJob(*store, large);
    store.reset();
    EXPECT_EQ(StateStore(_strWorking, _strPersistent).Load().vecJobs.size(), 2U);
}
