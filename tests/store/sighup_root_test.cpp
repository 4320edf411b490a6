/// The request for a reload where no service manager runs: SIGHUP for the process that holds the PID file.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "crond/configmanager.h"
#include "crond/pkgconfigmanager.h"
#include "tests/store/root_fixture.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/forked.h"
#include "tests/support/syscall_killer.h"
#include "tests/unit/definitions.h"

using unit::Definition;
using VUKO::VUKOCrond::ConfigManager;
using VUKO::VUKOCrond::PkgConfigManager;

namespace {

using Texts = std::vector<std::string>;

constexpr const char* PID_FILE = "/var/run/vukocrond.pid";

/// A process of some name that counts the SIGHUPs it gets, with or without the lock on the PID file.
class Process {
public:
    Process(const char* szName, bool bLocks) {
        int aPipe[2] = {-1, -1};
        EXPECT_EQ(pipe2(aPipe, O_CLOEXEC), 0);
        _pid = fork();
        if (_pid == 0) {
            Live(szName, bLocks, aPipe[1]);
        }
        close(aPipe[1]);
        _iFd = aPipe[0];
        EXPECT_EQ(ReadByte(), 'r');
    }
    ~Process() {
        kill(_pid, SIGKILL);
        support::WaitFor(_pid);
        close(_iFd);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// How many SIGHUPs have arrived since the last call. A signal that was sent comes before the question.
    int Hangups() {
        kill(_pid, SIGUSR1);
        int iCount = 0;
        for (char c = ReadByte(); c != 'q'; c = ReadByte()) {
            EXPECT_EQ(c, 'h');
            if (c != 'h') {
                break;
            }
            ++iCount;
        }
        return iCount;
    }

private:
    char ReadByte() const {
        char c = 0;
        while (read(_iFd, &c, 1) == -1 && errno == EINTR) {
        }
        return c;
    }

    [[noreturn]] static void Live(const char* szName, bool bLocks, int iFd) {
        sigset_t setAwaited;
        sigemptyset(&setAwaited);
        sigaddset(&setAwaited, SIGHUP);
        sigaddset(&setAwaited, SIGUSR1);
        sigprocmask(SIG_BLOCK, &setAwaited, nullptr);
        prctl(PR_SET_NAME, szName);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int iPidFd = open(PID_FILE, O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        bool bGood = iPidFd != -1 && (!bLocks || fcntl(iPidFd, F_SETLK, &lock) == 0);
        for (char c = bGood ? 'r' : 'x'; bGood;) {
            bGood = write(iFd, &c, 1) == 1;
            c = sigwaitinfo(&setAwaited, nullptr) == SIGHUP ? 'h' : 'q';
        }
        _exit(1);
    }

    pid_t _pid = -1;
    int _iFd = -1;
};

class Hangup : public store::RealStores {
protected:
    void SetUp() override {
        store::RealStores::SetUp();
        if (!IsSkipped()) {
            support::WriteFile(PID_FILE, "");
            chmod(PID_FILE, 0644);
        }
    }

    /// Names a process in the PID file, as an old service may have left it.
    static void WritePid(pid_t pid) { support::WriteFile(PID_FILE, std::to_string(pid) + "\n"); }
};

/// Expects one message, of a reload that reached nobody.
void ExpectNoReload(const Texts& vecMessages, const char* szPattern) {
    ASSERT_EQ(vecMessages.size(), 1U);
    EXPECT_THAT(vecMessages[0], testing::MatchesRegex(szPattern));
}

} // namespace

TEST_F(Hangup, ReachesTheHolderOncePerSaveAndPerRemovalThatDeleted) {
    const support::CapturedSyslog log;
    Process service("vukocrond", true);
    ConfigManager store("backup", false);
    EXPECT_EQ(service.Hangups(), 0);
    EXPECT_TRUE(store.Save(Definition()));
    EXPECT_EQ(service.Hangups(), 1);
    EXPECT_TRUE(store.Save(Definition()));
    EXPECT_EQ(service.Hangups(), 1) << "the same content again";
    Json::Value jsLoaded;
    EXPECT_TRUE(store.Load(jsLoaded));
    EXPECT_TRUE(store.Exist());
    EXPECT_EQ(service.Hangups(), 0);
    EXPECT_TRUE(store.Remove());
    EXPECT_EQ(service.Hangups(), 1);
    EXPECT_TRUE(store.Remove());
    EXPECT_EQ(service.Hangups(), 0) << "there was nothing to delete";
}

TEST_F(Hangup, IsNotSentByWhatFails) {
    Process service("vukocrond", true);
    ConfigManager store("backup", false);
    support::CapturedSyslog log;
    EXPECT_FALSE(store.Save(Json::Value(5)));
    std::filesystem::create_directories(_strSystemFolder + "/backup.conf/in the way");
    EXPECT_FALSE(store.Save(Definition()));
    EXPECT_FALSE(store.Remove());
    EXPECT_EQ(log.Take().size(), 3U);
    EXPECT_EQ(service.Hangups(), 0);
}

TEST_F(Hangup, IsNeverSentByThePackageStore) {
    const support::CapturedSyslog log;
    Process service("vukocrond", true);
    PkgConfigManager store("pkgA", "backup");
    EXPECT_TRUE(store.Save(Definition()));
    EXPECT_TRUE(store.Remove());
    EXPECT_EQ(service.Hangups(), 0);
}

TEST_F(Hangup, ReachesNoOtherProcessNeitherByItsNameNorByTheFilesText) {
    const support::CapturedSyslog log;
    Process service("vukocrond", true);
    Process sameName("vukocrond", false);
    Process otherName("other", false);
    ConfigManager store("backup", false);
    WritePid(getpid()); // SIGHUP would end this test
    EXPECT_TRUE(store.Save(Definition()));
    EXPECT_TRUE(store.Remove());
    EXPECT_EQ(sameName.Hangups(), 0);
    EXPECT_EQ(otherName.Hangups(), 0);
    EXPECT_GE(service.Hangups(), 1);
}

TEST_F(Hangup, ReachesNobodyWhenNobodyHoldsTheFile) {
    Process sameName("vukocrond", false);
    ConfigManager store("backup", false);
    WritePid(getpid());
    support::CapturedSyslog log;
    EXPECT_TRUE(store.Save(Definition()));
    ExpectNoReload(log.Take(), NO_RELOAD);
    EXPECT_TRUE(store.Remove());
    ExpectNoReload(log.Take(), NO_RELOAD);
    EXPECT_EQ(sameName.Hangups(), 0);
}

TEST_F(Hangup, ReachesNobodyWhenTheHolderIsNoService) {
    Process other("other", true);
    ConfigManager store("backup", false);
    support::CapturedSyslog log;
    EXPECT_TRUE(store.Save(Definition()));
    ExpectNoReload(log.Take(), NO_RELOAD);
    EXPECT_EQ(other.Hangups(), 0);
}

TEST_F(Hangup, ReachesNobodyWhenThereIsNoFile) {
    std::filesystem::remove(PID_FILE);
    ConfigManager store("backup", false);
    support::CapturedSyslog log;
    EXPECT_TRUE(store.Save(Definition()));
    ExpectNoReload(log.Take(), NO_RELOAD);
    EXPECT_TRUE(store.Exist());
}

TEST_F(Hangup, IsSentByOneSystemCallPerSaveBecauseSignalsThatWaitAreCountedOnce) {
    Process service("vukocrond", true);
    ConfigManager store("backup", false);
    const auto countSent = [](const support::TracedBody& body) {
        const std::vector<long> vecCalls = support::SystemCallsOf(body);
        return std::count_if(vecCalls.begin(), vecCalls.end(), [](long lNumber) {
            return lNumber == SYS_kill || lNumber == SYS_tkill || lNumber == SYS_tgkill ||
                   lNumber == SYS_rt_sigqueueinfo || lNumber == SYS_pidfd_send_signal;
        });
    };
    EXPECT_EQ(countSent([&] { store.Save(Definition()); }), 1);
    EXPECT_EQ(service.Hangups(), 1);
    EXPECT_EQ(countSent([&] { store.Remove(); }), 1);
    EXPECT_EQ(service.Hangups(), 1);
    EXPECT_EQ(countSent([&] { store.Remove(); }), 0);
    EXPECT_EQ(service.Hangups(), 0);
}
