#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <optional>
#include <string>

#include "service/launch/reaper.h"
#include "tests/service/launch/launch_fixture.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/forked.h"

namespace launch_test {

/// Tests that launch real programs. They leave no child and no message behind.
class Launches : public testing::Test {
protected:
    support::CapturedSyslog _log;
    LaunchSite _site;

    ~Launches() override {
        VUKO::VUKOCrond::Service::ReapChildren();
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
        for (const std::string& strMessage : _log.Take()) { // a child whose line another one has moved on says so
            EXPECT_EQ(strMessage.rfind("<3>memorylogger:50 ", 0), 0U) << strMessage;
        }
    }

    VUKO::VUKOCrond::Service::RunStage StageOf(RunId uRun) {
        const std::optional<VUKO::VUKOCrond::Service::RunRecord> record = _site.Table().Find(uRun);
        return record ? record->eStage : VUKO::VUKOCrond::Service::RunStage::Free;
    }
    void AwaitStage(RunId uRun, VUKO::VUKOCrond::Service::RunStage eStage) {
        EXPECT_TRUE(Eventually([&] { return StageOf(uRun) == eStage; })) << uRun;
    }
    /// Kills a child and reaps it.
    static void Kill(pid_t pid, int iSignal) {
        kill(pid, iSignal);
        const int iStatus = support::WaitFor(pid);
        EXPECT_TRUE(WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == iSignal) << iStatus;
    }
};

} // namespace launch_test
