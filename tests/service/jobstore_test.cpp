#include "service/jobstore.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/service/service_fixture.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

using Texts = std::vector<std::string>;

JobId IdOf(const std::string& strName) {
    return {"builtin", "", strName};
}

Definition Found(const Json::Value& jsDefinition, const std::string& strFile = "/d/job.conf") {
    return {IdOf(jsDefinition["name"].asString()), strFile, strFile, jsDefinition};
}

DefinitionScan Scan(std::vector<Definition> vecDefinitions) {
    return {std::move(vecDefinitions), {}};
}

} // namespace

TEST(JobStore, BuildsAJobWithASchedule) {
    JobStore store;
    const LoadReport report = store.Load(Scan({Found(service_test::JobDefinition("job", "5 ~ * * 1"))}));
    EXPECT_EQ(report.uJobs, 1U);
    EXPECT_EQ(report.uNew, 1U);
    ASSERT_EQ(store.Jobs().count(IdOf("job")), 1U);
    const ScheduledJob& scheduled = store.Jobs().at(IdOf("job"));
    EXPECT_TRUE(scheduled.job._bValid);
    EXPECT_FALSE(scheduled.IsReady());
    EXPECT_EQ(scheduled.job.GetGeneratedScheduleByType(SZK_MINUTE), std::vector<int>{5});
    EXPECT_EQ(scheduled.job.GetGeneratedScheduleByType(SZK_HOUR).size(), 1U);
    EXPECT_EQ(scheduled.job.GetGeneratedScheduleByType(SZK_DAY), std::vector<int>{-1});
}

TEST(JobStore, KeepsEverythingOfAJobWhoseDefinitionIsAsBefore) {
    JobStore store;
    store.Load(Scan({Found(service_test::JobDefinition("job", "~ ~ ~ ~ ~"))}));
    ScheduledJob& scheduled = store.Jobs().at(IdOf("job"));
    scheduled.job._jsJob["lastExecution"] = 1000;
    scheduled.job._jsJob["startup"] = 900;
    scheduled.job._jsJob["expireTime"] = 1100;
    scheduled.job._strReadyCrontab = "ready";
    scheduled.strReadyLabel = "assure";
    const Json::Value jsBefore = scheduled.job._jsJob;

    const LoadReport report =
        store.Load(Scan({Found(service_test::JobDefinition("job", "~ ~ ~ ~ ~"), "/d/renamed.conf")}));

    EXPECT_EQ(report.uKept, 1U);
    EXPECT_EQ(report.uNew + report.uChanged + report.uGone, 0U);
    const ScheduledJob& kept = store.Jobs().at(IdOf("job"));
    EXPECT_EQ(kept.job._jsJob, jsBefore);
    EXPECT_EQ(kept.job._strReadyCrontab, "ready");
    EXPECT_EQ(kept.strReadyLabel, "assure");
    EXPECT_EQ(kept.strFile, "/d/renamed.conf");
}

TEST(JobStore, RedrawsOnlyTheFieldsThatWereEdited) {
    JobStore store;
    store.Load(Scan({Found(service_test::JobDefinition("job", "~ ~ 1~28 * ~"))}));
    ScheduledJob& scheduled = store.Jobs().at(IdOf("job"));
    const Json::Value jsBefore = scheduled.job._jsJob["schedule"];
    scheduled.job._jsJob["lastExecution"] = 1000;
    scheduled.job._jsJob["startup"] = 900;
    scheduled.job._strReadyCrontab = "ready";

    const LoadReport report = store.Load(Scan({Found(service_test::JobDefinition("job", "~ 7 1~28 * ~"))}));

    EXPECT_EQ(report.uChanged, 1U);
    EXPECT_EQ(report.uGone, 0U);
    const CronJob& job = store.Jobs().at(IdOf("job")).job;
    for (const char* const szType : {SZK_MINUTE, SZK_DAY, SZK_MONTH, SZK_WEEK}) {
        EXPECT_EQ(job._jsJob["schedule"][szType], jsBefore[szType]) << szType;
    }
    EXPECT_EQ(job.GetGeneratedScheduleByType(SZK_HOUR), std::vector<int>{7});
    EXPECT_EQ(job._jsJob["lastExecution"].asInt(), 1000);
    EXPECT_EQ(job._jsJob["startup"].asInt(), 900);
    EXPECT_EQ(job._strReadyCrontab, "");
}

TEST(JobStore, DrawsAnewWhenARangeChanges) {
    JobStore store;
    std::set<int> setDrawn;
    for (int i = 0; i < 40; ++i) { // the same value 40 times: less than one in 10^50
        const std::string strMinutes = i % 2 == 0 ? "0~29,~" : "0~28,~";
        store.Load(Scan({Found(service_test::JobDefinition("job", strMinutes + " * * * *"))}));
        setDrawn.insert(store.Jobs().at(IdOf("job")).job.GetGeneratedScheduleByType(SZK_MINUTE).front());
    }
    EXPECT_GT(setDrawn.size(), 1U);
}

TEST(JobStore, ForgetsAJobThatIsGone) {
    JobStore store;
    store.Load(Scan({Found(service_test::JobDefinition("a")), Found(service_test::JobDefinition("b"))}));
    const LoadReport report = store.Load(Scan({Found(service_test::JobDefinition("b"))}));
    EXPECT_EQ(report.uGone, 1U);
    EXPECT_EQ(report.uKept, 1U);
    EXPECT_EQ(store.Jobs().count(IdOf("a")), 0U);
}

TEST(JobStore, TellsJobsOfOneNameApartByFolderAndPackage) {
    JobStore store;
    std::vector<Definition> vecDefinitions(3, Found(service_test::JobDefinition("job")));
    vecDefinitions[1].id = {"pkg_nonroot", "photos", "job"};
    vecDefinitions[2].id = {"pkg_nonroot", "videos", "job"};
    const LoadReport report = store.Load(Scan(vecDefinitions));
    EXPECT_EQ(report.uJobs, 3U);
    EXPECT_EQ(report.vecRefusals, Texts{});
}

TEST(JobStore, RefusesTheSecondDefinitionOfAJobAndNamesBothFiles) {
    JobStore store;
    const auto load = [&store] {
        return store.Load(Scan({Found(service_test::JobDefinition("job", "1 * * * *"), "/d/a.conf"),
                                Found(service_test::JobDefinition("job", "2 * * * *"), "/d/b.conf")}));
    };
    const Texts vecExpected{R"(/d/b.conf: field "name": "job" is defined in /d/a.conf already)"};
    EXPECT_EQ(load().vecRefusals, vecExpected);
    EXPECT_EQ(load().vecRefusals, vecExpected); // also when the first is kept
    EXPECT_EQ(store.Jobs().at(IdOf("job")).job.GetGeneratedScheduleByType(SZK_MINUTE), std::vector<int>{1});
}

TEST(JobStore, PassesTheRefusalsOfTheScanOn) {
    JobStore store;
    DefinitionScan scan;
    scan.vecRefusals = {{"/d/bad.conf", "/d/bad.conf: is not JSON"}};
    EXPECT_EQ(store.Load(scan).vecRefusals, Texts{"/d/bad.conf: is not JSON"});
}

TEST(JobStore, KeepsACommandOnOneLineOfTheExecutionLog) {
    JobStore store;
    Json::Value jsDefinition = service_test::JobDefinition("job");
    jsDefinition["cmd_list"].append("/bin/sh");
    jsDefinition["cmd_list"].append("-c");
    jsDefinition["cmd_list"].append("true\ntrue");
    store.Load(Scan({Found(jsDefinition)}));
    const Json::Value& jsJob = store.Jobs().at(IdOf("job")).job._jsJob;
    EXPECT_EQ(jsJob["cmd_str"].asString(), "/bin/sh -c true\\x0atrue ");
    EXPECT_EQ(jsJob["cmd_list"][2].asString(), "true\ntrue");
    EXPECT_EQ(store.Load(Scan({Found(jsDefinition)})).uKept, 1U);
}

TEST(JobId, ReadsAsAPath) {
    EXPECT_EQ(ToText(JobId{"pkg", "", "job"}), "pkg/job");
    EXPECT_EQ(ToText(JobId{"pkg_nonroot", "photos", "job"}), "pkg_nonroot/photos/job");
}
