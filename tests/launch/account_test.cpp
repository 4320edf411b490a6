// Jobs of other accounts, with accounts made for the test: the account files of a private mount namespace.

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <stdexcept>
#include <system_error>

#include "tests/launch/real_launch.h"

using VUKO::VUKOCrond::CronJob;

namespace {

constexpr uid_t UID = 4201;
constexpr gid_t GID = 4202;

void Check(int iResult, const char* szWhat) {
    if (iResult != 0) {
        throw std::system_error(errno, std::generic_category(), szWhat);
    }
}

void Replace(const std::string& strFile, const std::string& strOwn, const std::string& strMore) {
    support::WriteFile(strOwn, support::ReadFile(strFile) + strMore);
    Check(chmod(strOwn.c_str(), 0644), "chmod");
    Check(mount(strOwn.c_str(), strFile.c_str(), nullptr, MS_BIND, nullptr), "bind mount");
}

/// Adds an account with supplementary groups that only this process and its children see.
void MakeAccountOfItsOwn(const support::TempDir& dir) {
    Check(unshare(CLONE_NEWNS), "unshare");
    Check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    Replace("/etc/passwd", dir / "passwd", "vuko-test-job:x:4201:4202::/nonexistent:/bin/false\n");
    Replace("/etc/group", dir / "group",
            "vuko-test-job:x:4202:\nvuko-test-a:x:4301:vuko-test-job\nvuko-test-b:x:4302:root,vuko-test-job\n"
            "vuko-test-c:x:4303:root\n");
}

class JobOfAnAccount : public RealLaunch {
protected:
    support::TempDir _accounts;
    const std::string _strWitness = _log.Dir() / "witness";

    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can take another identity";
        }
        // Where every account can reach it, and write beside it.
        std::filesystem::copy_file(VUKO_WITNESS, _strWitness);
        ASSERT_EQ(chmod(_strWitness.c_str(), 0755), 0);
        ASSERT_EQ(chmod(_log.Dir().Path().c_str(), 0777), 0);
    }

    CronJob PackageJob(const std::string& strProgram) const {
        Json::Value jsJob = ListCommandJob("drop", "package", {strProgram, _strReport});
        jsJob["config"]["package_username"] = "vuko-test-job";
        return CronJob(jsJob);
    }

    /// Runs a job to its end in a process of its own, which is prepared first.
    void RunPrepared(CronJob job, const std::function<void()>& prepare) const {
        const support::ChildEnd end = support::RunForked([&](int) {
            prepare();
            job.Run(0, "");
            return support::WaitFor(-1);
        });
        EXPECT_EQ(end.iExitStatus, 0) << end.strOutput;
    }

    static std::multiset<unsigned> Ids(const Json::Value& js) {
        std::multiset<unsigned> setIds;
        for (const Json::Value& jsId : js) {
            setIds.insert(jsId.asUInt());
        }
        return setIds;
    }
};

TEST_F(JobOfAnAccount, RunsWithItsIdsAndExactlyItsGroups) {
    RunPrepared(PackageJob(_strWitness), [this] { MakeAccountOfItsOwn(_accounts); });
    EXPECT_EQ(Ids(Report()["uids"]), (std::multiset<unsigned>{UID, UID, UID})) << "real, effective and saved";
    EXPECT_EQ(Ids(Report()["gids"]), (std::multiset<unsigned>{GID, GID, GID}));
    EXPECT_EQ(Ids(Report()["groups"]), (std::multiset<unsigned>{GID, 4301, 4302}));
    EXPECT_EQ(Lines(),
              Texts{"running job: drop with command: " + _strWitness + " " + _strReport + "  as user vuko-test-job"});
}

TEST_F(JobOfAnAccount, GivesUpTheServicesOwnGroups) {
    RunPrepared(PackageJob(_strWitness), [this] {
        MakeAccountOfItsOwn(_accounts);
        const gid_t aGroups[] = {0, 4303, 4999};
        Check(setgroups(std::size(aGroups), aGroups), "setgroups");
    });
    EXPECT_EQ(Ids(Report()["groups"]), (std::multiset<unsigned>{GID, 4301, 4302}));
}

TEST_F(JobOfAnAccount, LeavesTheLogToRoot) {
    RunPrepared(PackageJob(_strWitness), [this] { MakeAccountOfItsOwn(_accounts); });
    EXPECT_EQ(support::ModeOf(_log.Path()), 0600);
    struct stat stLog = {};
    ASSERT_EQ(stat(_log.Path().c_str(), &stLog), 0);
    EXPECT_EQ(stLog.st_uid, 0U);
}

// The line is written by the child, which has the account's identity by then. The log is root's alone.
TEST_F(JobOfAnAccount, CannotLogThatItsProgramIsMissing) {
    RunPrepared(PackageJob(_log.Dir() / "missing"), [this] { MakeAccountOfItsOwn(_accounts); });
    EXPECT_EQ(Lines().size(), 1U) << "the start line";
    EXPECT_FALSE(support::Exists(_log.StagedPath()));
    EXPECT_EQ(_syslog.Take(), Texts{"<3>memorylogger:49 Failed [!fs], err=Permission denied (Permission denied)"});
}

TEST_F(JobOfAnAccount, IsRunAsItselfByAServiceWithoutRootsRights) {
    RunPrepared(WitnessJob("root", _strWitness, _strReport), [] {
        Check(setgroups(0, nullptr), "setgroups");
        Check(setgid(GID), "setgid");
        Check(setuid(UID), "setuid");
    });
    EXPECT_EQ(Ids(Report()["uids"]), (std::multiset<unsigned>{UID, UID, UID}));
    EXPECT_EQ(Ids(Report()["gids"]), (std::multiset<unsigned>{GID, GID, GID}));
    EXPECT_EQ(Ids(Report()["groups"]), std::multiset<unsigned>());
    EXPECT_EQ(Lines(), (Texts{"running job: witness with command: " + _strWitness + " " + _strReport + "  as user root",
                              "Failed to initgroups forwitness for user root[Operation not permitted]",
                              "Failed to setgid forwitness for user root[Operation not permitted]",
                              "Failed to setuid forwitness for user root[Operation not permitted]"}));
}

TEST_F(JobOfAnAccount, MayTakeAnIdentityThatItHasAlreadyWithoutRootsRights) {
    RunPrepared(PackageJob(_strWitness), [this] {
        MakeAccountOfItsOwn(_accounts);
        Check(setgroups(0, nullptr), "setgroups");
        Check(setgid(GID), "setgid");
        Check(setuid(UID), "setuid");
    });
    EXPECT_EQ(Lines(),
              (Texts{"running job: drop with command: " + _strWitness + " " + _strReport + "  as user vuko-test-job",
                     "Failed to initgroups fordrop for user vuko-test-job[Operation not permitted]"}));
    EXPECT_EQ(Ids(Report()["uids"]), (std::multiset<unsigned>{UID, UID, UID}));
}

} // namespace
