#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "tests/fake/call_record.h"
#include "tests/fake/fake_store_platform.h"
#include "tests/support/captured_syslog.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using unit::ExpectInBothForms;
using unit::Failed;
using unit::FromText;
using unit::Logged;
using VUKO::VUKOCrond::CronJob;
using VUKO::VUKOCrond::MAX_DELAY_BETWEEN_JOBS;
using VUKO::VUKOCrond::ScheduleTemplate;

namespace {

using Texts = std::vector<std::string>;

constexpr const char* FILE_PATH = "/run/template";

class Template : public ::testing::Test {
protected:
    void PutFile(const Json::Value& jsContent) { fake::StorePlatform().mapFiles[FILE_PATH].jsContent = jsContent; }
    static const Json::Value& Written() { return fake::StorePlatform().mapFiles.at(FILE_PATH).jsContent; }

    /// A stored template with these values in place of the drawn ones.
    static Json::Value Stored(const std::string& strSchedule) {
        Json::Value jsDocument = ScheduleTemplate()._jsJob;
        jsDocument["schedule"] = FromText(strSchedule);
        return jsDocument;
    }

    /// A template read from a document, as a test needs it: silently and with success.
    ScheduleTemplate Read(const Json::Value& jsDocument) {
        const support::CapturedSyslog log;
        ScheduleTemplate scheduleTemplate;
        PutFile(jsDocument);
        EXPECT_TRUE(scheduleTemplate.fromFile(FILE_PATH));
        return scheduleTemplate;
    }

    const fake::ScopedStorePlatform _platform;
};

constexpr const char* SCHEDULE = R"({"Minute":[7],"hour":[3],"day":[28],"month":[12],"week":[0]})";

/// Everything that a template holds, as one text.
std::string Everything(const ScheduleTemplate& scheduleTemplate) {
    return std::to_string(scheduleTemplate._bValid) + " " + std::to_string(scheduleTemplate._iAssureExecute) + " " +
           std::to_string(scheduleTemplate._iAssureExecuteAction) + " " +
           std::to_string(scheduleTemplate._bRunOnPassive) + " " + scheduleTemplate._jsJob.toStyledString() + " " +
           scheduleTemplate._strReadyCrontab + " " + unit::AllRanges(scheduleTemplate) + " " +
           std::to_string(scheduleTemplate._iMaxDelay);
}

void ExpectRefused(const std::string& strDocument, std::vector<unit::Message> vecMessages) {
    ScheduleTemplate scheduleTemplate;
    scheduleTemplate._iMaxDelay = 42;
    scheduleTemplate._strReadyCrontab = "ready";
    const std::string strBefore = Everything(scheduleTemplate);
    fake::StorePlatform().mapFiles[FILE_PATH].jsContent = FromText(strDocument);
    vecMessages.push_back({722, "Failed to parse schedule template from [/run/template]"});
    ExpectInBothForms([&] { EXPECT_FALSE(scheduleTemplate.fromFile(FILE_PATH)); }, vecMessages);
    EXPECT_EQ(Everything(scheduleTemplate), strBefore) << strDocument;
}

} // namespace

TEST_F(Template, IsMadeOfTheDefaultJobSilently) {
    const support::CapturedSyslog log;
    const ScheduleTemplate scheduleTemplate;
    EXPECT_TRUE(scheduleTemplate._bValid);
    EXPECT_EQ(scheduleTemplate._iMaxDelay, 300);
    EXPECT_EQ(scheduleTemplate._jsJob["config"],
              FromText(R"({"name":"scheduleTemplate","user":"root","cmd":"true","period":"crontab",
                           "crontab":"~ ~ ~ ~ ~","assure_execute":0,"assure_execute_action":"wait",
                           "run_on_passive":false})"));
    EXPECT_EQ(scheduleTemplate._jsJob.getMemberNames(),
              (Texts{"cmd_list", "cmd_str", "config", "schedule", "startup"}));
    EXPECT_EQ(unit::AllRanges(scheduleTemplate), "1:0..59|1:0..23|1:1..28|1:1..12|1:0..6");
    EXPECT_EQ(fake::Calls(), Texts{});
}

TEST_F(Template, DrawsOneValueOfEachFieldsRange) {
    const std::map<std::string, std::pair<int, int>> mapBounds = {
        {"Minute", {0, 59}}, {"hour", {0, 23}}, {"day", {1, 28}}, {"month", {1, 12}}, {"week", {0, 6}}};
    std::map<std::string, std::set<int>> mapSeen;
    for (int i = 0; i < 500; ++i) {
        const ScheduleTemplate scheduleTemplate;
        EXPECT_EQ(scheduleTemplate._jsJob["schedule"].size(), 5U);
        for (const auto& [strType, bounds] : mapBounds) {
            ASSERT_EQ(scheduleTemplate._jsJob["schedule"][strType].size(), 1U);
            const int iValue = scheduleTemplate.GetGeneratedSchedule(strType);
            EXPECT_EQ(scheduleTemplate._jsJob["schedule"][strType][0U].asInt(), iValue);
            EXPECT_GE(iValue, bounds.first) << strType;
            EXPECT_LE(iValue, bounds.second) << strType;
            mapSeen[strType].insert(iValue);
        }
    }
    for (const auto& [strType, setValues] : mapSeen) {
        EXPECT_GT(setValues.size(), 1U) << strType << " is always the same";
    }
}

TEST_F(Template, ReportsADefaultJobThatCannotBeParsedAndStaysInvalid) {
    fake::StorePlatform().mapFailing = {{"explode", 0}};
    ExpectInBothForms(
        [] {
            const ScheduleTemplate scheduleTemplate;
            EXPECT_FALSE(scheduleTemplate._bValid);
            EXPECT_FALSE(scheduleTemplate._jsJob.isMember("schedule"));
            EXPECT_EQ(scheduleTemplate._iMaxDelay, 300);
            EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("hour"), -1);
        },
        {{166, "parse error"}, {704, "Default scheduled template config format invalid"}});
}

TEST_F(Template, DrawsOneFieldAnewAndLeavesTheOthers) {
    ScheduleTemplate scheduleTemplate = Read(Stored(SCHEDULE));
    std::set<int> setMinutes;
    for (int i = 0; i < 200; ++i) {
        scheduleTemplate.GenerateSchedule("Minute");
        setMinutes.insert(scheduleTemplate.GetGeneratedSchedule("Minute"));
    }
    EXPECT_GT(setMinutes.size(), 1U);
    EXPECT_GE(*setMinutes.begin(), 0);
    EXPECT_LE(*setMinutes.rbegin(), 59);
    EXPECT_EQ(scheduleTemplate._jsJob["schedule"]["Minute"].size(), 1U);
    for (const char* const szType : {"hour", "day", "month", "week"}) {
        EXPECT_EQ(scheduleTemplate._jsJob["schedule"][szType], FromText(SCHEDULE)[szType]);
    }
}

TEST_F(Template, HandsOutAValueOnlyWhereThereIsExactlyOne) {
    const ScheduleTemplate scheduleTemplate =
        Read(Stored(R"({"Minute":[7],"hour":[3,4],"day":[],"month":["x"],"odd":[-1],"real":[2.0],"text":"5"})"));
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("Minute"), 7);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("hour"), -1);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("day"), -1);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("month"), -1);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("week"), -1);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("odd"), -1);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("real"), 2);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("text"), -1);
    EXPECT_EQ(Read(unit::Document(unit::Definition())).GetGeneratedSchedule("hour"), -1);
}

TEST_F(Template, HandsItsValuesOnToAJob) {
    const ScheduleTemplate scheduleTemplate = Read(Stored(SCHEDULE));
    CronJob job(unit::Document(unit::Crontab("~ 0~2 ~ ~ ~")));
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, scheduleTemplate.GetGeneratedSchedule(strType));
    }
    for (const char* const szType : {"Minute", "day", "month", "week"}) {
        EXPECT_EQ(job._jsJob["schedule"][szType], FromText(SCHEDULE)[szType]);
    }
    EXPECT_LE(job._jsJob["schedule"]["hour"][0U].asInt(), 2);
}

TEST_F(Template, IsReadFromItsFileAlone) {
    ScheduleTemplate scheduleTemplate;
    PutFile(Stored(SCHEDULE));
    fake::ClearCalls();
    EXPECT_TRUE(scheduleTemplate.fromFile(FILE_PATH));
    EXPECT_EQ(fake::Calls(), Texts{"fromFile /run/template"});
}

TEST_F(Template, TakesTheStoredValuesAsTheyAreEvenOutsideTheirRanges) {
    const ScheduleTemplate scheduleTemplate = Read(Stored(R"({"Minute":[99],"hour":[-7],"day":[31]})"));
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("Minute"), 99);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("hour"), -7);
    EXPECT_EQ(scheduleTemplate.GetGeneratedSchedule("day"), 31);
    EXPECT_FALSE(scheduleTemplate._jsJob["schedule"].isMember("week"));
}

TEST_F(Template, BecomesTheStoredJobInEveryMember) {
    ScheduleTemplate scheduleTemplate;
    scheduleTemplate._strReadyCrontab = "ready";
    PutFile(FromText(R"({"config":{"name":"other","user":"system","period":"crontab","crontab":"5 * 1~2 * 3",
        "cmd_list":["/bin/a","b"],"assure_execute":12,"assure_execute_action":"run","run_on_passive":true,"own":{}},
        "startup":77,"lastExecution":78,"cmd_list":["stale"],"cmd_str":"stale","schedule":{"hour":[4]},
        "unknown":[1,{"x":null}]})"));
    ASSERT_TRUE(scheduleTemplate.fromFile(FILE_PATH));
    EXPECT_TRUE(scheduleTemplate._bValid);
    EXPECT_EQ(scheduleTemplate._iAssureExecute, 12);
    EXPECT_EQ(scheduleTemplate._iAssureExecuteAction, 1);
    EXPECT_TRUE(scheduleTemplate._bRunOnPassive);
    EXPECT_EQ(scheduleTemplate._strReadyCrontab, "");
    EXPECT_EQ(unit::AllRanges(scheduleTemplate), "0:5..-1|2:-1..-1|1:1..2|2:-1..-1|0:3..-1");
    EXPECT_EQ(scheduleTemplate._jsJob,
              FromText(R"({"config":{"name":"other","user":"system","period":"crontab","crontab":"5 * 1~2 * 3",
        "cmd_list":["/bin/a","b"],"assure_execute":12,"assure_execute_action":"run","run_on_passive":true,"own":{}},
        "startup":77,"lastExecution":78,"cmd_list":["/bin/a","b"],"cmd_str":"/bin/a b ","schedule":{"hour":[4]},
        "unknown":[1,{"x":null}]})"));
}

TEST_F(Template, StaysAsItWasWhenTheFileCannotBeRead) {
    const support::CapturedSyslog log;
    ScheduleTemplate scheduleTemplate;
    scheduleTemplate._iMaxDelay = 42;
    const std::string strBefore = Everything(scheduleTemplate);
    for (const int iErrno : {0, EACCES}) {
        PutFile(Stored(SCHEDULE));
        fake::StorePlatform().mapFailing = {{"fromFile", iErrno}};
        EXPECT_FALSE(scheduleTemplate.fromFile(FILE_PATH));
        EXPECT_EQ(Everything(scheduleTemplate), strBefore);
    }
    fake::StorePlatform().mapFailing.clear();
    EXPECT_FALSE(scheduleTemplate.fromFile("/run/missing"));
    EXPECT_EQ(Everything(scheduleTemplate), strBefore);
}

TEST_F(Template, StaysAsItWasWhenTheFileHoldsNoValidJob) {
    const unit::Message noConfig = Failed(179, R"(!_jsJob.isMember("config") || !jsConf.isObject())");
    const unit::Message formatError = {162, "crontab format error"};
    for (const char* const szDocument : {"null", "[]", R"([{"config":{}}])", "1", "1.5", "true", "\"config\"", "{}",
                                         R"({"config":[]})", R"({"config":null})", R"({"maxDelay":7})"}) {
        ExpectRefused(szDocument, {noConfig, formatError});
    }
    ExpectRefused(R"({"config":{"name":"a","user":"root","cmd":"true","period":"crontab","crontab":"~ ~ ~ ~"},
                      "maxDelay":7})",
                  {{166, "parse error"}});
    ExpectRefused(R"({"config":{"name":"a","user":"root","cmd":"true","period":"daily","assure_execute":[]}})",
                  {{166, "parse error"}});
}

TEST_F(Template, TakesTheDelayOnlyWhenItIsAnIntegerAndNotNegative) {
    struct Case {
        const char* szDelay;
        int iExpected;
        const char* szWhy;
    };
    const Case aCases[] = {
        {"0", 0, "zero is a delay"},
        {"1", 1, ""},
        {"300", 300, ""},
        {"2147483647", 2147483647, "the greatest"},
        {"2147483648", 42, "too large"},
        {"18446744073709551615", 42, "too large"},
        {"1e100", 42, "too large"},
        {"-1", 42, "negative"},
        {"-2147483648", 42, "negative"},
        {"-2147483649", 42, "too small"},
        {"1.0", 1, "to the JSON library a whole real number is an integer"},
        {"-0.0", 0, "so is this"},
        {"1.5", 42, "not whole"},
        {"\"7\"", 42, "a text"},
        {"true", 42, "a boolean"},
        {"null", 42, "null"},
        {"[7]", 42, "an array"},
        {"{}", 42, "an object"},
    };
    for (const Case& c : aCases) {
        const support::CapturedSyslog log;
        ScheduleTemplate scheduleTemplate;
        scheduleTemplate._iMaxDelay = 42;
        Json::Value jsDocument = Stored(SCHEDULE);
        jsDocument["maxDelay"] = FromText(c.szDelay);
        PutFile(jsDocument);
        EXPECT_TRUE(scheduleTemplate.fromFile(FILE_PATH)) << c.szDelay;
        EXPECT_EQ(scheduleTemplate._iMaxDelay, c.iExpected) << c.szDelay << " " << c.szWhy;
        EXPECT_EQ(scheduleTemplate._jsJob["maxDelay"], jsDocument["maxDelay"]) << c.szDelay;
    }
}

TEST_F(Template, KeepsItsDelayWhenTheFileHasNone) {
    ScheduleTemplate scheduleTemplate;
    PutFile(Stored(SCHEDULE));
    EXPECT_TRUE(scheduleTemplate.fromFile(FILE_PATH));
    EXPECT_EQ(scheduleTemplate._iMaxDelay, MAX_DELAY_BETWEEN_JOBS);
    scheduleTemplate._iMaxDelay = 42;
    EXPECT_TRUE(scheduleTemplate.fromFile(FILE_PATH));
    EXPECT_EQ(scheduleTemplate._iMaxDelay, 42);
    EXPECT_FALSE(scheduleTemplate._jsJob.isMember("maxDelay"));
}

TEST_F(Template, IsWrittenPlainlyAndWithoutItsUsualDelay) {
    const ScheduleTemplate scheduleTemplate;
    fake::ClearCalls();
    EXPECT_TRUE(scheduleTemplate.toFile(FILE_PATH));
    EXPECT_EQ(fake::Calls(), Texts{"toFile /run/template durable=0"});
    EXPECT_EQ(Written(), scheduleTemplate._jsJob);
    EXPECT_FALSE(Written().isMember("maxDelay"));
}

TEST_F(Template, IsWrittenWithAnyOtherDelay) {
    for (const int iDelay : {0, 1, 299, 301, -5, 2147483647}) {
        ScheduleTemplate scheduleTemplate;
        scheduleTemplate._iMaxDelay = iDelay;
        EXPECT_TRUE(scheduleTemplate.toFile(FILE_PATH));
        EXPECT_EQ(Written()["maxDelay"], iDelay);
        EXPECT_FALSE(scheduleTemplate._jsJob.isMember("maxDelay")) << "the template itself is left alone";
    }
}

TEST_F(Template, WritesAnIgnoredDelayBackAsItWasRead) {
    for (const char* const szDelay : {"-1", "\"7\"", "1.5", "null", "[1]"}) {
        Json::Value jsDocument = Stored(SCHEDULE);
        jsDocument["maxDelay"] = FromText(szDelay);
        const ScheduleTemplate scheduleTemplate = Read(jsDocument);
        EXPECT_EQ(scheduleTemplate._iMaxDelay, 300);
        EXPECT_TRUE(scheduleTemplate.toFile("/run/copy"));
        EXPECT_EQ(fake::StorePlatform().mapFiles.at("/run/copy").jsContent, jsDocument);
    }
}

TEST_F(Template, WritesItsOwnDelayOverAnIgnoredOne) {
    Json::Value jsDocument = Stored(SCHEDULE);
    jsDocument["maxDelay"] = -1;
    ScheduleTemplate scheduleTemplate = Read(jsDocument);
    scheduleTemplate._iMaxDelay = 42;
    EXPECT_TRUE(scheduleTemplate.toFile(FILE_PATH));
    EXPECT_EQ(Written()["maxDelay"], 42);
}

TEST_F(Template, WritesADelayThatWasReadEvenWhenItsOwnIsTheUsualOneAgain) {
    Json::Value jsDocument = Stored(SCHEDULE);
    jsDocument["maxDelay"] = 42;
    ScheduleTemplate scheduleTemplate = Read(jsDocument);
    EXPECT_EQ(scheduleTemplate._iMaxDelay, 42);
    scheduleTemplate._iMaxDelay = 300;
    EXPECT_TRUE(scheduleTemplate.toFile(FILE_PATH));
    EXPECT_EQ(Written()["maxDelay"], 42);
}

TEST_F(Template, KeepsUnknownMembersFromFileToFile) {
    Json::Value jsDocument = Stored(SCHEDULE);
    jsDocument["unknown"] = FromText(R"({"a":[1,2.5,null,"x"],"":true})");
    jsDocument["config"]["unknown"] = FromText("[[]]");
    jsDocument["schedule"]["unknown"] = "kept";
    EXPECT_TRUE(Read(jsDocument).toFile("/run/copy"));
    EXPECT_EQ(fake::StorePlatform().mapFiles.at("/run/copy").jsContent, jsDocument);
}

TEST_F(Template, ReportsAWriteThatFailsByItsResultAlone) {
    const support::CapturedSyslog log;
    fake::StorePlatform().mapFailing = {{"toFile", ENOSPC}};
    EXPECT_FALSE(ScheduleTemplate().toFile(FILE_PATH));
}
