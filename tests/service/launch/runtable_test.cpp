#include "service/launch/runtable.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>

#include "service/launch/processid.h"
#include "service/launch/runfile.h"
#include "service/launch/runslot.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/case_name.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

constexpr const char* BOOT = "4d7f1c1e-boot";

class RunTables : public testing::Test {
protected:
    support::CapturedSyslog _log;
    support::TempDir _dir;
    const std::string _strPath = _dir / "runs";

    RunStage StageIn(const RunTable& table, RunId uRun) {
        const std::optional<RunRecord> record = table.Find(uRun);
        return record ? record->eStage : RunStage::Free;
    }
};

TEST_F(RunTables, BeginEmptyInAFileOfTheServicesOwn) {
    const RunTable table(_strPath, BOOT);
    EXPECT_TRUE(table.Records().empty());
    EXPECT_EQ(support::ModeOf(_strPath), 0600);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(_dir.Path()), {}), 1);
}

TEST_F(RunTables, HoldALaunchOnce) {
    RunTable table(_strPath, BOOT);
    EXPECT_TRUE(table.Offer(7));
    EXPECT_FALSE(table.Offer(7));
    EXPECT_FALSE(table.Offer(0));
    ASSERT_EQ(table.Records().size(), 1U);
    EXPECT_EQ(table.Records()[0].uRun, 7U);
    EXPECT_EQ(table.Records()[0].eStage, RunStage::Offered);
    EXPECT_FALSE(table.Find(8));
}

TEST_F(RunTables, GiveASlotToAnotherLaunchOnceItIsReleased) {
    RunTable table(_strPath, BOOT);
    for (RunId uRun = 1; uRun <= RUN_SLOTS; ++uRun) {
        ASSERT_TRUE(table.Offer(uRun));
    }
    EXPECT_FALSE(table.Offer(RUN_SLOTS + 1));
    table.Release(17);
    EXPECT_FALSE(table.Find(17));
    EXPECT_TRUE(table.Offer(RUN_SLOTS + 1));
    EXPECT_EQ(table.Records().size(), RUN_SLOTS);
    EXPECT_FALSE(table.Offer(RUN_SLOTS + 2));
}

TEST_F(RunTables, FollowALaunchThroughItsStages) {
    RunTable table(_strPath, BOOT);
    table.Offer(5);
    RunChild child(table, 5);
    EXPECT_FALSE(child.Begin());
    EXPECT_TRUE(child.Take(getpid(), StartTimeOf(getpid())));
    EXPECT_FALSE(child.Take(getpid(), 1));
    EXPECT_EQ(StageIn(table, 5), RunStage::Waiting);
    EXPECT_TRUE(child.Begin());
    EXPECT_FALSE(child.Begin());
    child.SetProgram(4711, 99);
    EXPECT_EQ(StageIn(table, 5), RunStage::Begun);
    EXPECT_TRUE(child.End({EndKind::Signaled, 9, 1, 2, 3, 4, 5}));
    EXPECT_FALSE(child.End({}));
    const std::optional<RunRecord> record = table.Find(5);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->eStage, RunStage::Ended);
    EXPECT_EQ(record->pidChild, getpid());
    EXPECT_EQ(record->uChildStart, StartTimeOf(getpid()));
    EXPECT_EQ(record->pidProgram, 4711);
    EXPECT_EQ(record->uProgramStart, 99U);
    EXPECT_EQ(record->end.eKind, EndKind::Signaled);
    EXPECT_EQ(record->end.iCode, 9);
    EXPECT_EQ(record->end.iStartedUsec, 1);
    EXPECT_EQ(record->end.iEndedUsec, 2);
    EXPECT_EQ(record->end.iDurationUsec, 3);
    EXPECT_EQ(record->end.iCpuUsec, 4);
    EXPECT_EQ(record->end.iMaxRssKib, 5);
}

TEST_F(RunTables, TakeALaunchBackBeforeItsChildTakesIt) {
    RunTable table(_strPath, BOOT);
    table.Offer(5);
    RunChild child(table, 5);
    EXPECT_TRUE(table.Revoke(5));
    EXPECT_TRUE(table.Revoke(5));
    EXPECT_FALSE(child.Take(getpid(), 1));
    EXPECT_FALSE(child.End({}));
    EXPECT_EQ(StageIn(table, 5), RunStage::Revoked);
    EXPECT_FALSE(table.Revoke(6));
}

TEST_F(RunTables, TakeAWaitingLaunchBackOnlyWhenItsChildIsGone) {
    RunTable table(_strPath, BOOT);
    table.Offer(5);
    RunChild child(table, 5);
    child.Take(getpid(), StartTimeOf(getpid()));
    EXPECT_FALSE(table.Revoke(5));
    table.Offer(6);
    RunChild former(table, 6);
    former.Take(getpid(), StartTimeOf(getpid()) - 1); // a process of the same number, long ago
    EXPECT_TRUE(table.Revoke(6));
    EXPECT_FALSE(former.Begin());
}

TEST_F(RunTables, CountAChildThatNobodyReapedAsGone) {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(0);
    }
    siginfo_t info = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    EXPECT_NE(StartTimeOf(pid), 0U);
    EXPECT_FALSE(IsRunning(pid, StartTimeOf(pid)));
    support::WaitFor(pid);
    EXPECT_EQ(StartTimeOf(pid), 0U);
    EXPECT_TRUE(IsRunning(getpid(), StartTimeOf(getpid())));
}

TEST_F(RunTables, DoNotTakeABegunLaunchBack) {
    RunTable table(_strPath, BOOT);
    table.Offer(5);
    RunChild child(table, 5);
    child.Take(1 << 30, 1);
    child.Begin();
    EXPECT_FALSE(table.Revoke(5));
    EXPECT_EQ(StageIn(table, 5), RunStage::Begun);
}

TEST_F(RunTables, KeepALateChildAwayFromAnothersLaunch) {
    RunTable table(_strPath, BOOT);
    table.Offer(1);
    RunChild late(table, 1);
    RunChild(table, 1).Take(4711, 1);
    RunChild(table, 1).End({});
    table.Release(1);
    table.Offer(2); // the slot that was just given back
    EXPECT_FALSE(late.Take(4711, 1));
    EXPECT_FALSE(late.Begin());
    EXPECT_FALSE(late.End({}));
    EXPECT_EQ(StageIn(table, 2), RunStage::Offered);
}

TEST_F(RunTables, OutliveTheServiceButNotTheBoot) {
    {
        RunTable table(_strPath, BOOT);
        EXPECT_TRUE(table.IsNew());
        table.Offer(5);
        table.Offer(6);
        table.Release(5);
    }
    {
        RunTable table(_strPath, BOOT);
        EXPECT_FALSE(table.IsNew());
        ASSERT_EQ(table.Records().size(), 1U);
        EXPECT_EQ(table.Records()[0].uRun, 6U);
        EXPECT_FALSE(table.Offer(6));
        EXPECT_TRUE(table.Offer(7));
        EXPECT_EQ(table.Records().size(), 2U);
    }
    const RunTable table(_strPath, "another boot");
    EXPECT_TRUE(table.IsNew());
    EXPECT_TRUE(table.Records().empty());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(_dir.Path()), {}), 1);
}

TEST_F(RunTables, AreEitherTakenBackOrBegunHoweverManyProcessesRace) {
    constexpr std::size_t RUNS = 3000;
    constexpr int CHILDREN = 4;
    using Counts = std::array<std::atomic<int>, RUNS + 1>;
    void* const pMemory = mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pMemory, MAP_FAILED);
    Counts& aBegun = *new (pMemory) Counts{};
    RunTable table(_strPath, BOOT);
    for (RunId uRun = 1; uRun <= RUNS; ++uRun) {
        table.Offer(uRun);
    }
    for (int iChild = 0; iChild < CHILDREN; ++iChild) {
        if (fork() == 0) {
            for (RunId uRun = 1; uRun <= RUNS; ++uRun) {
                RunChild child(table, uRun);
                aBegun[uRun] += child.Take(getpid(), StartTimeOf(getpid())) && child.Begin() ? 1 : 0;
            }
            _exit(0);
        }
    }
    std::array<bool, RUNS + 1> abRevoked{};
    for (RunId uRun = RUNS; uRun >= 1; --uRun) { // towards the others, so that they meet
        abRevoked[uRun] = table.Revoke(uRun);
    }
    for (int iChild = 0; iChild < CHILDREN; ++iChild) {
        EXPECT_EQ(support::WaitFor(-1), 0);
    }
    int iRevoked = 0;
    for (RunId uRun = 1; uRun <= RUNS; ++uRun) {
        EXPECT_EQ(aBegun[uRun] + (abRevoked[uRun] ? 1 : 0), 1) << uRun;
        EXPECT_EQ(StageIn(table, uRun), abRevoked[uRun] ? RunStage::Revoked : RunStage::Begun) << uRun;
        iRevoked += abRevoked[uRun] ? 1 : 0;
    }
    EXPECT_GT(iRevoked, 0);
    munmap(pMemory, sizeof(Counts));
}

struct Damage {
    const char* szName;
    std::function<void(const std::string&)> spoil;
    const char* szReason;
};

void Overwrite(const std::string& strPath, std::streamoff iOffset, const std::string& strBytes) {
    std::fstream fs(strPath, std::ios::in | std::ios::out);
    fs.seekp(iOffset);
    fs << strBytes;
}

class DamagedRunTables : public RunTables, public testing::WithParamInterface<Damage> {};

TEST_P(DamagedRunTables, AreSetAsideWithAMessageAndMadeAnew) {
    RunTable(_strPath, BOOT).Offer(5);
    GetParam().spoil(_strPath);
    RunTable table(_strPath, BOOT);
    EXPECT_TRUE(table.IsNew());
    EXPECT_TRUE(table.Records().empty());
    EXPECT_TRUE(table.Offer(5));
    const std::vector<std::string> vecMessages = _log.Take();
    ASSERT_EQ(vecMessages.size(), 1U);
    const std::string strBegin =
        "<4>runfile:1 " + _strPath + " is no run table of this service: " + GetParam().szReason + "; it is kept as ";
    EXPECT_EQ(vecMessages[0].rfind(strBegin + _strPath + ".damaged-", 0), 0U) << vecMessages[0];
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(vecMessages[0].substr(strBegin.size()))));
}

INSTANTIATE_TEST_SUITE_P(
    Each, DamagedRunTables,
    testing::Values(
        Damage{"Mode", [](const std::string& strPath) { chmod(strPath.c_str(), 0640); }, "its mode is not 0600"},
        Damage{"Size", [](const std::string& strPath) { EXPECT_EQ(truncate(strPath.c_str(), 100), 0); },
               "it is of another size"},
        Damage{"HardLink",
               [](const std::string& strPath) { EXPECT_EQ(link(strPath.c_str(), (strPath + ".2").c_str()), 0); },
               "it has another name, too"},
        Damage{"SymbolicLink",
               [](const std::string& strPath) {
                   std::filesystem::rename(strPath, strPath + ".real");
                   std::filesystem::create_symlink(strPath + ".real", strPath);
               },
               "Too many levels of symbolic links"},
        Damage{"Folder",
               [](const std::string& strPath) {
                   std::filesystem::remove(strPath);
                   std::filesystem::create_directory(strPath);
               },
               "Is a directory"},
        Damage{"Pipe",
               [](const std::string& strPath) {
                   std::filesystem::remove(strPath);
                   EXPECT_EQ(mkfifo(strPath.c_str(), 0600), 0);
               },
               "it is no regular file"},
        Damage{"Head", [](const std::string& strPath) { Overwrite(strPath, 0, "x"); }, "its head is of another kind"},
        Damage{"Version", [](const std::string& strPath) { Overwrite(strPath, 8, "\2"); },
               "its head is of another kind"},
        Damage{"Stage", [](const std::string& strPath) { Overwrite(strPath, 128, "\x2f"); }, "it holds what cannot be"},
        Damage{"StageOfNoRun", [](const std::string& strPath) { Overwrite(strPath, 128, "\1"); },
               "it holds what cannot be"},
        Damage{"SameRunTwice", [](const std::string& strPath) { Overwrite(strPath, 256, "\x29"); },
               "it holds what cannot be"},
        Damage{"EndKind", [](const std::string& strPath) { Overwrite(strPath, 128 + 32, "\x2f"); },
               "it holds what cannot be"}),
    support::CaseName());

TEST_F(RunTables, RefuseAPlaceWhereTheyCannotBe) {
    EXPECT_THROW(RunTable(_dir / "missing/runs", BOOT), std::system_error);
    EXPECT_THROW(RunTable(_strPath, std::string(200, 'x')), std::runtime_error);
}

} // namespace
