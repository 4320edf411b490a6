#include <gtest/gtest.h>

#include <string>

#include "crond/configmanager.h"
#include "tests/fake/call_record.h"
#include "tests/support/captured_syslog.h"
#include "tests/unit/definitions.h"

using unit::FromText;
using VUKO::VUKOCrond::ConfigManager;
using VUKO::VUKOCrond::ConfigManagerPrivate;

namespace {

/// The JSON text after the replacement by "alice".
Json::Value Replaced(const std::string& strText) {
    const support::CapturedSyslog log;
    Json::Value jsJobs = FromText(strText);
    ConfigManager::ReplacePkgUserName(jsJobs, "alice");
    return jsJobs;
}

struct Case {
    const char* szBefore;
    const char* szAfter;
    const char* szWhy;
};

} // namespace

TEST(PackageUser, IsSetWhereTheUserIsExactlyPackage) {
    const Case aCases[] = {
        {R"({"user":"package"})", R"({"user":"package","package_username":"alice"})", "added"},
        {R"({"user":"package","package_username":"bob"})", R"({"user":"package","package_username":"alice"})",
         "replaced"},
        {R"({"user":"package","package_username":[1]})", R"({"user":"package","package_username":"alice"})",
         "of any kind"},
        {R"({"user":"root"})", R"({"user":"root"})", "another user"},
        {R"({"user":"Package"})", R"({"user":"Package"})", "the case counts"},
        {R"({"user":"package-x"})", R"({"user":"package-x"})", "the whole word, unlike at the launch"},
        {R"({"user":"rootpackage"})", R"({"user":"rootpackage"})", "the whole word"},
        {R"({"user":"package\u0000"})", R"({"user":"package\u0000"})", "the whole word, beyond a NUL"},
        {R"({"user":""})", R"({"user":""})", "empty"},
        {R"({"user":["package"]})", R"({"user":["package"]})", "no string"},
        {R"({"user":{"user":"package"}})", R"({"user":{"user":"package"}})", "no string"},
        {R"({"user":null,"package_username":"bob"})", R"({"user":null,"package_username":"bob"})", "no string"},
        {R"({})", R"({})", "no user"},
        {R"({"config":{"user":"package"}})", R"({"config":{"user":"package"}})", "a whole document is no definition"},
    };
    for (const Case& c : aCases) {
        EXPECT_EQ(Replaced(c.szBefore), FromText(c.szAfter)) << c.szWhy;
    }
}

TEST(PackageUser, IsSetInEachElementOfAnArray) {
    EXPECT_EQ(Replaced(R"([{"user":"package"},{"user":"root"},{"user":"Package"}])"),
              FromText(R"([{"user":"package","package_username":"alice"},{"user":"root"},{"user":"Package"}])"));
    EXPECT_EQ(Replaced(R"([{"user":"root"},{"user":"package"},{"user":"package","package_username":"bob"}])"),
              FromText(R"([{"user":"root"},{"user":"package","package_username":"alice"},)"
                       R"({"user":"package","package_username":"alice"}])"));
}

TEST(PackageUser, LeavesOddElementsOfAnArrayAlone) {
    EXPECT_EQ(Replaced(R"([null,"package",1,1.5,true,[{"user":"package"}],{},{"user":"package"}])"),
              FromText(R"([null,"package",1,1.5,true,[{"user":"package"}],{},)"
                       R"({"user":"package","package_username":"alice"}])"));
    EXPECT_EQ(Replaced("[]"), FromText("[]"));
}

TEST(PackageUser, LeavesWhatIsNeitherObjectNorArrayAlone) {
    for (const char* const szText : {"null", "\"package\"", "1", "-1", "1.5", "true", "18446744073709551615"}) {
        EXPECT_EQ(Replaced(szText), FromText(szText));
    }
}

TEST(PackageUser, TakesAnyNameAsItIs) {
    for (const std::string& strName : {std::string(), std::string("a\0b", 3), std::string("package")}) {
        Json::Value jsJob = FromText(R"({"user":"package"})");
        ConfigManagerPrivate::ReplacePkgUserName(jsJob, strName);
        EXPECT_EQ(jsJob["package_username"].asString(), strName);
    }
}
