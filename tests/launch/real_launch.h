#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/launch/execution_log.h"
#include "tests/launch/job_documents.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/forked.h"

/// Launches with the shared libraries as they are installed. The witness program tells what a job inherits.
class RealLaunch : public ::testing::Test {
protected:
    using Texts = std::vector<std::string>;

    support::CapturedSyslog _syslog;
    ScopedExecutionLog _log;
    const std::string _strReport = _log.Dir() / "report.json";

    /// A job that runs the witness with the report's path and these further arguments.
    static VUKO::VUKOCrond::CronJob WitnessJob(const std::string& strUser, const std::string& strProgram,
                                               const std::string& strReport, const Texts& vecArguments = {});
    VUKO::VUKOCrond::CronJob WitnessJob(const Texts& vecArguments = {}) const;

    /// Runs a job, waits for its child, and expects that to end with status 0.
    static void RunToItsEnd(VUKO::VUKOCrond::CronJob& job);
    /// What the witness has reported; null when it has not.
    Json::Value Report() const;
    /// The lines of the execution log without their stamps.
    Texts Lines() const;
};
