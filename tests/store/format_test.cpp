#include <gtest/gtest.h>

#include <cerrno>
#include <iostream>
#include <string>
#include <vector>

#include "crond/utils.h"
#include "tests/store/random_json.h"
#include "tests/support/captured_syslog.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using unit::Definition;
using unit::Document;
using unit::ExpectInBothForms;
using unit::Failed;
using unit::FromText;
using unit::With;
using unit::Without;
using VUKO::VUKOCrond::checkJobFormat;

namespace {

Json::Value ArrayOf(const std::vector<Json::Value>& vecElements) {
    Json::Value jsArray(Json::arrayValue);
    for (const Json::Value& jsElement : vecElements) {
        jsArray.append(jsElement);
    }
    return jsArray;
}

const unit::Message NO_NAME = Failed(182, R"(!jsConf.isMember("name") || !jsConf["name"].isString())");
const unit::Message NO_CONFIG = Failed(179, R"(!_jsJob.isMember("config") || !jsConf.isObject())");
const unit::Message NO_PERIOD = Failed(180, R"(!jsConf.isMember("period") || !jsConf["period"].isString() || )"
                                            R"(jsConf["period"].asString().empty())");
const unit::Message FORMAT_ERROR = {162, "crontab format error"};
const unit::Message PARSE_ERROR = {166, "parse error"};

void ExpectGood(const Json::Value& jsJobs) {
    const Json::Value jsBefore = jsJobs;
    ExpectInBothForms([&] { EXPECT_TRUE(checkJobFormat(jsJobs)); }, {});
    EXPECT_EQ(jsJobs, jsBefore);
}

void ExpectBad(const Json::Value& jsJobs, const std::vector<unit::Message>& vecMessages) {
    const Json::Value jsBefore = jsJobs;
    ExpectInBothForms([&] { EXPECT_FALSE(checkJobFormat(jsJobs)); }, vecMessages);
    EXPECT_EQ(jsJobs, jsBefore);
}

/// What the check says of one element, told without it.
bool MakesAValidJob(const Json::Value& jsDefinition) {
    return unit::CronJob(Document(jsDefinition))._bValid;
}

bool Oracle(const Json::Value& jsJobs) {
    if (jsJobs.isArray()) {
        for (Json::ArrayIndex i = 0; i < jsJobs.size(); ++i) {
            if (!MakesAValidJob(jsJobs[i])) {
                return false;
            }
        }
        return true;
    }
    return jsJobs.isObject() && MakesAValidJob(jsJobs);
}

Json::Value NestedTooDeep(int iDepth) {
    Json::Value jsValue(Json::arrayValue);
    for (int i = 0; i < iDepth; ++i) {
        Json::Value jsOuter(Json::arrayValue);
        jsOuter.append(std::move(jsValue));
        jsValue.swap(jsOuter);
    }
    return jsValue;
}

} // namespace

TEST(JobFormat, AcceptsADefinitionAndAnArrayOfThem) {
    ExpectGood(Definition());
    ExpectGood(ArrayOf({Definition()}));
    ExpectGood(ArrayOf({Definition(), Definition(), With("period", "weekly")}));
}

TEST(JobFormat, AcceptsAnEmptyArray) {
    ExpectGood(Json::Value(Json::arrayValue));
}

TEST(JobFormat, RefusesWhatIsNeitherObjectNorArraySilently) {
    for (const char* const szText : {"null", "\"text\"", "1", "-1", "1.5", "true", "false", "18446744073709551615"}) {
        ExpectBad(FromText(szText), {});
    }
}

TEST(JobFormat, RefusesAnEmptyDefinition) {
    ExpectBad(Json::Value(Json::objectValue), {NO_PERIOD, FORMAT_ERROR});
}

TEST(JobFormat, RefusesAWholeJobDocument) {
    ExpectBad(Document(Definition()), {NO_PERIOD, FORMAT_ERROR});
}

TEST(JobFormat, StopsAtTheFirstBadDefinition) {
    ExpectBad(ArrayOf({Definition(), Without("name"), With("period", "yearly")}), {NO_NAME, FORMAT_ERROR});
    ExpectBad(ArrayOf({With("period", "yearly"), Without("name")}), {{265, "error period"}, PARSE_ERROR});
}

TEST(JobFormat, RefusesAnArrayWithAnElementThatIsNoObject) {
    for (const char* const szText : {"null", "1", "\"text\"", "[]", "[{}]", "true"}) {
        ExpectBad(ArrayOf({Definition(), FromText(szText)}), {NO_CONFIG, FORMAT_ERROR});
    }
    ExpectBad(ArrayOf({ArrayOf({Definition()})}), {NO_CONFIG, FORMAT_ERROR});
}

TEST(JobFormat, RunsTheWholeParsing) {
    ExpectBad(unit::Crontab("60 * * * *"), {PARSE_ERROR});
    ExpectBad(With("cmd_list", Json::Value(Json::arrayValue)),
              {Failed(301, R"(0 == _jsJob["cmd_list"].size())"), PARSE_ERROR});
}

TEST(JobFormat, RefusesAValueThatCannotBeConverted) {
    ExpectBad(With("assure_execute", Json::Value(Json::objectValue)), {PARSE_ERROR});
    ExpectBad(With("assure_execute", 1e300), {PARSE_ERROR});
    ExpectBad(With("cmd_list", FromText("[[1]]")), {PARSE_ERROR});
}

TEST(JobFormat, DoesNotLookAtTheAccount) {
    ExpectGood(With("user", "nobody in particular"));
    ExpectGood(With("package_username", Json::Value(5), With("user", "package")));
}

TEST(JobFormat, EndsWithAnAnswerForADocumentNestedFarTooDeep) {
    const Json::Value jsDeep = NestedTooDeep(2000);
    ExpectBad(jsDeep, {NO_CONFIG, FORMAT_ERROR});
    ExpectGood(With("other", jsDeep));
    ExpectBad(With("cmd_list", jsDeep), {PARSE_ERROR});
}

TEST(JobFormat, HasAnAnswerForEveryValue) {
    constexpr unsigned SEED = 20261120;
    std::cout << "seed " << SEED << "\n";
    store::RandomJson random(SEED);
    int aCounts[2] = {0, 0};
    for (int i = 0; i < 20000; ++i) {
        Json::Value jsJobs;
        switch (random.Below(3)) {
        case 0:
            jsJobs = random.Value(4);
            break;
        case 1:
            jsJobs = random.NearDefinition();
            break;
        default:
            jsJobs = ArrayOf({random.NearDefinition(), random.NearDefinition()});
            break;
        }
        support::CapturedSyslog log;
        const Json::Value jsBefore = jsJobs;
        bool bGood = false;
        ASSERT_NO_THROW(bGood = checkJobFormat(jsJobs)) << jsJobs;
        const std::vector<std::string> vecMessages = log.Take();
        ASSERT_EQ(jsJobs, jsBefore);
        ASSERT_EQ(bGood, Oracle(jsJobs)) << jsJobs;
        ASSERT_EQ(vecMessages.empty(), bGood || !(jsJobs.isObject() || jsJobs.isArray())) << jsJobs;
        log.Take();
        ++aCounts[bGood ? 1 : 0];
    }
    EXPECT_GT(aCounts[0], 4000);
    EXPECT_GT(aCounts[1], 4000);
}
