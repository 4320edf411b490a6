#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "service/launch/launcher.h"
#include "tests/launch/execution_log.h"
#include "tests/support/temp_dir.h"

namespace launch_test {

using VUKO::VUKOCrond::Service::RunId;
using Texts = std::vector<std::string>;

/// The account that this process runs as.
VUKO::VUKOCrond::Service::Account OwnAccount();

/// A record whose program is started with these arguments.
VUKO::VUKOCrond::CronJob JobOf(const Texts& vecCommand, const std::string& strUser = "root");

/// Whether something comes true within 20 seconds; it is looked at again and again.
bool Eventually(const std::function<bool()>& isTrue);

/// A service's launches without the service: real processes, and folders of the test's own.
class LaunchSite {
public:
    LaunchSite();

    VUKO::VUKOCrond::Service::Launcher& TheLauncher() { return *_launcher; }
    VUKO::VUKOCrond::Service::RunTable& Table() { return _launcher->Table(); }
    /// As a service that was killed and is started again: the next one, on the same table.
    void StartAnew();

    VUKO::VUKOCrond::Service::LaunchOrder Order(RunId uRun) const;
    /// Starts a program; fails the test when there is no child.
    pid_t Start(RunId uRun, const Texts& vecCommand, int iDelaySec = 0);
    pid_t StartShell(RunId uRun, const std::string& strScript, int iDelaySec = 0);

    /// Waits until something was told of a launch that fits, and gives it back; a RunReport of run 0 after 20 seconds.
    VUKO::VUKOCrond::Service::RunReport Await(RunId uRun, VUKO::VUKOCrond::Service::RunReport::Kind eKind);
    VUKO::VUKOCrond::Service::RunEnd AwaitEnd(RunId uRun);
    /// All that was told, and not waited for.
    std::vector<VUKO::VUKOCrond::Service::RunReport> TakeReports();

    std::string Output(const std::string& strIdentifier) const;
    std::string operator/(const std::string& strName) const { return _dir / strName; }
    std::string ExecutionLog() const { return _log.Text(); }

private:
    VUKO::VUKOCrond::Service::Launcher::Settings Settings() const;

    support::TempDir _dir;
    ScopedExecutionLog _log;
    std::optional<VUKO::VUKOCrond::Service::Launcher> _launcher;
    std::vector<VUKO::VUKOCrond::Service::RunReport> _vecHeard;
};

} // namespace launch_test
