#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "crond/cronjob.h"
#include "crond/utils.h"
#include "platform/vukojson.h"
#include "tests/docs/document.h"

using VUKO::VUKOCrond::checkJobFormat;
using VUKO::VUKOCrond::CronJob;
using VUKO::VUKOCrond::ScheduleTemplate;

namespace {

/// An example of docs/FORMATS.md as the file that it stands for.
class FormatsDocument : public testing::Test {
protected:
    std::string Example(const std::string& strName) {
        const std::string strPath = _dir / strName;
        support::WriteFile(strPath, docs::BlockAfter("docs/FORMATS.md", "<!-- example: " + strName + " -->"));
        return strPath;
    }

    Json::Value ReadExample(const std::string& strName) {
        Json::Value js;
        EXPECT_TRUE(VUKO::JSON::fromFile(js, Example(strName))) << strName;
        return js;
    }

private:
    support::TempDir _dir;
};

TEST_F(FormatsDocument, ShowsADefinitionThatMakesAJob) {
    const Json::Value jsDefinition = ReadExample("definition");
    EXPECT_TRUE(checkJobFormat(jsDefinition));
    Json::Value jsJob;
    jsJob["config"] = jsDefinition;
    const CronJob job(jsJob);
    EXPECT_EQ(job._iAssureExecute, 24);
    EXPECT_EQ(job._iAssureExecuteAction, 1);
    EXPECT_EQ(job._mapRanges.at("Minute").size(), 2U);
    EXPECT_EQ(job._mapRanges.at("week").at(0).kind, 1);
}

TEST_F(FormatsDocument, ShowsAJobDocumentWithAScheduleThatCanBeRendered) {
    const CronJob job(ReadExample("document"));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(job.ToCurrentCrontabString(), "17 3 -1 -1 -1");
    EXPECT_EQ(job._jsJob["startup"].asInt64(), 1793000000);
}

TEST_F(FormatsDocument, ShowsATemplateThatCanBeLoaded) {
    ScheduleTemplate scheduleTemplate;
    ASSERT_TRUE(scheduleTemplate.fromFile(Example("template")));
    EXPECT_EQ(scheduleTemplate._iMaxDelay, 600);
    EXPECT_EQ(scheduleTemplate.ToCurrentCrontabString(), "42 3 9 11 2");
}

TEST_F(FormatsDocument, ShowsLogLinesOfTheStampedForm) {
    const std::regex stamped(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d (running job: \S+ with command: |Failed to ).+)");
    std::istringstream lines(support::ReadFile(Example("log")));
    int iLines = 0;
    for (std::string strLine; std::getline(lines, strLine); ++iLines) {
        EXPECT_TRUE(std::regex_match(strLine, stamped)) << strLine;
    }
    EXPECT_EQ(iLines, 3);
}

} // namespace
