/// A service that is killed, or whose calls fail, at any moment.

#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>

#include "tests/service/state/state_fixture.h"
#include "tests/support/shared_record.h"
#include "tests/support/syscall_killer.h"

namespace fs = std::filesystem;
using namespace state;

namespace {

/// What the child got through with.
support::SharedRecord& Told() {
    static support::SharedRecord record;
    return record;
}

void First(StateStore& store) {
    store.PutClock(Clock(5));
    store.AddOutcome(store.PutJob(Job("first")), OpenRun(5));
    store.UpdateRun(1, EndedRun(3));
    store.AddOutcome(1, OpenRun(4));
}

void Second(StateStore& store) {
    store.PutClock(Clock(6));
    store.AddOutcome(1, OpenRun(6));
    store.UpdateRun(1, EndedRun(4));
    store.ForgetJob(2);
}

/// Two transactions with the persistent copy brought up between them, on copies that are the same at the beginning.
class Kill : public StateFiles {
protected:
    void SetUp() override {
        {
            StateStore store(_strWorking, _strPersistent);
            Transact(store, [&] {
                store.PutClock(Clock(3));
                const std::int64_t iKey = store.PutJob(Job("backup"));
                for (int i = 0; i < 99; ++i) {
                    store.AddOutcome(iKey, Skip(i));
                }
                store.AddOutcome(iKey, OpenRun(3));
                store.PutJob(Job("other"));
            });
            store.Persist();
            _vecStates.push_back(Describe(store));
        }
        _strOldWorking = support::ReadFile(_strWorking);
        _strOldPersistent = support::ReadFile(_strPersistent);
        StateStore store(_strWorking, _strPersistent);
        Transact(store, [&] { First(store); });
        _vecStates.push_back(Describe(store));
        Transact(store, [&] { Second(store); });
        _vecStates.push_back(Describe(store));
    }

    void Reset() const {
        for (const fs::directory_entry& entry : fs::directory_iterator(_dir.Path())) {
            fs::remove_all(entry.path());
        }
        for (const auto& [strPath, strContent] :
             {std::pair(_strWorking, _strOldWorking), std::pair(_strPersistent, _strOldPersistent)}) {
            support::WriteFile(strPath, strContent);
            fs::permissions(strPath, fs::perms::owner_read | fs::perms::owner_write);
        }
        Told().Clear();
    }

    support::TracedBody Script(bool bWhole) const {
        return [this, bWhole] {
            StateStore store(_strWorking, _strPersistent);
            Told().Append("opened");
            Transact(store, [&] { First(store); });
            Told().Append("first");
            if (!bWhole) {
                return;
            }
            store.Persist();
            Told().Append("persisted");
            Transact(store, [&] { Second(store); });
            Told().Append("second");
        };
    }

    /// Which of the states it is; -1: none.
    int IndexOf(const std::string& strState) const {
        const auto it = std::find(_vecStates.begin(), _vecStates.end(), strState);
        EXPECT_NE(it, _vecStates.end()) << strState;
        return it == _vecStates.end() ? -1 : static_cast<int>(it - _vecStates.begin());
    }

    static bool WasTold(const char* szWhat) {
        const auto vecTold = Told().Texts();
        return std::find(vecTold.begin(), vecTold.end(), szWhat) != vecTold.end();
    }

    int PersistentIndex() const {
        return support::ReadFile(_strPersistent) == _strOldPersistent ? 0 : IndexOf(DescribePersistent());
    }

    /// @return the working copy's state.
    int LookAfterKill() {
        const int iPersistent = PersistentIndex();
        EXPECT_EQ(iPersistent, WasTold("persisted") ? 1 : std::max(0, iPersistent));
        EXPECT_LE(iPersistent, WasTold("first") ? 1 : 0);
        StateStore store(_strWorking, _strPersistent);
        EXPECT_EQ(store.Notes(), std::vector<std::string>());
        const int iTold = WasTold("second") ? 2 : WasTold("first") ? 1 : 0;
        const int iWorking = IndexOf(Describe(store));
        EXPECT_GE(iWorking, iTold);
        EXPECT_LE(iWorking, iTold + 1);
        EXPECT_TRUE(iWorking <= iPersistent || store.IsDirty()) << "a change would never come to the disk";
        return iWorking;
    }

    /// Kills the script before its system calls: what is before one is behind the one before.
    /// @param iOpeningStep  while the store is being opened, only before each so manieth.
    /// @return how often it was killed with each of the states.
    std::vector<int> KillEverywhere(bool bWhole, int iOpeningStep, const std::function<void()>& prepare) {
        std::vector<int> vecSeen(3);
        for (int iStop = 1; !HasFailure(); iStop += 2 * (WasTold("opened") ? 1 : iOpeningStep)) {
            SCOPED_TRACE("killed at stop " + std::to_string(iStop));
            Reset();
            prepare();
            if (!support::KillAtStop(Script(bWhole), iStop)) {
                break;
            }
            const int iSeen = LookAfterKill();
            ++vecSeen.at(static_cast<std::size_t>(std::max(0, iSeen)));
        }
        std::cout << "killed with the state before: " << vecSeen[0] << ", after the first commit: " << vecSeen[1]
                  << ", after the second: " << vecSeen[2] << "\n";
        return vecSeen;
    }

    std::vector<std::string> _vecStates;
    std::string _strOldWorking;
    std::string _strOldPersistent;
};

/// The calls that change something.
bool IsChange(long lNumber) {
    static const std::set<long> setCalls = {SYS_openat,    SYS_write,     SYS_pwrite64, SYS_ftruncate, SYS_fsync,
                                            SYS_fdatasync, SYS_fallocate, SYS_rename,   SYS_unlink,    SYS_fchmod};
    return setCalls.count(lNumber) != 0;
}

} // namespace

TEST_F(Kill, AnywhereLeavesTheStateBeforeOrAfterACommit) {
    const std::vector<int> vecSeen = KillEverywhere(true, 3, [] {});
    EXPECT_GT(vecSeen[0], 10);
    EXPECT_GT(vecSeen[1], 10);
    EXPECT_GT(vecSeen[2], 1);
}

TEST_F(Kill, AnywhereWhileTheWorkingCopyIsMadeLeavesThePersistentOne) {
    const std::vector<int> vecSeen = KillEverywhere(false, 2, [this] { fs::remove(_strWorking); });
    EXPECT_GT(vecSeen[0], 10);
    EXPECT_GT(vecSeen[1], 1);
}

TEST_F(Kill, LeavesNothingBehindThatTheNextServiceDoesNotRemove) {
    for (int iStop = 1;; iStop += 20) {
        Reset();
        if (!support::KillAtStop(Script(true), iStop)) {
            break;
        }
        StateStore store(_strWorking, _strPersistent);
        Transact(store, [&] { store.PutJob(Job("life goes on")); });
        store.Persist();
        EXPECT_EQ(Others(), std::vector<std::string>());
        EXPECT_EQ(DescribePersistent(), Describe(store));
    }
}

TEST_F(Kill, OfCallsLeavesTheStateBeforeAndTheNextAttemptSucceeds) {
    for (const int iErrno : {ENOSPC, EIO}) {
        std::map<std::string, int> mapFailed;
        for (int iCall = 1;; ++iCall) {
            SCOPED_TRACE("call " + std::to_string(iCall) + ": " + std::strerror(iErrno));
            Reset();
            const auto attempt = [](const char* szWhat, const std::function<void()>& body) {
                try {
                    body();
                    return true;
                } catch (const StateError& error) {
                    Told().Append(std::string(szWhat) + " failed");
                    Told().Append(error.what());
                    return false;
                }
            };
            const auto body = [&] {
                std::unique_ptr<StateStore> store;
                const auto open = [&] { store = std::make_unique<StateStore>(_strWorking, _strPersistent); };
                const auto change = [&] { Transact(*store, [&] { First(*store); }); };
                const auto persist = [&] { store->Persist(); };
                const bool bOpen = attempt("open", open) || attempt("open again", open);
                if (bOpen && !attempt("commit", change)) {
                    Told().Append(Describe(*store) == _vecStates[0] ? "undone" : "not undone");
                    attempt("commit again", change);
                }
                if (bOpen && !attempt("persist", persist)) {
                    for (const std::string& strName : Others()) {
                        Told().Append("left over");
                        Told().Append(strName);
                    }
                    Told().Append(support::ReadFile(_strPersistent) == _strOldPersistent ? "whole" : "replaced");
                    attempt("persist again", persist);
                }
            };
            const auto failed = support::FailCall(body, iCall, iErrno, IsChange);
            if (!failed) {
                break;
            }
            std::string strTold = "system call " + std::to_string(failed->lNumber);
            for (const std::string& strText : Told().Texts()) {
                strTold += "\n" + strText;
            }
            SCOPED_TRACE(strTold);
            for (const char* const szStep : {"open", "commit", "persist"}) {
                mapFailed[szStep] += WasTold((std::string(szStep) + " failed").c_str()) ? 1 : 0;
                EXPECT_FALSE(WasTold((std::string(szStep) + " again failed").c_str()));
            }
            EXPECT_FALSE(WasTold("not undone"));
            EXPECT_FALSE(WasTold("left over"));
            EXPECT_EQ(WasTold("replaced"),
                      WasTold("persist failed") &&
                          std::count(failed->vecBefore.begin(), failed->vecBefore.end(), SYS_rename) > 0);
            EXPECT_EQ(PersistentIndex(), 1);
            StateStore store(_strWorking, _strPersistent);
            EXPECT_EQ(store.Notes(), std::vector<std::string>());
            EXPECT_EQ(Describe(store), _vecStates[1]);
            ASSERT_FALSE(HasFailure());
        }
        std::cout << std::strerror(iErrno) << ": opening failed " << mapFailed["open"] << " times, a commit "
                  << mapFailed["commit"] << ", the persistent copy " << mapFailed["persist"] << "\n";
        EXPECT_GT(mapFailed["commit"], 3);
        EXPECT_GT(mapFailed["persist"], 3);
    }
}
