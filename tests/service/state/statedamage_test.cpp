/// Copies that are damaged, foreign, or not the service's alone.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <random>

#include "tests/service/state/state_fixture.h"
#include "tests/support/fake_clock.h"
#include "tests/support/forked.h"

namespace fs = std::filesystem;
using namespace state;

namespace {

using Notes = std::vector<std::string>;

constexpr const char* EMPTY = "clock  0 0 0 0\n";

/// A working copy that holds more than the persistent one.
class Damage : public StateFiles {
protected:
    void SetUp() override {
        {
            StateStore store(_strWorking, _strPersistent);
            Transact(store, [&] {
                store.PutClock(Clock(3));
                for (int i = 0; i < 20; ++i) {
                    store.AddOutcome(store.PutJob(Job("backup" + std::to_string(i))), OpenRun(3));
                }
            });
            store.Persist();
            _strOlder = Describe(store);
            Transact(store, [&] {
                store.PutJob(Job("newest"));
                for (int i = 0; i < 150; ++i) {
                    store.AddOutcome(1 + i % 3, Skip(i));
                }
            });
            _strNewer = Describe(store);
            _strUnclosed = support::ReadFile(_strWorking); // drops the lock, of which nothing here needs to know
        }
        _strClosed = support::ReadFile(_strWorking);
        _strPersisted = support::ReadFile(_strPersistent);
    }

    static void Put(const std::string& strPath, const std::string& strContent) {
        fs::remove_all(strPath);
        support::WriteFile(strPath, strContent);
        ASSERT_EQ(chmod(strPath.c_str(), 0600), 0);
    }

    void RemoveOthers() const {
        for (const std::string& strName : Others()) {
            fs::remove_all(_dir / strName);
        }
    }

    /// Opens the copies and expects that the working one was not used, for that reason.
    void ExpectOlder(const std::string& strWhy) {
        const support::FakeClock clock(1793000000);
        StateStore store(_strWorking, _strPersistent);
        EXPECT_EQ(store.Notes(),
                  Notes{_strWorking + " " + strWhy + ": set aside as " + _strWorking + ".damaged-1793000000"});
        EXPECT_TRUE(store.IsFresh());
        EXPECT_EQ(Describe(store), _strOlder);
        EXPECT_EQ(Others(), Notes{"working.damaged-1793000000"});
    }

    /// Whatever is in the files: nothing crashes, and what is opened can be worked with or says that it cannot.
    void ExpectUsable() {
        StateStore store(_strWorking, _strPersistent);
        try {
            Describe(store);
            Transact(store, [&] {
                for (const StoredJob& job : store.Load().vecJobs) {
                    store.AddOutcome(job.iKey, OpenRun(1000));
                    store.UpdateRun(job.iKey, EndedRun(3));
                    store.PutJob(job);
                }
                store.DropGoneBefore(1);
                store.PutJob(Job("another"));
            });
            store.Persist();
        } catch (const StateError& error) {
            EXPECT_NE(std::string(error.what()), "");
            EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
        }
    }

    std::string _strOlder;
    std::string _strNewer;
    std::string _strClosed;
    std::string _strUnclosed;
    std::string _strPersisted;
};

} // namespace

TEST_F(Damage, IsNoneWhereAServiceWasKilled) {
    Put(_strWorking, _strUnclosed);
    StateStore store(_strWorking, _strPersistent);
    EXPECT_EQ(store.Notes(), Notes());
    EXPECT_EQ(Describe(store), _strNewer);
}

TEST_F(Damage, IsAnEmptyFile) {
    Put(_strWorking, "");
    ExpectOlder("is not a state of this service");
}

TEST_F(Damage, IsAFileOfAnotherKind) {
    Put(_strWorking, std::string(10000, '{'));
    ExpectOlder("is damaged: cannot take the working copy: file is not a database");
}

TEST_F(Damage, IsAFolder) {
    fs::remove(_strWorking);
    fs::create_directory(_strWorking);
    support::WriteFile(_strWorking + "/file", "");
    ExpectOlder("is not a regular file");
}

TEST_F(Damage, IsALinkThatIsNotFollowed) {
    fs::rename(_strWorking, _dir / "target");
    const std::string strBefore = support::ReadFile(_dir / "target");
    fs::create_symlink(_dir / "target", _strWorking);
    {
        StateStore store(_strWorking, _strPersistent);
        ASSERT_EQ(store.Notes().size(), 1U);
        EXPECT_NE(store.Notes()[0].find(" is a symbolic link: set aside as "), std::string::npos);
        EXPECT_EQ(Describe(store), _strOlder);
    }
    EXPECT_EQ(support::ReadFile(_dir / "target"), strBefore);
    EXPECT_FALSE(fs::is_symlink(_strWorking));
}

TEST_F(Damage, IsADanglingLinkThroughWhichNothingIsMade) {
    fs::remove(_strWorking);
    fs::create_symlink("nowhere", _strWorking);
    ExpectOlder("is a symbolic link");
    EXPECT_FALSE(support::Exists(_dir / "nowhere"));
}

TEST_F(Damage, IsAFileWithAnotherName) {
    fs::create_hard_link(_strWorking, _strWorking + ".damaged-1");
    const support::FakeClock clock(1793000000);
    StateStore store(_strWorking, _strPersistent);
    EXPECT_EQ(store.Notes(),
              Notes{_strWorking + " has 2 hard links: set aside as " + _strWorking + ".damaged-1793000000"});
    EXPECT_EQ(Describe(store), _strOlder);
}

TEST_F(Damage, IsAFileThatOthersMayWrite) {
    ASSERT_EQ(chmod(_strWorking.c_str(), 0620), 0);
    ExpectOlder("is writable by group or others");
}

TEST_F(Damage, IsAJournalThatOthersMayWrite) {
    Put(_strWorking + "-journal", "journal");
    ASSERT_EQ(chmod((_strWorking + "-journal").c_str(), 0602), 0);
    StateStore store(_strWorking, _strPersistent);
    ASSERT_EQ(store.Notes().size(), 1U);
    EXPECT_NE(store.Notes()[0].find(" has a journal that is writable by group or others: "), std::string::npos);
    EXPECT_EQ(Others().size(), 2U);
    EXPECT_EQ(support::ReadFile(_dir / Others().back()), "journal");
    EXPECT_EQ(Describe(store), _strOlder);
}

TEST_F(Damage, IsAVersionThatIsNotKnown) {
    Alter(_strWorking, "PRAGMA user_version = 2");
    ExpectOlder("is of version 2, of a newer service; this one knows version 1");
    RemoveOthers();
    Alter(_strWorking, "PRAGMA user_version = 0");
    ExpectOlder("is of version 0; this service knows version 1");
}

TEST_F(Damage, IsAFileThatAsksToBeReadOnly) {
    for (std::string* const pstrContent : {&_strClosed, &_strPersisted}) {
        (*pstrContent)[18] = 3; // the version of the format for writing
    }
    Put(_strWorking, _strClosed);
    ExpectOlder("is damaged: of a format that no service writes");
    fs::remove(_strWorking);
    Put(_strPersistent, _strPersisted);
    StateStore store(_strWorking, _strPersistent);
    EXPECT_EQ(store.Notes().size(), 1U);
    EXPECT_EQ(Describe(store), EMPTY);
}

TEST_F(Damage, IsAnotherProgramsDatabase) {
    Alter(_strWorking, "PRAGMA application_id = 7");
    ExpectOlder("is not a state of this service");
}

TEST_F(Damage, IsATableOrTriggerMoreOrLess) {
    for (const char* const szSql :
         {"CREATE TABLE more (a)", "CREATE TRIGGER t AFTER INSERT ON jobs BEGIN DELETE FROM outcomes; END",
          "CREATE VIEW v AS SELECT 1", "DROP INDEX openRuns", "ALTER TABLE jobs ADD COLUMN more TEXT"}) {
        SCOPED_TRACE(szSql);
        Put(_strWorking, _strClosed);
        Alter(_strWorking, szSql);
        ExpectOlder("has other tables than its version has");
        RemoveOthers();
    }
}

TEST_F(Damage, OfBothCopiesLeadsToAnEmptyState) {
    Put(_strWorking, "x");
    Alter(_strPersistent, "PRAGMA user_version = 3");
    const support::FakeClock clock(1793000000);
    StateStore store(_strWorking, _strPersistent);
    EXPECT_EQ(
        store.Notes(),
        (Notes{_strWorking + " is not a state of this service: set aside as " + _strWorking + ".damaged-1793000000",
               _strPersistent + " is of version 3, of a newer service; this one knows version 1: set aside as " +
                   _strPersistent + ".damaged-1793000000"}));
    EXPECT_EQ(Describe(store), EMPTY);
    EXPECT_EQ(Others(), (Notes{"persistent.damaged-1793000000", "working.damaged-1793000000"}));
    EXPECT_FALSE(support::Exists(_strPersistent));
}

TEST_F(Damage, IsKeptThreeTimes) {
    const support::FakeClock clock(1793000000);
    for (const char* const szName : {"working.damaged-9", "working.damaged-9-journal", "working.damaged-10",
                                     "working.damaged-by-hand", "working.damaged-"}) {
        support::WriteFile(_dir / szName, "");
    }
    for (int i = 0; i < 3; ++i) {
        Put(_strWorking, "x");
        StateStore store(_strWorking, _strPersistent);
        EXPECT_EQ(store.Notes().size(), 1U);
    }
    EXPECT_EQ(Others(), (Notes{"working.damaged-", "working.damaged-1793000000", "working.damaged-1793000000-1",
                               "working.damaged-1793000000-2", "working.damaged-by-hand"}));
}

TEST_F(Damage, IsAFileCutAtAnyLength) {
    for (std::size_t uSize = 0; uSize < _strUnclosed.size(); uSize += 1021) {
        SCOPED_TRACE("cut to " + std::to_string(uSize) + " of " + std::to_string(_strUnclosed.size()));
        Put(_strWorking, _strUnclosed.substr(0, uSize));
        StateStore store(_strWorking, _strPersistent);
        const std::string strState = Describe(store);
        if (uSize + 4096 <= _strUnclosed.size()) {
            EXPECT_EQ(store.Notes().size(), 1U);
            EXPECT_TRUE(store.IsFresh());
        }
        EXPECT_TRUE(strState == _strOlder || (!store.IsFresh() && strState == _strNewer)) << strState;
        RemoveOthers();
    }
}

TEST_F(Damage, ThatComesToLightLaterIsNotPersistedAndIsFoundAtTheNextStart) {
    Put(_strWorking, _strClosed);
    const std::int64_t iKey = 1;
    for (std::size_t uPage = 4096; uPage < _strClosed.size(); uPage += 4096) {
        // The pages of the ledger are those that hold the label of its runs; SQLite's page of a table is of kind 10.
        if (_strClosed[uPage] == 10 && _strClosed.substr(uPage, 4096).find("assure") != std::string::npos) {
            std::string strDamaged = _strClosed;
            strDamaged.replace(uPage, 64, 64, '\xff');
            Put(_strWorking, strDamaged);
            break;
        }
    }
    {
        StateStore store(_strWorking, _strPersistent);
        EXPECT_EQ(store.Notes(), Notes());
        EXPECT_TRUE(store.IsDirty());
        EXPECT_EQ(ErrorOf([&] { store.History(iKey, 10); }),
                  _strWorking + ": cannot read a ledger: database disk image is malformed");
        EXPECT_EQ(ErrorOf([&] { store.Persist(); }),
                  _strWorking + ": damaged, and not to take the place of the persistent copy");
    }
    EXPECT_EQ(support::ReadFile(_strPersistent), _strPersisted);
    StateStore store(_strWorking, _strPersistent);
    EXPECT_EQ(store.Notes().size(), 1U);
    EXPECT_EQ(Describe(store), _strOlder);
}

TEST_F(Damage, ThatLoadingComesUponIsDealtWithAtOnce) {
    for (std::size_t uPage = 4096; uPage < _strClosed.size(); uPage += 4096) {
        if (_strClosed[uPage] == 13 && _strClosed.substr(uPage, 4096).find("backup7.conf") != std::string::npos) {
            std::string strDamaged = _strClosed;
            strDamaged.replace(uPage, 64, 64, '\xff');
            Put(_strWorking, strDamaged);
            break;
        }
    }
    StateStore store(_strWorking, _strPersistent);
    EXPECT_FALSE(store.IsFresh());
    EXPECT_EQ(Describe(store), _strOlder);
    EXPECT_TRUE(store.IsFresh());
    EXPECT_EQ(store.Notes().size(), 1U);
    Transact(store, [&] { store.PutJob(Job("life goes on")); });
}

TEST_F(Damage, IsAPersistentCopyCutAtAnyLength) {
    for (std::size_t uSize = 0; uSize + 4096 <= _strPersisted.size(); uSize += 1021) {
        SCOPED_TRACE("cut to " + std::to_string(uSize));
        fs::remove(_strWorking);
        Put(_strPersistent, _strPersisted.substr(0, uSize));
        StateStore store(_strWorking, _strPersistent);
        EXPECT_EQ(store.Notes().size(), 1U);
        EXPECT_EQ(Describe(store), EMPTY);
        RemoveOthers();
    }
}

TEST_F(Damage, OfAnyBytesIsSurvived) {
    const unsigned uSeed = std::random_device()();
    std::cout << "seed " << uSeed << "\n";
    std::mt19937 random(uSeed);
    const auto damaged = [&](std::string strContent) {
        const auto at = [&](std::size_t uCount) {
            return std::uniform_int_distribution<std::size_t>(0, uCount - 1)(random);
        };
        for (std::size_t i = at(12) + 1; i > 0; --i) {
            // Half of it where SQLite keeps its own numbers, at the beginnings of pages.
            const std::size_t uWhere =
                at(2) == 0 ? at(strContent.size()) : at(strContent.size() / 4096) * 4096 + at(120);
            strContent[uWhere] = static_cast<char>(at(3) == 0 ? 255 : at(256));
        }
        return strContent;
    };
    int iFresh = 0;
    for (int i = 0; i < 150; ++i) {
        SCOPED_TRACE("seed " + std::to_string(uSeed) + ", round " + std::to_string(i));
        Put(_strWorking, i % 3 == 2 ? "" : damaged(i % 3 == 0 ? _strClosed : _strUnclosed));
        Put(_strPersistent, i % 3 == 2 ? damaged(_strPersisted) : _strPersisted);
        ExpectUsable();
        iFresh += Others().empty() ? 0 : 1;
        RemoveOthers();
    }
    EXPECT_GT(iFresh, 50) << "hardly anything was damaged";
}

TEST_F(Damage, OfARowCostsThatRowOnly) {
    Alter(_strWorking, "PRAGMA ignore_check_constraints = ON;"
                       "UPDATE jobs SET startup = -1 WHERE job = 1;"
                       "UPDATE jobs SET overdueReported = 2 WHERE job = 2;"
                       "UPDATE jobs SET name = printf('%2000s', 'x') WHERE job = 3;"
                       "UPDATE jobs SET outcomes = 9223372036854775807 WHERE job = 4;"
                       "INSERT INTO jobs VALUES (-5, 1, 1, 0, 0, 0, 'f', 'p', 'n', 'f', '*', '{}');"
                       "UPDATE outcomes SET otherPid = -1 WHERE job = 5;"
                       "UPDATE outcomes SET kind = 4 WHERE job = 6;"
                       "UPDATE outcomes SET reason = 1000000000000 WHERE job = 7;"
                       "UPDATE outcomes SET job = 1000 WHERE job = 8;"
                       "UPDATE clock SET lastRun = -1;");
    const auto expectRest = [&](StateStore& store) {
        const auto stored = store.Load();
        EXPECT_EQ(stored.vecJobs.size(), 17U);
        EXPECT_EQ(stored.vecJobs.front().iKey, 5);
        EXPECT_EQ(stored.vecOpenRuns.size(), 12U);
        EXPECT_EQ(stored.clock.uLastRun, 3U);
    };
    {
        StateStore store(_strWorking, _strPersistent);
        EXPECT_EQ(store.Notes(), Notes());
        expectRest(store);
        ASSERT_EQ(store.Notes().size(), 10U);
        EXPECT_EQ(store.Notes()[0], _strWorking + ": the clock makes no sense and is dropped");
        EXPECT_EQ(store.Notes()[1], _strWorking + ": job -5 makes no sense and is dropped");
        EXPECT_EQ(store.Notes()[9], _strWorking + ": more makes no sense and is dropped");
        EXPECT_TRUE(store.History(7, 10).empty());
        Transact(store, [&] { store.PutClock(Clock(3)); });
        EXPECT_NE(store.Load().vecJobs.size(), 0U);
    }
    StateStore store(_strWorking, _strPersistent);
    expectRest(store);
    EXPECT_EQ(store.Notes(), Notes());
}

TEST_F(Damage, IsNotThatAnotherServiceHasTheFile) {
    StateStore store(_strWorking, _strPersistent);
    const std::string strError = _strWorking + ": cannot take the working copy: database is locked";
    const auto expectLocked = [&](int iFdOut) {
        const std::string strTold = ErrorOf([&] { StateStore second(_strWorking, _strPersistent); });
        return write(iFdOut, strTold.data(), strTold.size()) > 0 ? 0 : 1;
    };
    EXPECT_EQ(support::RunForked(expectLocked).strOutput, strError);
    EXPECT_EQ(ErrorOf([&] { StateStore second(_strWorking, _strPersistent); }), strError);
    EXPECT_EQ(support::RunForked(expectLocked).strOutput, strError) << "the lock went with the second store";
    EXPECT_EQ(Others(), Notes());
    EXPECT_EQ(Describe(store), _strNewer);
}
