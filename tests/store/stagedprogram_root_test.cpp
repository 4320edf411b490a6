/// Staging with the real cp, real files and real accounts.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/platform/private_mounts.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/forked.h"
#include "tests/support/scoped_value.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/definitions.h"

using unit::CronJob;
using unit::Document;
using unit::With;

namespace {

using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

constexpr uid_t TOOLS_UID = 23456;
constexpr gid_t TOOLS_GID = 34567;
constexpr time_t LONG_AGO = 1000000000;

struct stat StatusOf(const std::string& strPath) {
    struct stat stFile = {};
    EXPECT_EQ(lstat(strPath.c_str(), &stFile), 0) << strPath;
    return stFile;
}

std::string OwnerOf(const std::string& strPath) {
    const struct stat stFile = StatusOf(strPath);
    return std::to_string(stFile.st_uid) + ":" + std::to_string(stFile.st_gid);
}

int RunProgram(const std::string& strProgram) {
    const pid_t pid = fork();
    if (pid == 0) {
        execl(strProgram.c_str(), strProgram.c_str(), static_cast<char*>(nullptr));
        _exit(126);
    }
    return WEXITSTATUS(support::WaitFor(pid));
}

/// A staging folder of the test's own, and an account "vuko-tools" beside this machine's.
class StagedProgram : public ::testing::Test {
protected:
    StagedProgram() : _strStage(_dir / "stage"), _folder(VUKO::VUKOCrond::SZF_TMP_BIN_FOLDER, _strStage.c_str()) {}

    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        fs::create_directory(_strStage);
        support::WriteFile(_dir / "passwd", support::ReadFile("/etc/passwd") +
                                                "vuko-tools:x:" + std::to_string(TOOLS_UID) + ":" +
                                                std::to_string(TOOLS_GID) + "::/:/bin/false\n");
        chmod((_dir / "passwd").c_str(), 0644);
        _mounts = std::make_unique<support::PrivateMounts>();
        _mounts->Bind(_dir / "passwd", "/etc/passwd");
    }

    /// A script that exits with a status, long ago made by somebody else.
    std::string Program(const std::string& strName, int iStatus, mode_t mode = 0755) const {
        const std::string strPath = _dir / strName;
        support::WriteFile(strPath, "#!/bin/sh\nexit " + std::to_string(iStatus) + "\n");
        EXPECT_EQ(chown(strPath.c_str(), 11, 22), 0);
        EXPECT_EQ(chmod(strPath.c_str(), mode), 0);
        const struct timespec aTimes[2] = {{LONG_AGO, 0}, {LONG_AGO, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, strPath.c_str(), aTimes, 0), 0);
        return strPath;
    }

    std::string Copy() const { return _strStage + "/backup"; }

    static CronJob RootJob(const std::string& strProgram) { return CronJob(Document(With("cmd", strProgram))); }

    static CronJob PackageJob(const std::string& strProgram) {
        return CronJob(
            Document(With("package_username", "vuko-tools", With("user", "package", With("cmd", strProgram)))));
    }

    static void ExpectStaged(CronJob job) {
        const support::CapturedSyslog log;
        EXPECT_TRUE(job.Init());
        EXPECT_EQ(job._jsJob["cmd_list"][0U], std::string(VUKO::VUKOCrond::SZF_TMP_BIN_FOLDER) + "/backup");
    }

    const support::TempDir _dir;
    const std::string _strStage;
    const support::ScopedValue<const char*> _folder;
    std::unique_ptr<support::PrivateMounts> _mounts;
};

} // namespace

TEST_F(StagedProgram, BelongsToRootAloneAndKeepsItsTime) {
    ExpectStaged(RootJob(Program("tool", 7)));
    EXPECT_EQ(OwnerOf(Copy()), "0:0");
    EXPECT_EQ(StatusOf(Copy()).st_mode, S_IFREG | 0700U);
    EXPECT_EQ(StatusOf(Copy()).st_mtime, LONG_AGO);
    EXPECT_EQ(support::ReadFile(Copy()), support::ReadFile(_dir / "tool"));
    EXPECT_EQ(RunProgram(Copy()), 7);
    EXPECT_EQ(OwnerOf(_dir / "tool"), "11:22") << "the source is left alone";
    EXPECT_EQ(StatusOf(_dir / "tool").st_mode, S_IFREG | 0755U);
}

TEST_F(StagedProgram, BelongsToThePackagesAccountAlone) {
    ExpectStaged(PackageJob(Program("tool", 7)));
    EXPECT_EQ(OwnerOf(Copy()), "23456:34567");
    EXPECT_EQ(StatusOf(Copy()).st_mode, S_IFREG | 0700U);
}

TEST_F(StagedProgram, LosesBitsThatWouldLendItsOwnersRights) {
    ExpectStaged(RootJob(Program("tool", 0, 06755)));
    EXPECT_EQ(StatusOf(Copy()).st_mode, S_IFREG | 0700U);
}

TEST_F(StagedProgram, BecomesRunnableWhenItsSourceIsNot) {
    ExpectStaged(RootJob(Program("tool", 5, 0400)));
    EXPECT_EQ(RunProgram(Copy()), 5);
}

TEST_F(StagedProgram, ReplacesAnOlderCopy) {
    ExpectStaged(PackageJob(Program("first", 1)));
    ExpectStaged(RootJob(Program("second", 2)));
    EXPECT_EQ(RunProgram(Copy()), 2);
    EXPECT_EQ(OwnerOf(Copy()), "0:0");
}

TEST_F(StagedProgram, IsSharedByTwoJobsOfOneName) {
    CronJob first = RootJob(Program("first", 1));
    CronJob second = RootJob(Program("second", 2));
    EXPECT_TRUE(first.Init());
    EXPECT_TRUE(second.Init());
    EXPECT_EQ(first._jsJob["cmd_list"], second._jsJob["cmd_list"]);
    EXPECT_EQ(RunProgram(first._jsJob["cmd_list"][0U].asString()), 2) << "the later one";
}

TEST_F(StagedProgram, IsReplacedWhileItRunsWithoutDisturbingTheRun) {
    ExpectStaged(RootJob("/bin/sleep"));
    const ino_t inodeRunning = StatusOf(Copy()).st_ino;
    int aPipe[2] = {-1, -1};
    ASSERT_EQ(pipe2(aPipe, O_CLOEXEC), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        execl(Copy().c_str(), "sleep", "1000", static_cast<char*>(nullptr));
        _exit(126);
    }
    close(aPipe[1]);
    char c = 0;
    EXPECT_EQ(read(aPipe[0], &c, 1), 0); // closed by exec: it runs
    close(aPipe[0]);
    ExpectStaged(RootJob(Program("tool", 3)));
    EXPECT_NE(StatusOf(Copy()).st_ino, inodeRunning);
    EXPECT_EQ(RunProgram(Copy()), 3);
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "it still runs";
    EXPECT_EQ(StatusOf("/proc/" + std::to_string(pid)).st_mode & S_IFMT, S_IFDIR + 0U);
    struct stat stRunning = {};
    EXPECT_EQ(stat(("/proc/" + std::to_string(pid) + "/exe").c_str(), &stRunning), 0);
    EXPECT_EQ(stRunning.st_ino, inodeRunning);
    kill(pid, SIGKILL);
    EXPECT_EQ(WTERMSIG(support::WaitFor(pid)), SIGKILL);
}

TEST_F(StagedProgram, IsALinkWhenTheProgramIsOneAndWhatItPointsToIsGivenAwayInstead) {
    const std::string strVictim = Program("victim", 4, 0644);
    fs::create_symlink(strVictim, _dir / "link");
    ExpectStaged(PackageJob(_dir / "link"));
    EXPECT_TRUE(fs::is_symlink(Copy()));
    EXPECT_EQ(fs::read_symlink(Copy()), strVictim);
    EXPECT_EQ(OwnerOf(Copy()), OwnerOf(_dir / "link")) << "the link itself is nobody's concern";
    EXPECT_EQ(OwnerOf(strVictim), "23456:34567");
    EXPECT_EQ(StatusOf(strVictim).st_mode, S_IFREG | 0700U);
}

TEST_F(StagedProgram, IsABrokenLinkWhenTheProgramIsALinkThatIsRelative) {
    Program("tool", 4);
    fs::create_symlink("tool", _dir / "link");
    support::CapturedSyslog log;
    CronJob job = RootJob(_dir / "link");
    errno = 0;
    EXPECT_FALSE(job.Init());
    EXPECT_EQ(log.Take(), (Texts{"<3>cronjob:127 Failed to stat [" + Copy() +
                                     "][No such file or directory] (No such file or directory)",
                                 "<3>cronjob:226 Failed to chown if permissions are incorrect [" + Copy() +
                                     "] (No such file or directory)"}));
    EXPECT_TRUE(fs::is_symlink(Copy()));
    EXPECT_EQ(job._jsJob["cmd_list"][0U], Copy());
}

TEST_F(StagedProgram, IsNotMadeOfALinkToNothing) {
    fs::create_symlink("nothing", _dir / "link");
    support::CapturedSyslog log;
    CronJob job = RootJob(_dir / "link");
    errno = 0;
    EXPECT_FALSE(job.Init());
    EXPECT_EQ(log.Take(), Texts{"<3>cronjob:213 missing binary " + (_dir / "link") + " (No such file or directory)"});
    EXPECT_FALSE(support::Exists(Copy()));
    EXPECT_EQ(job._jsJob["cmd_list"][0U], _dir / "link");
}

TEST_F(StagedProgram, NeedsTheFolderAndDoesNotMakeIt) {
    fs::remove(_strStage);
    const std::string strProgram = Program("tool", 7);
    support::CapturedSyslog log;
    CronJob job = RootJob(strProgram);
    errno = 0;
    EXPECT_FALSE(job.Init());
    const Texts vecMessages = log.Take();
    ASSERT_EQ(vecMessages.size(), 1U);
    const std::string strStart = "<3>cronjob:219 Failed to cp [" + strProgram + "][" + Copy() + "][0x0001 ";
    EXPECT_EQ(vecMessages[0].substr(0, strStart.size()), strStart);
    EXPECT_THAT(vecMessages[0].substr(strStart.size()), testing::MatchesRegex("[a-z]+\\.cpp:[0-9]+\\]"));
    EXPECT_EQ(job._jsJob["cmd_list"][0U], strProgram);
    EXPECT_FALSE(support::Exists(_strStage));
}

TEST_F(StagedProgram, StaysAsCpMadeItWhenTheAccountIsUnknown) {
    const std::string strProgram = Program("tool", 7);
    support::CapturedSyslog log;
    CronJob job(Document(With("package_username", "vuko-nobody", With("user", "package", With("cmd", strProgram)))));
    errno = 0;
    EXPECT_FALSE(job.Init());
    EXPECT_EQ(log.Take(),
              (Texts{"<3>cronjob:104 user vuko-nobody not exist", "<3>cronjob:120 Unable to get user group info",
                     "<3>cronjob:226 Failed to chown if permissions are incorrect [" + Copy() + "]"}));
    EXPECT_EQ(OwnerOf(Copy()), "11:22");
    EXPECT_EQ(StatusOf(Copy()).st_mode, S_IFREG | 0755U);
    EXPECT_EQ(job._jsJob["cmd_list"][0U], Copy());
}
