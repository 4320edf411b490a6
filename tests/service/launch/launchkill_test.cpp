#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>

#include "tests/service/launch/launches.h"
#include "tests/support/syscall_killer.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

class KilledService : public launch_test::Launches {
protected:
    KilledService() { prctl(PR_SET_CHILD_SUBREAPER, 1); } // what a killed service leaves behind comes to us
    ~KilledService() override { prctl(PR_SET_CHILD_SUBREAPER, 0); }

    /// How often the program has run by the time that every process of the launch has ended.
    std::ptrdiff_t CountRuns(RunId uRun) {
        while (waitpid(-1, nullptr, 0) > 0) {
        }
        const std::string strRuns = support::ReadFile(_site / std::to_string(uRun));
        return std::count(strRuns.begin(), strRuns.end(), '\n');
    }

    /// What the next service does with a launch that it finds, and what must have become of it then.
    void ExpectOneFate(RunId uRun) {
        _site.StartAnew();
        const bool bFound = _site.Table().Find(uRun).has_value();
        const bool bRevoked = _site.Table().Revoke(uRun);
        const std::ptrdiff_t iRuns = CountRuns(uRun);
        if (!bFound || bRevoked) {
            EXPECT_EQ(iRuns, 0) << uRun;
            EXPECT_EQ(StageOf(uRun), bFound ? RunStage::Revoked : RunStage::Free) << uRun;
        } else {
            EXPECT_EQ(iRuns, 1) << uRun;
            EXPECT_EQ(StageOf(uRun), RunStage::Ended) << uRun;
            EXPECT_EQ(_site.AwaitEnd(uRun).iCode, 0) << uRun;
        }
        _site.Table().Release(uRun);
    }
};

TEST_F(KilledService, HasMadeEachLaunchOrNoneWhateverTheInstant) {
    RunId uRun = 1; // one for each instant
    for (bool bKilled = true; bKilled; ++uRun) {
        CronJob job = launch_test::JobOf({"/bin/sh", "-c", "echo >> " + (_site / std::to_string(uRun))});
        const LaunchOrder order = _site.Order(uRun);
        bKilled = support::KillAtStop([&] { _site.TheLauncher().Start(job, order); }, static_cast<int>(uRun));
        ExpectOneFate(uRun);
    }
    EXPECT_GT(uRun, 5U); // it was killed before, in and after the fork
}

} // namespace
