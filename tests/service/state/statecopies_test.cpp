/// The two copies of the state: which is used, and when the persistent one is written.

#include <sys/stat.h>

#include <filesystem>

#include "tests/service/state/state_fixture.h"

namespace fs = std::filesystem;
using namespace state;

namespace {

using Notes = std::vector<std::string>;

class Copies : public StateFiles {};

std::int64_t AddJob(StateStore& store, const StoredJob& job) {
    std::int64_t iKey = 0;
    Transact(store, [&] { iKey = store.PutJob(job); });
    return iKey;
}

} // namespace

TEST_F(Copies, IsDirtyUntilItIsPersistedAlsoAfterARestart) {
    {
        StateStore store(_strWorking, _strPersistent);
        EXPECT_FALSE(store.IsDirty());
        AddJob(store, Job("backup"));
        EXPECT_TRUE(store.IsDirty());
    }
    {
        StateStore store(_strWorking, _strPersistent);
        EXPECT_TRUE(store.IsDirty());
        store.Persist();
        EXPECT_FALSE(store.IsDirty());
        EXPECT_EQ(DescribePersistent(), Describe(store));
        EXPECT_EQ(support::ModeOf(_strPersistent), 0600);
    }
    EXPECT_FALSE(StateStore(_strWorking, _strPersistent).IsDirty());
    fs::remove(_strPersistent);
    EXPECT_TRUE(StateStore(_strWorking, _strPersistent).IsDirty());
    EXPECT_EQ(Others(), Notes());
}

TEST_F(Copies, IsNotWrittenToTheDiskWhenOnlyTheClockWentOn) {
    StateStore store(_strWorking, _strPersistent);
    Transact(store, [&] { store.PutClock(Clock(3)); });
    EXPECT_TRUE(store.IsDirty());
    store.Persist();
    struct stat stBefore = {};
    ASSERT_EQ(stat(_strPersistent.c_str(), &stBefore), 0);
    StoredClock clock = Clock(3);
    clock.iWorkedUpTo += 5;
    clock.iLastTick += 5;
    Transact(store, [&] { store.PutClock(clock); });
    EXPECT_FALSE(store.IsDirty());
    EXPECT_EQ(store.Load().clock.iWorkedUpTo, clock.iWorkedUpTo);
    store.Persist();
    struct stat stAfter = {};
    ASSERT_EQ(stat(_strPersistent.c_str(), &stAfter), 0);
    EXPECT_EQ(stAfter.st_ino, stBefore.st_ino);
    clock.uLastRun = 4;
    Transact(store, [&] { store.PutClock(clock); });
    EXPECT_TRUE(store.IsDirty());
}

TEST_F(Copies, ComesFromThePersistentCopyWhenTheWorkingOneIsLost) {
    std::string strExpected;
    {
        StateStore store(_strWorking, _strPersistent);
        Transact(store, [&] {
            store.PutClock(Clock(3));
            store.AddOutcome(store.PutJob(Job("backup")), OpenRun(3));
        });
        store.Persist();
        strExpected = Describe(store);
        AddJob(store, Job("too-late"));
    }
    fs::remove(_strWorking);
    support::WriteFile(_strWorking + "-journal", "of another file");
    StateStore store(_strWorking, _strPersistent);
    EXPECT_TRUE(store.IsFresh());
    EXPECT_FALSE(store.IsDirty());
    EXPECT_EQ(Describe(store), strExpected);
    EXPECT_EQ(store.Notes(), Notes());
}

TEST_F(Copies, NeverGivesARunIdOutTwiceWhateverTheClockSays) {
    StateStore store(_strWorking, _strPersistent);
    Transact(store, [&] {
        store.PutClock(Clock(3));
        store.AddOutcome(store.PutJob(Job("backup")), OpenRun(17));
    });
    EXPECT_EQ(store.Load().clock.uLastRun, 17U);
}

TEST_F(Copies, MayLieInAFolderThatIsReachedThroughALinkAndHasAnOddName) {
    fs::create_directory(_dir / "50%25 of?what#now");
    fs::create_directory_symlink(_dir / "50%25 of?what#now", _dir / "link");
    {
        StateStore store(_dir / "link/working", _dir / "link/persistent");
        AddJob(store, Job("backup"));
        store.Persist();
    }
    fs::remove(_dir / "link/working");
    StateStore store(_dir / "link/working", _dir / "link/persistent");
    EXPECT_EQ(store.Load().vecJobs.size(), 1U);
    EXPECT_EQ(store.Notes(), Notes());
}

TEST_F(Copies, CannotBeMadeWithoutAFolder) {
    EXPECT_EQ(ErrorOf([&] { StateStore store(_dir / "none/working", _strPersistent); }),
              _dir.Path() + "/none/working.new: cannot make: No such file or directory");
    StateStore store(_strWorking, _dir / "none/persistent");
    AddJob(store, Job("backup"));
    EXPECT_EQ(ErrorOf([&] { store.Persist(); }),
              _dir.Path() + "/none/persistent.new: cannot make: No such file or directory");
    EXPECT_TRUE(store.IsDirty());
}

TEST_F(Copies, IsNotPersistedWithinATransaction) {
    StateStore store(_strWorking, _strPersistent);
    AddJob(store, Job("backup"));
    store.Begin();
    store.PutJob(Job("other"));
    EXPECT_NE(ErrorOf([&] { store.Persist(); }), "");
    store.Commit();
    EXPECT_EQ(Others(), Notes());
    store.Persist();
    EXPECT_EQ(DescribePersistent(), Describe(store));
}
