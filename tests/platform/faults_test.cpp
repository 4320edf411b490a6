#include "tests/platform/faults.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <set>

#include "platform/vlibc.h"
#include "platform/vukojson.h"
#include "platform/vukorandom.h"
#include "platform/vukosdk.h"
#include "tests/platform/errors.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

using support::ReadFile;
using support::WithMarkedErrno;

class Faults : public testing::Test {
protected:
    void SetUp() override { support::ResetFaults(); }
    void TearDown() override { support::ResetFaults(); }

    /// toFile() over an old file, durable, with some call failing.
    void ExpectNotWritten(int iExpected) {
        int iErrno = 0;
        EXPECT_FALSE(WithMarkedErrno([&] { return VUKO::JSON::toFile("new", _dir / "file", true); }, iErrno));
        support::ExpectFailedWith(iErrno, iExpected);
        EXPECT_STREQ(VLIBCErrorGetFile(), "replacefile.cpp");
        support::ResetFaults();
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(_dir.Path()), {}), 1) << "a file is left";
    }

    support::TempDir _dir;
};

TEST_F(Faults, OfForkReachTheCallerAndLeaveItsSignalMask) {
    sigset_t setBefore;
    sigset_t setAfter;
    pthread_sigmask(SIG_SETMASK, nullptr, &setBefore);
    support::Fail("fork", EAGAIN);
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCProcForkEx(71); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, EAGAIN);
    pthread_sigmask(SIG_SETMASK, nullptr, &setAfter);
    for (int iSignal = 1; iSignal < NSIG; ++iSignal) {
        EXPECT_EQ(sigismember(&setBefore, iSignal), sigismember(&setAfter, iSignal)) << iSignal;
    }
}

TEST_F(Faults, OfForkLeaveNothingOfAProgramToStart) {
    const std::vector<int> vecBefore = support::OpenDescriptors();
    support::Fail("vfork", EAGAIN);
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([] { return VLIBCExec("/bin/true", static_cast<char*>(nullptr)); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, EAGAIN);
    EXPECT_EQ(support::OpenDescriptors(), vecBefore);
}

TEST_F(Faults, OfEveryStepLeaveTheOldJsonFile) {
    support::WriteFile(_dir / "file", "old");
    for (const auto& [szCall, iSpared] : std::vector<std::pair<const char*, int>>{
             {"open", 0}, {"write", 0}, {"fchmod", 0}, {"fchmod", 1}, {"fsync", 0}, {"renameat", 0}}) {
        support::Fail(szCall, EIO, iSpared);
        ExpectNotWritten(EIO);
        EXPECT_EQ(ReadFile(_dir / "file"), "old") << szCall;
    }
}

TEST_F(Faults, OfTheFoldersSyncAreToldAlthoughTheNewFileStands) {
    support::WriteFile(_dir / "file", "old");
    support::Fail("fsync", EIO, 1);
    ExpectNotWritten(EIO);
    EXPECT_EQ(ReadFile(_dir / "file"), "\"new\"\n");
}

TEST_F(Faults, DoNotHideThatAFileIsSyncedBeforeItIsRenamed) {
    const auto Steps = [&](bool bDurable) {
        support::ResetFaults();
        EXPECT_TRUE(VUKO::JSON::toFile("new", _dir / "file", bDurable));
        std::string strSteps;
        for (const std::string& strCall : support::Calls()) {
            if (strCall == "write" || strCall == "fsync" || strCall == "renameat") {
                strSteps += strCall + " ";
            }
        }
        return strSteps;
    };
    EXPECT_EQ(Steps(false), "write fsync renameat ");
    EXPECT_EQ(Steps(true), "write fsync renameat fsync ");
}

TEST_F(Faults, OfShortAndInterruptedWritesAreMadeUpFor) {
    support::WriteInPieces(7);
    const std::string strLong(5000, 'x');
    EXPECT_TRUE(VUKO::JSON::toFile(strLong, _dir / "file"));
    support::ResetFaults();
    EXPECT_EQ(ReadFile(_dir / "file"), "\"" + strLong + "\"\n");
}

TEST_F(Faults, OfChownLeaveNoNewFolder) {
    for (const char* const szCall : {"fchown", "fchmod"}) {
        support::Fail(szCall, EIO);
        int iErrno = 0;
        const std::string strPath = _dir / "new";
        EXPECT_EQ(
            WithMarkedErrno([&] { return VUKOFSMkdirP(strPath.c_str(), 0, 1, geteuid(), getegid(), 0750); }, iErrno),
            -1);
        support::ExpectFailedWith(iErrno, EIO);
        support::ResetFaults();
        EXPECT_FALSE(support::Exists(strPath)) << szCall;
    }
}

TEST_F(Faults, AFileThatGrowsIsReadToItsEnd) {
    support::WriteFile(_dir / "file", "[1");
    support::AfterFstat([&] {
        support::AfterFstat(nullptr);
        std::ofstream(_dir / "file", std::ios::app) << std::string(100000, ' ') << "]";
    });
    Json::Value jsRead;
    EXPECT_TRUE(VUKO::JSON::fromFile(jsRead, _dir / "file"));
    EXPECT_EQ(jsRead.size(), 1U);
}

TEST_F(Faults, AFileThatGrowsBeyondTheLimitIsRefused) {
    support::WriteFile(_dir / "file", "1");
    support::AfterFstat([&] {
        support::AfterFstat(nullptr);
        std::ofstream(_dir / "file", std::ios::app) << std::string(std::size_t{4} << 20, ' ');
    });
    Json::Value jsRead("untouched");
    int iErrno = 0;
    EXPECT_FALSE(WithMarkedErrno([&] { return VUKO::JSON::fromFile(jsRead, _dir / "file"); }, iErrno));
    support::ExpectFailedWith(iErrno, EFBIG);
    EXPECT_EQ(jsRead, Json::Value("untouched"));
}

TEST_F(Faults, OfTheKernelsRandomSourceAreMadeUpForByTheNextOne) {
    // Each child seeds anew, and never draws the same numbers as another one.
    for (const bool bDevice : {true, false}) {
        std::set<std::string> setSequences;
        for (int iChild = 0; iChild < 20; ++iChild) {
            const support::ChildEnd end = support::RunForked([&](int iFdOut) {
                support::ResetFaults();
                support::Fail("getrandom", ENOSYS);
                if (!bDevice) {
                    support::Fail("open", ENOENT);
                }
                VUKO::RANDOM::VUKORandomBase source;
                for (int iDraw = 0; iDraw < 8; ++iDraw) {
                    dprintf(iFdOut, "%d ", source.random(INT_MIN, INT_MAX));
                }
                const bool bDeviceAsked =
                    std::find(support::Calls().begin(), support::Calls().end(), "open") != support::Calls().end();
                return bDeviceAsked ? 0 : 1;
            });
            EXPECT_EQ(end.iExitStatus, 0);
            setSequences.insert(end.strOutput);
        }
        EXPECT_EQ(setSequences.size(), 20U);
    }
}

} // namespace
