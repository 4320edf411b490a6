// How a job ends, and what the execution log says of it.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/launch/real_launch.h"

using VUKO::VUKOCrond::CronJob;

namespace {

/// Jobs of root's. Without root's rights they run as whoever runs the tests, after three lines that say so.
class JobOutcome : public RealLaunch {
protected:
    static CronJob Job(const Texts& vecCommand) { return CronJob(ListCommandJob("outcome", "root", vecCommand)); }

    static std::string CommandText(const Texts& vecCommand) {
        std::string strText;
        for (const std::string& strPiece : vecCommand) {
            strText += strPiece + " ";
        }
        return strText;
    }

    void ExpectStartLineAnd(const Texts& vecCommand, const Texts& vecMore) const {
        Texts vecExpected = {"running job: outcome with command: " + CommandText(vecCommand) + " as user root"};
        if (geteuid() != 0) {
            for (const char* const szStep : {"initgroups", "setgid", "setuid"}) {
                vecExpected.push_back("Failed to " + std::string(szStep) +
                                      " foroutcome for user root[Operation not permitted]");
            }
        }
        vecExpected.insert(vecExpected.end(), vecMore.begin(), vecMore.end());
        EXPECT_EQ(Lines(), vecExpected);
    }

    void ExpectNotStarted(const Texts& vecCommand, const std::string& strReason) {
        CronJob job = Job(vecCommand);
        RunToItsEnd(job);
        ExpectStartLineAnd(vecCommand, {"running job: outcome with command: " + CommandText(vecCommand) +
                                        " failed, return code: -1, error: " + strReason});
    }
};

TEST_F(JobOutcome, OfAProgramThatIsNotThereIsLogged) {
    ExpectNotStarted({_log.Dir() / "missing", "argument"}, "No such file or directory");
}

TEST_F(JobOutcome, OfAProgramThatStandsInTheSearchPathOnlyIsThatItIsNotThere) {
    ExpectNotStarted({"true"}, "No such file or directory");
}

TEST_F(JobOutcome, OfAFileThatMayNotBeExecutedIsLogged) {
    support::WriteFile(_log.Dir() / "plain", "#!/bin/sh\n");
    ASSERT_EQ(chmod((_log.Dir() / "plain").c_str(), 0644), 0);
    ExpectNotStarted({_log.Dir() / "plain"}, "Permission denied");
}

TEST_F(JobOutcome, OfAFileThatIsNoProgramIsLogged) {
    support::WriteFile(_log.Dir() / "text", "echo no shell is asked\n");
    ASSERT_EQ(chmod((_log.Dir() / "text").c_str(), 0755), 0);
    ExpectNotStarted({_log.Dir() / "text"}, "Exec format error");
}

TEST_F(JobOutcome, OfAFolderIsLogged) {
    ExpectNotStarted({_log.Dir().Path()}, "Permission denied");
}

TEST_F(JobOutcome, OfAnEmptyArgumentVectorIsLogged) {
    CronJob job = Job({"/bin/true"});
    job._jsJob["cmd_list"] = Json::Value(Json::arrayValue);
    RunToItsEnd(job);
    ExpectStartLineAnd({"/bin/true"}, {"running job: outcome with command: /bin/true  failed, return code: -1, error: "
                                       "Bad address"});
}

TEST_F(JobOutcome, OfAnEmptyProgramNameIsLogged) {
    ExpectNotStarted({""}, "No such file or directory");
}

TEST_F(JobOutcome, OfAProgramWithAnExitStatusIsNotLogged) {
    CronJob job = WitnessJob({"3"});
    RunToItsEnd(job);
    EXPECT_TRUE(Report().isObject()) << "it ran";
    EXPECT_EQ(Lines().back().find("failed, return code"), std::string::npos);
}

TEST_F(JobOutcome, OfAProgramThatASignalEndedIsNotLogged) {
    const Texts vecCommand = {"/bin/sh", "-c", "kill -KILL $$"};
    CronJob job = Job(vecCommand);
    RunToItsEnd(job);
    ExpectStartLineAnd(vecCommand, {});
}

TEST_F(JobOutcome, IsNotWaitedForByTheService) {
    const std::string strPipe = _log.Dir() / "pipe";
    ASSERT_EQ(mkfifo(strPipe.c_str(), 0600), 0);
    CronJob job = Job({"/bin/cat", strPipe});
    job._strReadyCrontab = "ready";
    job.Run(0, "");
    EXPECT_EQ(job._strReadyCrontab, "");
    const int iFd = open(strPipe.c_str(), O_WRONLY | O_CLOEXEC); // returns when the program has opened it too
    ASSERT_NE(iFd, -1);
    int iStatus = 0;
    EXPECT_EQ(waitpid(-1, &iStatus, WNOHANG), 0) << "the child waits for the program, which reads";
    close(iFd);
    EXPECT_EQ(support::WaitFor(-1), 0);
    ExpectStartLineAnd({"/bin/cat", strPipe}, {});
}

TEST_F(JobOutcome, IsTheSameForManyJobsThatStartAtOnce) {
    constexpr int JOBS = 20;
    for (int i = 0; i < JOBS; ++i) {
        CronJob job(TextCommandJob("job" + std::to_string(i), "root", "/bin/true"));
        job.Run(0, "");
    }
    for (int i = 0; i < JOBS; ++i) {
        EXPECT_EQ(support::WaitFor(-1), 0);
    }
    const Texts vecLines = Lines();
    for (int i = 0; i < JOBS; ++i) {
        const std::string strLine = "running job: job" + std::to_string(i) + " with command: /bin/true as user root";
        EXPECT_EQ(std::count(vecLines.begin(), vecLines.end(), strLine), 1) << strLine;
    }
    // A child whose staged line another has moved on already finds no file to move on.
    for (const std::string& strMessage : _syslog.Take()) {
        EXPECT_EQ(strMessage,
                  "<3>memorylogger:50 Failed [!fsMem], err=No such file or directory (No such file or directory)");
    }
}

TEST_F(JobOutcome, OfAnUnknownAccountIsThatRunReturnsTwice) {
    CronJob job(TextCommandJob("outcome", "no-such-system-account", "/bin/true"));
    job._strReadyCrontab = "ready";
    const support::ChildEnd end = support::RunForked([&job](int) {
        const pid_t pidService = getpid();
        errno = 0;
        job.Run(0, "");
        if (getpid() != pidService) {
            return job._strReadyCrontab.empty() ? 7 : 8;
        }
        const int iStatus = support::WaitFor(-1);
        return WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 7 && job._strReadyCrontab.empty() ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
    EXPECT_EQ(_syslog.Take(), (Texts{"<3>cronjob:104 user no-such-system-account not exist",
                                     "<3>cronjob:604 Failed to get user group info for job [outcome]"}));
    EXPECT_FALSE(support::Exists(_log.Path()));
}

} // namespace
