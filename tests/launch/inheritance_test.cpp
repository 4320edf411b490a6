// What a job's program finds when it starts.

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>

#include "tests/launch/real_launch.h"
#include "tests/support/scoped_umask.h"

using VUKO::VUKOCrond::CronJob;

namespace {

class JobInherits : public RealLaunch {
protected:
    static std::set<std::string> Strings(const Json::Value& js) {
        std::set<std::string> setStrings;
        for (const Json::Value& jsEntry : js) {
            setStrings.insert(jsEntry.asString());
        }
        return setStrings;
    }
    static std::set<int> Numbers(const Json::Value& js) {
        std::set<int> setNumbers;
        for (const Json::Value& jsEntry : js) {
            setNumbers.insert(jsEntry.asInt());
        }
        return setNumbers;
    }

    /// This process's descriptors that programs inherit.
    static std::set<int> Inheritable() {
        std::set<int> setDescriptors;
        DIR* const pDir = opendir("/proc/self/fd");
        while (const struct dirent* const pEntry = readdir(pDir)) {
            const int iFd = atoi(pEntry->d_name);
            if (pEntry->d_name[0] != '.' && (fcntl(iFd, F_GETFD) & FD_CLOEXEC) == 0) {
                setDescriptors.insert(iFd);
            }
        }
        closedir(pDir);
        return setDescriptors;
    }
};

/// Gives a signal another disposition while it lives.
class ScopedDisposition {
public:
    ScopedDisposition(int iSignal, void (*handler)(int)) : _iSignal(iSignal), _old(signal(iSignal, handler)) {}
    ~ScopedDisposition() { signal(_iSignal, _old); }
    ScopedDisposition(const ScopedDisposition&) = delete;
    ScopedDisposition& operator=(const ScopedDisposition&) = delete;

private:
    int _iSignal;
    void (*_old)(int);
};

TEST_F(JobInherits, ItsArgumentVectorEmptyArgumentsIncluded) {
    CronJob job = WitnessJob({"0", "", "two words", "$HOME", ""});
    RunToItsEnd(job);
    const Json::Value jsArgv = Report()["argv"];
    Texts vecArguments;
    for (const Json::Value& jsArgument : jsArgv) {
        vecArguments.push_back(jsArgument.asString());
    }
    EXPECT_EQ(vecArguments, (Texts{VUKO_WITNESS, _strReport, "0", "", "two words", "$HOME", ""}));
}

TEST_F(JobInherits, NoBlockedSignalThoughTheServiceBlocksSome) {
    sigset_t setSignals;
    sigset_t setOld;
    sigemptyset(&setSignals);
    for (const int iSignal : {SIGTERM, SIGHUP, SIGCHLD, SIGUSR1, SIGRTMIN + 1}) {
        sigaddset(&setSignals, iSignal);
    }
    ASSERT_EQ(sigprocmask(SIG_BLOCK, &setSignals, &setOld), 0);
    CronJob job = WitnessJob();
    RunToItsEnd(job);
    sigset_t setNow;
    sigprocmask(SIG_SETMASK, &setOld, &setNow);
    EXPECT_EQ(sigismember(&setNow, SIGUSR1), 1) << "the service's own mask is as it was";
    EXPECT_EQ(Numbers(Report()["blocked"]), std::set<int>());
    ASSERT_TRUE(Report().isMember("blocked"));
}

TEST_F(JobInherits, IgnoredSignalsButTheDefaultForSigchld) {
    const ScopedDisposition ignoredPipe(SIGPIPE, SIG_IGN);
    const ScopedDisposition ignoredHangup(SIGHUP, SIG_IGN);
    CronJob job = WitnessJob();
    {
        const ScopedDisposition ignoredChild(SIGCHLD, SIG_IGN);
        job.Run(0, "");
        EXPECT_EQ(support::WaitFor(-1), -1) << "the kernel reaps";
    }
    const std::set<int> setIgnored = Numbers(Report()["ignored"]);
    EXPECT_TRUE(setIgnored.contains(SIGPIPE));
    EXPECT_TRUE(setIgnored.contains(SIGHUP));
    EXPECT_FALSE(setIgnored.contains(SIGCHLD));
    EXPECT_EQ(_log.Text().find("failed, return code"), std::string::npos) << "the program could be waited for";
}

TEST_F(JobInherits, FolderUmaskAndEnvironment) {
    const support::TempDir folder;
    const std::string strBefore = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    const support::ScopedUmask mask(0137);
    setenv("VUKO_TEST_VARIABLE", "a value", 1);
    CronJob job = WitnessJob();
    RunToItsEnd(job);
    unsetenv("VUKO_TEST_VARIABLE");
    std::filesystem::current_path(strBefore);
    std::set<std::string> setExpected = {"VUKO_TEST_VARIABLE=a value"};
    for (char** pEntry = environ; *pEntry != nullptr; ++pEntry) {
        setExpected.insert(*pEntry);
    }
    EXPECT_EQ(Report()["cwd"].asString(), folder.Path());
    EXPECT_EQ(Report()["umask"].asInt(), 0137);
    EXPECT_EQ(Strings(Report()["environ"]), setExpected);
}

TEST_F(JobInherits, OpenDescriptorsAndNoneOfTheLibrarys) {
    const int iFd = open("/dev/null", O_RDONLY);
    const int iOwn = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const std::set<int> setExpected = Inheritable();
    CronJob job = WitnessJob();
    RunToItsEnd(job);
    close(iFd);
    close(iOwn);
    ASSERT_TRUE(setExpected.contains(iFd));
    ASSERT_FALSE(setExpected.contains(iOwn));
    EXPECT_EQ(Numbers(Report()["descriptors"]), setExpected);
}

TEST_F(JobInherits, ProcessGroupAndSession) {
    CronJob job = WitnessJob();
    RunToItsEnd(job);
    EXPECT_EQ(Report()["pgid"].asInt(), getpgid(0));
    EXPECT_EQ(Report()["sid"].asInt(), getsid(0));
    EXPECT_NE(Report()["ppid"].asInt(), getpid()) << "a child stands between the service and the program";
}

} // namespace
