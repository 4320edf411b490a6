#include "service/definitions/definitionreason.h"

#include <gtest/gtest.h>

#include <string>

#include "crond/cronjob.h"
#include "tests/service/service_fixture.h"
#include "tests/support/captured_syslog.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using service_test::FromJson;

namespace {

struct Case {
    const char* szMember; ///< put into a definition that is good, over what is there
    const char* szReason; ///< empty: still good
};

bool LibraryAccepts(const Json::Value& jsDefinition) {
    support::CapturedSyslog log;
    Json::Value jsDocument;
    jsDocument["config"] = jsDefinition;
    const bool bValid = CronJob(jsDocument)._bValid;
    log.Take();
    return bValid;
}

/// A member whose value is "absent" is taken out.
Json::Value Changed(const char* szMember) {
    Json::Value jsDefinition = service_test::JobDefinition("job");
    const Json::Value jsMembers = FromJson(szMember);
    for (const std::string& strName : jsMembers.getMemberNames()) {
        if (jsMembers[strName] == "absent") {
            jsDefinition.removeMember(strName);
        } else {
            jsDefinition[strName] = jsMembers[strName];
        }
    }
    return jsDefinition;
}

} // namespace

TEST(DefinitionReason, NamesFieldValueAndWhatWasExpected) {
    const Case aCases[] = {
        {R"({})", ""},
        // the required keys
        {R"({"name": "absent"})", R"(field "name": missing, expected a text)"},
        {R"({"name": 5})", R"(field "name": expected a text, found a number)"},
        {R"({"name": null})", R"(field "name": expected a text, found null)"},
        {R"({"user": "absent"})", R"(field "user": missing, expected a text)"},
        {R"({"user": true})", R"(field "user": expected a text, found a boolean)"},
        {R"({"user": "package"})",
         R"(field "package_username": missing, expected an account name, as "user" is "package")"},
        {R"({"user": "package", "package_username": 7})", ""}, // refused when the job is due, and by the policy
        {R"({"user": "packages"})", ""},
        {R"({"period": "absent"})", R"(field "period": missing, expected a text)"},
        {R"({"period": {}})", R"(field "period": expected a text, found an object)"},
        {R"({"period": ""})", R"(field "period": expected a text that begins with c, d, h, m or w, found "")"},
        {R"({"period": "yearly"})",
         R"(field "period": expected a text that begins with c, d, h, m or w, found "yearly")"},
        {R"({"period": "Dinner"})", ""},
        {R"({"period": "my crontab", "crontab": "absent"})",
         R"(field "crontab": missing, expected a text, as "period" speaks of a crontab)"},
        {R"({"period": "my crontab", "crontab": "no schedule at all"})", ""},
        // the five fields
        {R"({"crontab": "absent"})", R"(field "crontab": missing, expected a text of five fields)"},
        {R"({"period": "C", "crontab": "absent"})", R"(field "crontab": missing, expected a text of five fields)"},
        {R"({"crontab": 5})", R"(field "crontab": expected a text of five fields, found a number)"},
        {R"({"crontab": "* * * *"})", R"(field "crontab": expected five fields separated by blanks, found 4)"},
        {R"({"crontab": ""})", R"(field "crontab": expected five fields separated by blanks, found 0)"},
        {R"({"crontab": "* * * * * *"})", R"(field "crontab": expected five fields separated by blanks, found 6)"},
        {R"({"crontab": " *  * * *   * "})", ""},
        {R"({"crontab": "60 * * * *"})", R"(field "crontab": minute: 60 is not in 0..59)"},
        {R"({"crontab": "* 25 * * *"})", R"(field "crontab": hour: 25 is not in 0..23)"},
        {R"({"crontab": "* * 0 * *"})", R"(field "crontab": day: 0 is not in 1..31)"},
        {R"({"crontab": "* * 31 * *"})", ""},
        {R"({"crontab": "* * * 13 *"})", R"(field "crontab": month: 13 is not in 1..12)"},
        {R"({"crontab": "* * * * 7"})", R"(field "crontab": week: 7 is not in 0..6)"},
        {R"({"crontab": "-1 * * * *"})", R"(field "crontab": minute: -1 is not in 0..59)"},
        {R"({"crontab": "*/5 * * * *"})", ""}, // what follows the star is not read
        {R"({"crontab": "5a * * * *"})", R"(field "crontab": minute: "5a" is no number)"},
        {R"({"crontab": "0x5 * * * *"})", R"(field "crontab": minute: "0x5" is no number)"},
        {R"({"crontab": "99999999999 * * * *"})", R"(field "crontab": minute: "99999999999" is no number)"},
        {R"({"crontab": "* * * * mon"})", R"(field "crontab": week: "mon" is no number)"},
        {R"({"crontab": "1,2,x * * * *"})", R"(field "crontab": minute: "x" is no number)"},
        {R"({"crontab": "1,,2, * * * *"})", ""},
        {R"({"crontab": "\t+5\t * * * *"})", ""},
        {R"({"crontab": "* 5~ * * *"})", R"(field "crontab": hour: "5~" is not of the form A~B)"},
        {R"({"crontab": "* 1~2~3 * * *"})", R"(field "crontab": hour: "1~2~3" is not of the form A~B)"},
        {R"({"crontab": "* 1~~3 * * *"})", ""},
        {R"({"crontab": "* a~3 * * *"})", R"(field "crontab": hour: "a" is no number (in "a~3"))"},
        {R"({"crontab": "* 3~24 * * *"})", R"(field "crontab": hour: 24 is not in 0..23 (in "3~24"))"},
        {R"({"crontab": "* 20~10 * * *"})", R"(field "crontab": hour: "20~10" ends before it begins)"},
        {R"({"crontab": "~5 ~x ~ ~~ ~"})", ""},
        {R"({"crontab": "1\n2 * * * *"})", R"(field "crontab": minute: "1\x0a2" is no number)"},
        {R"({"crontab": "1\u00002 * * * *"})", R"(field "crontab": minute: "1\x002" is no number)"},
        // the command
        {R"({"cmd": "absent"})", R"(field "cmd": missing, expected a text (or an array in "cmd_list"))"},
        {R"({"cmd": 5})", R"(field "cmd": expected a text (or an array in "cmd_list"), found a number)"},
        {R"({"cmd": ""})", ""},
        {R"({"cmd": "absent", "cmd_list": ["/bin/true"]})", ""},
        {R"({"cmd": 5, "cmd_list": ["/bin/true"]})", ""},
        {R"({"cmd_list": []})", R"(field "cmd_list": expected at least one element, found none)"},
        {R"({"cmd_list": "/bin/true"})", R"(field "cmd_list": expected an array, found a text)"},
        {R"({"cmd_list": null})", R"(field "cmd_list": expected an array, found null)"},
        {R"({"cmd_list": {}})", R"(field "cmd_list": expected at least one element, found none)"},
        {R"({"cmd_list": {"a": "/bin/true"}})", ""}, // refused by the policy
        {R"({"cmd": 5, "cmd_list": {"a": "/bin/true"}})", R"(field "cmd_list": expected an array, found an object)"},
        {R"({"cmd_list": ["/bin/true", ["-x"]]})", R"(field "cmd_list": element 2: expected a text, found an array)"},
        {R"({"cmd_list": [{}]})", R"(field "cmd_list": element 1: expected a text, found an object)"},
        {R"({"cmd_list": [5, null, true, 1.5]})", ""}, // refused by the policy
        // the settings
        {R"({"assure_execute": "24"})", R"(field "assure_execute": expected a number of hours, found a text)"},
        {R"({"assure_execute": [24]})", R"(field "assure_execute": expected a number of hours, found an array)"},
        {R"({"assure_execute": 3000000000})",
         R"(field "assure_execute": 3000000000 is not in -2147483648..2147483647)"},
        {R"({"assure_execute": 1.5})", ""},
        {R"({"assure_execute": null})", ""},
        {R"({"assure_execute": true})", ""},
        {R"({"assure_execute_action": 5})", ""},
        {R"({"run_on_passive": "yes"})", R"(field "run_on_passive": expected true or false, found a text)"},
        {R"({"run_on_passive": {}})", R"(field "run_on_passive": expected true or false, found an object)"},
        {R"({"run_on_passive": 1})", ""},
        {R"({"run_on_passive": null})", ""},
    };
    for (const Case& entry : aCases) {
        const Json::Value jsDefinition = Changed(entry.szMember);
        EXPECT_EQ(WhyInvalid(jsDefinition), entry.szReason) << entry.szMember;
        EXPECT_EQ(LibraryAccepts(jsDefinition), std::string(entry.szReason).empty()) << entry.szMember;
    }
}

TEST(DefinitionReason, WantsAnObject) {
    EXPECT_EQ(WhyInvalid(Json::Value()), "expected an object, found null");
    EXPECT_EQ(WhyInvalid(Json::Value(5)), "expected an object, found a number");
    EXPECT_EQ(WhyInvalid(FromJson("[]")), "expected an object, found an array");
    EXPECT_EQ(WhyInvalid(FromJson("{}")), "field \"name\": missing, expected a text");
}

TEST(DefinitionReason, StaysShortWhateverTheValueIs) {
    Json::Value jsDefinition = service_test::JobDefinition("job");
    jsDefinition["crontab"] = std::string(1 << 20, 'x').append(" * * * *");
    EXPECT_LT(WhyInvalid(jsDefinition).size(), 200U);
    jsDefinition["period"] = std::string(1 << 20, '\n');
    EXPECT_LT(WhyInvalid(jsDefinition).size(), 400U);
}
