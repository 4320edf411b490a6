#pragma once

#include <string>

#include "crond/cronjob.h"
#include "tests/support/scoped_value.h"
#include "tests/support/temp_dir.h"

/// Points the execution log at a folder of the test's own while it lives.
class ScopedExecutionLog {
public:
    std::string Text() const { return support::ReadFile(Path()); }
    std::string Path() const { return _dir / "execute.log"; }
    std::string StagedPath() const { return _dir / "staged.log"; }
    const support::TempDir& Dir() const { return _dir; }

private:
    support::TempDir _dir;
    support::ScopedValue<std::string> _logPath{VUKO::VUKOCrond::CronJob::gLogger._strLogPath, Path()};
    support::ScopedValue<std::string> _stagedPath{VUKO::VUKOCrond::CronJob::gLogger._strMemLogPath, StagedPath()};
};
