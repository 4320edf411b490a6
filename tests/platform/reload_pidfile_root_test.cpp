#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "platform/vukosystemd.h"
#include "tests/platform/errors.h"
#include "tests/platform/run_folder.h"
#include "tests/support/forked.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace std::string_literals;
using support::WithMarkedErrno;

/// A program of some name that holds a PID file. It starts with this object and ends with it.
class Holder {
public:
    Holder(const std::string& strName, const std::string& strPidFile, const char* szLock = "write") {
        const std::string strProgram = _dir / strName;
        std::filesystem::copy_file(VUKO_TEST_PIDFILE_HOLDER, strProgram);
        int aiPipe[2];
        EXPECT_EQ(pipe2(aiPipe, O_CLOEXEC), 0);
        _pid = fork();
        if (_pid == 0) {
            dup2(aiPipe[1], STDOUT_FILENO);
            execl(strProgram.c_str(), strProgram.c_str(), strPidFile.c_str(), szLock, static_cast<char*>(nullptr));
            _exit(1);
        }
        close(aiPipe[1]);
        _iFd = aiPipe[0];
        EXPECT_EQ(ReadLine(), "ready");
    }
    ~Holder() {
        End();
        close(_iFd);
    }

    void End() {
        if (_pid > 0) {
            kill(_pid, SIGKILL);
            support::WaitFor(_pid);
            _pid = -1;
        }
    }

    /// Whether it has been told to reload: a signal that was sent is seen before its end is.
    bool IsReloaded() {
        kill(_pid, SIGTERM);
        support::WaitFor(_pid);
        _pid = -1;
        const std::string strLine = ReadLine();
        EXPECT_TRUE(strLine == "reloaded" || strLine == "ended") << strLine;
        return strLine == "reloaded";
    }

    pid_t Pid() const { return _pid; }

private:
    std::string ReadLine() const {
        std::string strLine;
        char c = 0;
        while (read(_iFd, &c, 1) == 1 && c != '\n') {
            strLine += c;
        }
        return strLine;
    }

    support::TempDir _dir;
    pid_t _pid = -1;
    int _iFd = -1;
};

class ReloadByPidFile : public support::RunFolder {
protected:
    static std::string PidFile(const std::string& strService) { return "/run/" + strService + ".pid"; }

    static void MakePidFile(const std::string& strService, const std::string& strText = "") {
        support::WriteFile(PidFile(strService), strText);
        ASSERT_EQ(chmod(PidFile(strService).c_str(), 0644), 0);
    }

    static void ExpectFailure(const std::string& strService, int iExpected) {
        int iErrno = 0;
        EXPECT_FALSE(WithMarkedErrno([&] { return VUKOSystemdReload(strService); }, iErrno)) << strService;
        support::ExpectFailedWith(iErrno, iExpected);
    }

    static void ExpectReloaded(const std::string& strService) {
        int iErrno = 0;
        EXPECT_TRUE(WithMarkedErrno([&] { return VUKOSystemdReload(strService); }, iErrno)) << strerror(iErrno);
        EXPECT_EQ(iErrno, support::ERRNO_MARK);
    }
};

TEST_F(ReloadByPidFile, ReachesTheServiceThatHoldsIt) {
    MakePidFile("vukotestd");
    Holder holder("vukotestd", PidFile("vukotestd"));
    ExpectReloaded("vukotestd");
    EXPECT_TRUE(holder.IsReloaded());
}

TEST_F(ReloadByPidFile, ReachesAServiceWhoseNameTheKernelCuts) {
    MakePidFile("vuko-test-service-of-long-name");
    Holder holder("vuko-test-service-of-long-name", PidFile("vuko-test-service-of-long-name"));
    ExpectReloaded("vuko-test-service-of-long-name");
    EXPECT_TRUE(holder.IsReloaded());
}

TEST_F(ReloadByPidFile, BelievesTheLockAndNotTheText) {
    MakePidFile("vukotestd");
    Holder holder("vukotestd", PidFile("vukotestd"));
    Holder bystander("vukotestd", (MakePidFile("other"), PidFile("other")));
    MakePidFile("vukotestd", std::to_string(bystander.Pid()) + "\n");
    ExpectReloaded("vukotestd");
    EXPECT_TRUE(holder.IsReloaded());
    EXPECT_FALSE(bystander.IsReloaded());
}

TEST_F(ReloadByPidFile, ReachesNobodyByAStaleFile) {
    Holder bystander("vukotestd", (MakePidFile("other"), PidFile("other")));
    MakePidFile("vukotestd", std::to_string(bystander.Pid()) + "\n");
    ExpectFailure("vukotestd", ESRCH);
    EXPECT_FALSE(bystander.IsReloaded());
}

TEST_F(ReloadByPidFile, ReachesNobodyOnceTheServiceHasEnded) {
    MakePidFile("vukotestd");
    Holder holder("vukotestd", PidFile("vukotestd"));
    holder.End();
    ExpectFailure("vukotestd", ESRCH);
}

TEST_F(ReloadByPidFile, ReachesNoProgramOfAnotherName) {
    MakePidFile("vukotestd");
    for (const char* const szName : {"vukotest", "vukotestd2", "other"}) {
        Holder holder(szName, PidFile("vukotestd"));
        ExpectFailure("vukotestd", ESRCH);
        EXPECT_FALSE(holder.IsReloaded()) << szName;
    }
}

TEST_F(ReloadByPidFile, ReachesNoHolderOfAnotherKindOfLock) {
    // Who may read the file may lock it for reading, and a lock of an open file names no process.
    MakePidFile("vukotestd");
    for (const char* const szLock : {"read", "open"}) {
        Holder holder("vukotestd", PidFile("vukotestd"), szLock);
        ExpectFailure("vukotestd", ESRCH);
        EXPECT_FALSE(holder.IsReloaded()) << szLock;
    }
}

TEST_F(ReloadByPidFile, ReachesNobodyByAFileThatOthersCouldHaveWritten) {
    MakePidFile("vukotestd");
    Holder holder("vukotestd", PidFile("vukotestd"));
    for (const mode_t mode : {0664U, 0646U, 0666U}) {
        ASSERT_EQ(chmod(PidFile("vukotestd").c_str(), mode), 0);
        ExpectFailure("vukotestd", EPERM);
    }
    ASSERT_EQ(chmod(PidFile("vukotestd").c_str(), 0644), 0);
    ASSERT_EQ(chown(PidFile("vukotestd").c_str(), 65534, 0), 0);
    ExpectFailure("vukotestd", EPERM);
    EXPECT_FALSE(holder.IsReloaded());
}

TEST_F(ReloadByPidFile, ReachesNobodyByWhatIsNoRegularFile) {
    MakePidFile("real");
    Holder holder("link", PidFile("real"));
    ASSERT_EQ(symlink("real.pid", PidFile("link").c_str()), 0);
    ASSERT_EQ(mkdir(PidFile("folder").c_str(), 0755), 0);
    ASSERT_EQ(mkfifo(PidFile("pipe").c_str(), 0644), 0);
    ExpectFailure("link", ELOOP);
    ExpectFailure("folder", EINVAL);
    ExpectFailure("pipe", EINVAL);
    ExpectFailure("missing", ENOENT);
    EXPECT_FALSE(holder.IsReloaded());
}

TEST_F(ReloadByPidFile, ReachesNobodyInAnotherPidNamespace) {
    MakePidFile("vukotestd");
    Holder holder("vukotestd", PidFile("vukotestd"));
    const support::ChildEnd end = support::RunForked([](int) {
        if (unshare(CLONE_NEWPID) != 0) {
            return 1;
        }
        const pid_t pid = fork();
        if (pid == 0) {
            _exit(!VUKOSystemdReload("vukotestd") && errno == ESRCH ? 0 : 2);
        }
        return WEXITSTATUS(support::WaitFor(pid));
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_FALSE(holder.IsReloaded());
}

TEST_F(ReloadByPidFile, LeavesNoDescriptorOpen) {
    MakePidFile("vukotestd");
    Holder holder("vukotestd", PidFile("vukotestd"));
    const std::vector<int> vecBefore = support::OpenDescriptors();
    ExpectReloaded("vukotestd");
    EXPECT_EQ(support::OpenDescriptors(), vecBefore);
}

TEST(Reload, RefusesNamesThatAreNoNames) {
    for (const std::string& strName : {""s, "/"s, "../vukotestd"s, "a/b"s, "a\0b"s, "\0"s}) {
        int iErrno = 0;
        EXPECT_FALSE(WithMarkedErrno([&] { return VUKOSystemdReload(strName); }, iErrno));
        support::ExpectFailedWith(iErrno, EINVAL);
    }
}

} // namespace
