// The execution log is ready before main(): objects of the program that are built first may use it already.

#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/support/temp_dir.h"

using VUKO::VUKOCrond::CronJob;

namespace {

/// What the execution log was like when the program's own static objects were built.
struct BeforeMain {
    std::string strLogPath = CronJob::gLogger._strLogPath;
    std::string strMemLogPath = CronJob::gLogger._strMemLogPath;
    unsigned long ulLimitKB = CronJob::gLogger._ulMemLogLimitKB;
    support::TempDir dir;
    std::string strText;

    BeforeMain() {
        CronJob::gLogger._strLogPath = dir / "execute.log";
        CronJob::gLogger._strMemLogPath = dir / "staged.log";
        CronJob::gLogger._ssLog << CronJob::gLogger.GetNewLine() << "before main\n";
        CronJob::FlushLog();
        strText = support::ReadFile(dir / "execute.log");
    }
};

const BeforeMain g_before;

TEST(EarlyExecutionLog, NamesTheSystemsFilesAndAMebibyte) {
    EXPECT_EQ(g_before.strLogPath, "/var/log/vukocrond-execute.log");
    EXPECT_EQ(g_before.strMemLogPath, "/tmp/vukocrond.log");
    EXPECT_EQ(g_before.ulLimitKB, 1024U);
}

TEST(EarlyExecutionLog, TakesALineBeforeMain) {
    ASSERT_GT(g_before.strText.size(), 26U);
    EXPECT_EQ(g_before.strText.substr(26), "before main\n");
}

} // namespace
