#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/support/fake_clock.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

constexpr time_t NOW = 1'800'000'000;

} // namespace

TEST(Defaults, AreWrittenIntoTheDefinitionWithTheirKinds) {
    const CronJob job(Document(Definition()));
    const Json::Value& jsConf = job._jsJob["config"];
    EXPECT_EQ(jsConf["assure_execute"].type(), Json::intValue);
    EXPECT_EQ(jsConf["assure_execute"].asInt(), 0);
    EXPECT_EQ(jsConf["assure_execute_action"].type(), Json::stringValue);
    EXPECT_EQ(jsConf["assure_execute_action"].asString(), "wait");
    EXPECT_EQ(jsConf["run_on_passive"].type(), Json::booleanValue);
    EXPECT_FALSE(jsConf["run_on_passive"].asBool());
    EXPECT_EQ(jsConf.size(), Definition().size() + 3);
}

TEST(Defaults, LeaveTheCallersDocumentAlone) {
    const Json::Value jsDocument = Document(Definition());
    const Json::Value jsBefore = jsDocument;
    const CronJob job(jsDocument);
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(jsDocument, jsBefore);
    EXPECT_NE(job._jsJob, jsBefore);
}

TEST(Defaults, TakeTheTimeOfConstructionAsStartup) {
    for (const time_t tNow : {time_t{0}, NOW, time_t{2'147'483'648}, time_t{99'999'999'999}, time_t{-1}}) {
        const support::FakeClock clock(tNow);
        const CronJob job(Document(Definition()));
        const Json::Value& jsStartup = job._jsJob["startup"];
        EXPECT_EQ(jsStartup.type(), Json::intValue);
        EXPECT_EQ(jsStartup.asInt64(), tNow);
    }
}

TEST(Defaults, ReadTheClockOnce) {
    support::FakeClock clock(NOW);
    clock.AdvancePerReading(1);
    const CronJob job(Document(Definition()));
    EXPECT_EQ(clock.Readings(), 1);
    EXPECT_EQ(job._jsJob["startup"].asInt64(), NOW);
}

TEST(Defaults, KeepAStartupThatIsThereWhateverItsKind) {
    const support::FakeClock clock(NOW);
    for (const Json::Value& jsStartup : {Json::Value(5), Json::Value("yesterday"), Json::Value(), Json::Value(2.5)}) {
        Json::Value jsDocument = Document(Definition());
        jsDocument["startup"] = jsStartup;
        const CronJob job(jsDocument);
        EXPECT_TRUE(job._bValid);
        EXPECT_EQ(job._jsJob["startup"], jsStartup);
    }
}

TEST(Defaults, LookForStartupBesideTheDefinitionAndNotInIt) {
    const support::FakeClock clock(NOW);
    const CronJob job(Document(With("startup", 5)));
    EXPECT_EQ(job._jsJob["startup"].asInt64(), NOW);
    EXPECT_EQ(job._jsJob["config"]["startup"].asInt(), 5);
}

TEST(Defaults, KeepTheRuntimeKeysOfADocumentThatIsLoadedAgain) {
    Json::Value jsDocument = Document(Definition());
    jsDocument["startup"] = 1;
    jsDocument["lastExecution"] = 2;
    jsDocument["expireTime"] = 3;
    jsDocument["schedule"] = FromText(R"({"Minute":[4]})");
    jsDocument["note"] = "someone else's";
    const CronJob job(jsDocument);
    for (const char* const szKey : {"startup", "lastExecution", "expireTime", "schedule", "note"}) {
        EXPECT_EQ(job._jsJob[szKey], jsDocument[szKey]) << szKey;
    }
}

TEST(Defaults, ReplaceNoKeyThatIsThereWhateverItsKind) {
    const Json::Value aValues[] = {Json::Value(),
                                   Json::Value(true),
                                   Json::Value(7),
                                   Json::Value(2.5),
                                   Json::Value("7"),
                                   Json::Value(Json::arrayValue),
                                   Json::Value(Json::objectValue)};
    for (const char* const szKey : {"assure_execute", "assure_execute_action", "run_on_passive"}) {
        for (const Json::Value& jsValue : aValues) {
            Logged([&] {
                const CronJob job(Document(With(szKey, jsValue)));
                EXPECT_EQ(job._jsJob["config"][szKey], jsValue) << szKey;
                EXPECT_EQ(job._jsJob["config"].size(), Definition().size() + 3);
            });
        }
    }
}

TEST(Defaults, AreAllWrittenBeforeTheDefinitionIsParsed) {
    EXPECT_EQ(Logged([] {
                  const CronJob job(Document(With("period", "yearly")));
                  EXPECT_TRUE(job._jsJob.isMember("startup"));
                  EXPECT_EQ(job._jsJob["config"].size(), Definition().size() + 3);
              }),
              (std::vector<std::string>{"<3>cronjob:265 error period", "<3>cronjob:166 parse error"}));
}

TEST(Defaults, AreFilledByTheFirstStageAlone) {
    CronJob job(Document(Definition()));
    job._jsJob = Document(With("period", "yearly")); // which only the second stage refuses
    EXPECT_TRUE(job.InitDefaultConfig());
    EXPECT_EQ(job._jsJob["config"]["assure_execute_action"], "wait");
    EXPECT_FALSE(job._jsJob.isMember("cmd_list"));
}
