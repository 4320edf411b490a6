#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/fake/call_record.h"
#include "tests/fake/fake_platform.h"
#include "tests/launch/execution_log.h"
#include "tests/launch/job_documents.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/fake_clock.h"
#include "tests/support/forked.h"
#include "tests/support/scoped_tz.h"

/// Launches on the fake platform, at a fixed moment.
class LaunchOnFakes : public ::testing::Test {
protected:
    using Texts = std::vector<std::string>;

    static constexpr time_t NOW = (time_t{1} << 33U) + 5; // 2242-03-16 12:56:37 UTC: more than 32 bits
    static constexpr const char* STAMP = "2242-03-16T12:56:37+00:00 ";
    static const Texts NONE;

    support::CapturedSyslog _syslog;
    fake::ScopedPlatform _platform;
    support::ScopedTz _zone{"UTC"};
    support::FakeClock _clock{NOW};
    ScopedExecutionLog _log;
    VUKO::VUKOCrond::CronJob _job{TextCommandJob("backup", "root", "/bin/backup -q")};

    LaunchOnFakes() { _job._strReadyCrontab = "ready"; }

    /// Runs the job in a child that Run() takes for its own, and tells how that ended: "_exit 0", or "returned" with
    /// what is then left in the ready mark.
    std::string RunAsChild(int iDelaySec = 0, const std::string& strLabel = "", int iErrno = 0) {
        fake::Platform().eFork = fake::PlatformState::Fork::ActAsChild;
        const support::ChildEnd end = support::RunForked([&](int iFdOut) {
            errno = iErrno;
            _job.Run(iDelaySec, strLabel);
            dprintf(iFdOut, "returned, ready [%s]", _job._strReadyCrontab.c_str());
            return 0;
        });
        const Texts vecCalls = fake::Calls();
        if (end.strOutput.empty() && !vecCalls.empty() && vecCalls.back().starts_with("_exit ")) {
            return "_exit " + std::to_string(end.iExitStatus);
        }
        return end.strOutput;
    }

    /// The calls from the first that begins with a text on.
    static Texts CallsFrom(const std::string& strBegin) {
        Texts vecCalls = fake::Calls();
        const auto it = std::find_if(vecCalls.begin(), vecCalls.end(),
                                     [&](const std::string& strCall) { return strCall.starts_with(strBegin); });
        return Texts(it, vecCalls.end());
    }

    static std::string Line(const std::string& strText) { return STAMP + strText + "\n"; }
    static std::string StartLine() { return Line("running job: backup with command: /bin/backup -q as user root"); }
};

inline const LaunchOnFakes::Texts LaunchOnFakes::NONE;
