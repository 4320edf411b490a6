#include "service/report.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/service/service_fixture.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

std::string InWords(const std::string& strCrontab) {
    return ScheduleInWords(service_test::BuildJob(service_test::JobDefinition("job", strCrontab)));
}

} // namespace

TEST(Report, PutsAScheduleIntoWords) {
    EXPECT_EQ(InWords("* * * * *"), "every minute");
    EXPECT_EQ(InWords("7 3 * * *"), "at 03:07");
    EXPECT_EQ(InWords("30,0 3 * * *"), "at 03:00, 03:30");
    EXPECT_EQ(InWords("5 * * * *"), "at minute 5 of every hour");
    EXPECT_EQ(InWords("* 5 * * *"), "every minute of hour 5");
    EXPECT_EQ(InWords("0,1,2,3,4,5,6 3 * * *"), "at minute 0, 1, 2, 3, 4, 5, 6 of hour 3");
    EXPECT_EQ(InWords("7 3 12 * *"), "at 03:07 on day 12");
    EXPECT_EQ(InWords("7 3 * * 0,6"), "at 03:07 on Sunday, Saturday");
    EXPECT_EQ(InWords("7 3 * 1,12 *"), "at 03:07 in January, December");
}

TEST(Report, SaysThatBothDaysHaveToMatch) {
    EXPECT_EQ(InWords("7 3 13 * 5"), "at 03:07 on day 13 if that is a Friday");
}

TEST(Report, SaysThatAnyValueGoesBeforeTheOthers) {
    EXPECT_EQ(InWords("*,5 3,* 1,* *,1 0,*"), "every minute");
}

TEST(Report, SaysThatAFieldWithoutAValueIsNeverMatched) {
    EXPECT_EQ(InWords("* * , * *"), "never");
}

TEST(Report, PrintsOneLineForEachJob) {
    Json::Value jsDefinition = service_test::JobDefinition("index", "7 3 * * *");
    jsDefinition["user"] = "package";
    jsDefinition["package_username"] = "alice";
    std::vector<Job> vecJobs = {service_test::BuildJob(jsDefinition),
                                service_test::BuildJob(service_test::JobDefinition("backup", "0,30 1 * * 1"))};
    vecJobs[0].id = {"pkg_nonroot", "photos", "index"};
    vecJobs[1].id = {"builtin", "", "backup"};
    std::ostringstream out;
    PrintSchedule(out, JobTable(std::move(vecJobs)));
    EXPECT_EQ(out.str(), "builtin/backup as root: 0,30 1 -1 -1 1 (at 01:00, 01:30 on Monday)\n"
                         "pkg_nonroot/photos/index as alice: 7 3 -1 -1 -1 (at 03:07)\n");
}

TEST(Report, SumsUpWhatLoadingCameTo) {
    LoadReport report;
    EXPECT_EQ(Summary(report), "0 jobs, 0 refusals");
    report.uJobs = 1;
    report.uNew = 1;
    report.vecRefusals = {{"/x.conf", "x"}};
    EXPECT_EQ(Summary(report), "1 job (1 new), 1 refusal");
    report.uJobs = 5;
    report.uChanged = 2;
    report.uKept = 2;
    report.uGone = 3;
    EXPECT_EQ(Summary(report), "5 jobs (1 new, 2 changed, 2 as before, 3 gone), 1 refusal");
    report.uInvalid = 1;
    EXPECT_EQ(Summary(report), "5 jobs (1 new, 2 changed, 2 as before, 3 gone, 1 invalid now), 1 refusal");
}
