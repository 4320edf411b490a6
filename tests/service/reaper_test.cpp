#include "service/launch/reaper.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/captured_syslog.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

using Texts = std::vector<std::string>;

/// A child that has ended and was not reaped.
pid_t EndedChild(const std::function<void()>& body) {
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        syscall(SYS_exit_group, 0);
    }
    siginfo_t info = {};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    return pid;
}

} // namespace

TEST(Reaper, ReapsEveryChildThatHasEnded) {
    const support::CapturedSyslog log;
    for (int i = 0; i < 5; ++i) {
        EndedChild([] {});
    }
    EXPECT_EQ(ReapChildren().size(), 5U);
    EXPECT_EQ(ReapChildren().size(), 0U);
}

TEST(Reaper, DoesNotWaitForAChildThatRuns) {
    const support::CapturedSyslog log;
    const pid_t pid = fork();
    if (pid == 0) {
        for (;;) {
            pause();
        }
    }
    EXPECT_EQ(ReapChildren().size(), 0U);
    kill(pid, SIGKILL);
    EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
}

TEST(Reaper, GivesBackWhichChildrenEndedAndHow) {
    const pid_t pidFailed = EndedChild([] { syscall(SYS_exit_group, 3); });
    EXPECT_EQ(ReapChildren(), (std::vector<ReapedChild>{{pidFailed, 3 << 8}}));
    const pid_t pidKilled = EndedChild([] { raise(SIGKILL); });
    EXPECT_EQ(ReapChildren(), (std::vector<ReapedChild>{{pidKilled, SIGKILL}}));
}

TEST(Reaper, TellsOfChildrenThatDidNotEndAsTheyShould) {
    support::CapturedSyslog log;
    LogEnd({4711, 0}, "cron/backup");
    EXPECT_EQ(log.Take(), Texts{});
    LogEnd({4711, 1 << 8}, "cron/backup");
    LogEnd({4712, SIGKILL}, "cron/backup");
    EXPECT_EQ(log.Take(), (Texts{"<5>reaper:2 child 4711 of job cron/backup ended with status 1",
                                 "<5>reaper:1 child 4712 of job cron/backup was ended by signal 9"}));
    LogEnd({4713, 1 << 8}, "");
    LogEnd({4714, SIGKILL}, "");
    EXPECT_EQ(log.Take(),
              (Texts{"<5>reaper:2 child 4713 ended with status 1", "<5>reaper:1 child 4714 was ended by signal 9"}));
}
