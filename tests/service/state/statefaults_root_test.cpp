/// Copies of other owners, and on file systems that are full or read-only.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/platform/private_mounts.h"
#include "tests/service/state/state_fixture.h"

namespace fs = std::filesystem;
using namespace state;

namespace {

using Notes = std::vector<std::string>;

/// Each copy in a folder that a file system can be mounted on.
class Faults : public ::testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        fs::create_directory(_strMemory);
        fs::create_directory(_strDisk);
        _mounts = std::make_unique<support::PrivateMounts>();
    }

    /// A store whose first job is persisted.
    std::unique_ptr<StateStore> MakeStore() {
        auto store = std::make_unique<StateStore>(_strWorking, _strPersistent);
        Transact(*store, [&] { store->PutJob(Job("first")); });
        store->Persist();
        return store;
    }

    static void FillUp(const std::string& strFile) {
        std::ofstream fs(strFile, std::ios::binary);
        const std::string strBlock(4096, 'x');
        while (fs << strBlock << std::flush) {
        }
    }

    static std::size_t CountEntries(const std::string& strFolder) {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(strFolder), fs::directory_iterator()));
    }

    /// Expects that the persistent copy cannot be brought up, and that nothing has changed.
    void ExpectNotPersisted(StateStore& store, const std::string& strReason) const {
        const std::string strBefore = support::ReadFile(_strPersistent);
        const std::size_t uEntries = CountEntries(_strDisk);
        const std::string strError = ErrorOf([&] { store.Persist(); });
        EXPECT_NE(strError.find(_strDisk + "/persistent.new: cannot "), std::string::npos) << strError;
        EXPECT_NE(strError.find(strReason), std::string::npos) << strError;
        EXPECT_EQ(support::ReadFile(_strPersistent), strBefore);
        EXPECT_EQ(CountEntries(_strDisk), uEntries);
        EXPECT_TRUE(store.IsDirty());
    }

    const support::TempDir _dir;
    const std::string _strMemory = _dir / "memory";
    const std::string _strDisk = _dir / "disk";
    const std::string _strWorking = _strMemory + "/working";
    const std::string _strPersistent = _strDisk + "/persistent";
    std::unique_ptr<support::PrivateMounts> _mounts;
};

} // namespace

TEST_F(Faults, OfOwnersSetACopyAside) {
    MakeStore();
    ASSERT_EQ(chown(_strWorking.c_str(), 12345, 0), 0);
    ASSERT_EQ(chown(_strPersistent.c_str(), 54321, 0), 0);
    StateStore store(_strWorking, _strPersistent);
    ASSERT_EQ(store.Notes().size(), 2U);
    EXPECT_NE(store.Notes()[0].find("/working belongs to uid 12345: set aside as "), std::string::npos);
    EXPECT_NE(store.Notes()[1].find("/persistent belongs to uid 54321: set aside as "), std::string::npos);
    EXPECT_TRUE(store.Load().vecJobs.empty());
}

TEST_F(Faults, OfSpaceUndoACommit) {
    _mounts->MountMemory(_strMemory, "size=256k");
    const auto store = MakeStore();
    const std::string strBefore = Describe(*store);
    FillUp(_strMemory + "/ballast");
    const auto change = [&] {
        StoredJob job = Job("large");
        job.strSchedule.assign(50000, 'x');
        Transact(*store, [&] { store->PutJob(job); });
    };
    EXPECT_NE(ErrorOf(change).find("database or disk is full"), std::string::npos);
    EXPECT_EQ(Describe(*store), strBefore);
    EXPECT_FALSE(store->IsDirty());
    fs::remove(_strMemory + "/ballast");
    change();
    EXPECT_EQ(store->Load().vecJobs.size(), 2U);
}

TEST_F(Faults, OfSpaceInTheMiddleOfAGreatTransactionUndoAllOfIt) {
    _mounts->MountMemory(_strMemory, "size=512k");
    const auto store = MakeStore();
    const std::string strBefore = Describe(*store);
    EXPECT_NE(ErrorOf([&] {
                  Transact(*store, [&] {
                      for (int i = 0; i < 10000; ++i) {
                          store->AddOutcome(store->PutJob(Job(std::to_string(i))), OpenRun(1));
                      }
                  });
              }).find("database or disk is full"),
              std::string::npos);
    EXPECT_EQ(Describe(*store), strBefore);
    Transact(*store, [&] { store->PutJob(Job("small")); });
    EXPECT_EQ(store->Load().vecJobs.size(), 2U);
}

TEST_F(Faults, OfSpaceLeaveThePersistentCopyWhole) {
    _mounts->MountMemory(_strDisk, "size=256k");
    const auto store = MakeStore();
    Transact(*store, [&] { store->PutJob(Job("second")); });
    FillUp(_strDisk + "/ballast");
    ExpectNotPersisted(*store, "database or disk is full");
    fs::remove(_strDisk + "/ballast");
    store->Persist();
    fs::remove(_strWorking);
    fs::remove(_strWorking + "-journal");
    EXPECT_EQ(StateStore(_strWorking, _strPersistent).Load().vecJobs.size(), 2U);
}

TEST_F(Faults, OfInodesLeaveThePersistentCopyWhole) {
    _mounts->MountMemory(_strDisk, "nr_inodes=3"); // the folder, the old file, and one more
    const auto store = MakeStore();
    Transact(*store, [&] { store->PutJob(Job("second")); });
    support::WriteFile(_strDisk + "/ballast", "");
    ExpectNotPersisted(*store, "No space left on device");
}

TEST_F(Faults, OfADiskThatIsReadOnlyLeaveThePersistentCopyWhole) {
    const auto store = MakeStore();
    Transact(*store, [&] { store->PutJob(Job("second")); });
    _mounts->MakeReadOnly(_strDisk);
    ExpectNotPersisted(*store, "Read-only file system");
}

TEST_F(Faults, OfAPersistentCopyThatCannotBeSetAsideKeepNobodyFromWorking) {
    support::WriteFile(_strPersistent, std::string(5000, 'x'));
    _mounts->MakeReadOnly(_strDisk);
    StateStore store(_strWorking, _strPersistent);
    ASSERT_EQ(store.Notes().size(), 1U);
    EXPECT_NE(store.Notes()[0].find("cannot set aside: Read-only file system: it is not used"), std::string::npos);
    Transact(store, [&] { store.PutJob(Job("first")); });
    EXPECT_EQ(support::ReadFile(_strPersistent), std::string(5000, 'x'));
}

TEST_F(Faults, OfAReadOnlyDiskDoNotMatterToReadingThePersistentCopy) {
    MakeStore();
    fs::remove(_strWorking);
    _mounts->MakeReadOnly(_strDisk);
    StateStore store(_strWorking, _strPersistent);
    EXPECT_EQ(store.Notes(), Notes());
    EXPECT_EQ(store.Load().vecJobs.size(), 1U);
}

TEST_F(Faults, OfAWorkingCopyThatIsReadOnlyAreToldAndNoDamage) {
    MakeStore();
    _mounts->MakeReadOnly(_strMemory);
    EXPECT_EQ(ErrorOf([&] { StateStore store(_strWorking, _strPersistent); }),
              _strWorking + ": cannot be written: Read-only file system");
    EXPECT_EQ(CountEntries(_strMemory), 1U);
}
