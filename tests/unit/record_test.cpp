#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/fake/fake_platform.h"
#include "tests/support/captured_syslog.h"
#include "tests/support/fake_clock.h"

using VUKO::VUKOCrond::CronJob;

TEST(Record, ReportsADocumentWithoutConfig) {
    support::CapturedSyslog log;
    errno = 0;
    const CronJob job{Json::Value(Json::objectValue)};
    EXPECT_FALSE(job._bValid);
    EXPECT_EQ(log.Take(), (std::vector<std::string>{
                              "<3>cronjob:179 Failed [!_jsJob.isMember(\"config\") || !jsConf.isObject()], err=Success",
                              "<3>cronjob:162 crontab format error"}));
}
