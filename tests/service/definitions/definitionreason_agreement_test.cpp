#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>

#include "crond/cronjob.h"
#include "service/definitions/definitionreason.h"
#include "tests/service/service_fixture.h"
#include "tests/support/captured_syslog.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace {

constexpr unsigned SEED = 20261121;
constexpr int DEFINITIONS = 30000;

/// Makes definitions that are nearly good: most members as they should be, some of any kind, from values that lie on
/// the edges of what is accepted.
class DefinitionMaker {
public:
    explicit DefinitionMaker(unsigned uSeed) : _random(uSeed) {}

    Json::Value Make() {
        if (OneIn(200)) {
            return AnyValue();
        }
        Json::Value jsDefinition(Json::objectValue);
        Put(jsDefinition, "name", "job");
        Put(jsDefinition, "user", Pick({"root", "system", "package", "packages", ""}));
        Put(jsDefinition, "period",
            Pick({"crontab", "c", "C", "crontab", "daily", "H", "monthly", "weekly", "yearly", "", "my crontab",
                  "xcrontab", "crontab"}));
        Put(jsDefinition, "crontab", Schedule());
        Put(jsDefinition, "cmd", Pick({"/bin/true", "", "a  b"}));
        if (OneIn(3)) {
            Put(jsDefinition, "cmd_list", Arguments());
        }
        for (const char* const szOptional :
             {"package_username", "assure_execute", "assure_execute_action", "run_on_passive"}) {
            if (OneIn(3)) {
                jsDefinition[szOptional] = AnyValue();
            }
        }
        return jsDefinition;
    }

private:
    bool OneIn(unsigned uCount) { return _random() % uCount == 0; }

    std::string Pick(std::initializer_list<const char*> list) { return *std::next(list.begin(), Below(list.size())); }

    std::ptrdiff_t Below(std::size_t uEnd) { return static_cast<std::ptrdiff_t>(_random() % uEnd); }

    void Put(Json::Value& jsDefinition, const char* szName, const Json::Value& jsValue) {
        if (!OneIn(40)) {
            jsDefinition[szName] = OneIn(40) ? AnyValue() : jsValue;
        }
    }

    Json::Value AnyValue() {
        static const char* const aTexts[] = {"null",
                                             "true",
                                             "false",
                                             "0",
                                             "-1",
                                             "24",
                                             "2147483647",
                                             "2147483648",
                                             "-2147483648",
                                             "-2147483649",
                                             "2147483647.5",
                                             "4294967295",
                                             "1e300",
                                             "1.5",
                                             "0.0",
                                             "\"\"",
                                             "\"run\"",
                                             "\"5\"",
                                             "\"* * * * *\"",
                                             "[]",
                                             "[[]]",
                                             "[1]",
                                             "[\"/bin/true\"]",
                                             "{}",
                                             "{\"a\": 1}",
                                             "{\"a\": []}",
                                             "{\"a\": \"x\"}",
                                             "18446744073709551615"};
        return service_test::FromJson(aTexts[Below(std::size(aTexts))]);
    }

    Json::Value Arguments() {
        Json::Value jsList(Json::arrayValue);
        for (auto i = Below(4); i > 0; --i) {
            jsList.append(OneIn(10) ? AnyValue() : Json::Value("/bin/true"));
        }
        return jsList;
    }

    std::string Schedule() {
        std::string strSchedule;
        const auto iFields = OneIn(20) ? Below(8) : 5;
        for (auto i = iFields; i > 0; --i) {
            strSchedule += Field() + (OneIn(30) ? "  " : " ");
        }
        if (!OneIn(10) && !strSchedule.empty()) {
            strSchedule.pop_back();
        }
        return strSchedule;
    }

    std::string Field() {
        std::string strField = Item();
        while (OneIn(4)) {
            strField += "," + Item();
        }
        return strField;
    }

    std::string Item() {
        switch (Below(8)) {
        case 0:
            return "~" + (OneIn(4) ? Odd() : std::string());
        case 1:
        case 2:
            return "*" + (OneIn(4) ? Odd() : std::string());
        case 3:
            return Value() + "~" + Value() + (OneIn(10) ? "~" + Value() : std::string());
        default:
            return Value();
        }
    }

    /// Mostly a number that any field takes, now and then one on an edge, seldom something odd.
    std::string Value() {
        if (OneIn(25)) {
            return Odd();
        }
        if (OneIn(8)) {
            return Pick({"0", "6", "7", "12", "13", "23", "24", "31", "32", "59", "60", "-1"});
        }
        return std::to_string(1 + Below(6));
    }

    std::string Odd() {
        return Pick({"",
                     "x",
                     "5a",
                     "0x5",
                     "+5",
                     "++5",
                     "+-5",
                     "-+5",
                     "-5",
                     "-0",
                     "+0",
                     "005",
                     "5.0",
                     "5e0",
                     "1_0",
                     "2147483648",
                     "-2147483649",
                     "99999999999999999999",
                     "\t5",
                     "5\t",
                     "\v5\f",
                     "5\n",
                     "\t",
                     "+",
                     "-",
                     "~",
                     "*",
                     "5~",
                     "~5~",
                     "1~~2",
                     "\xc2\xa0"
                     "5",
                     "\xd9\xa3",
                     "5\r",
                     "1'0",
                     "1,",
                     ","}) +
               (OneIn(10) ? std::string(1, '\0') : std::string());
    }

    std::mt19937 _random;
};

} // namespace

/// The reasons are made by code that reads definitions once more, so it is held in agreement with the code that counts.
TEST(DefinitionReason, AgreesWithTheLibraryOnWhatIsValid) {
    RecordProperty("seed", static_cast<int>(SEED));
    std::cout << "seed " << SEED << "\n";
    DefinitionMaker maker(SEED);
    int iValid = 0;
    for (int i = 0; i < DEFINITIONS; ++i) {
        const Json::Value jsDefinition = maker.Make();
        const std::string strReason = WhyInvalid(jsDefinition);
        support::CapturedSyslog log;
        Json::Value jsDocument;
        jsDocument["config"] = jsDefinition;
        const bool bValid = CronJob(jsDocument)._bValid;
        log.Take();
        ASSERT_EQ(strReason.empty(), bValid) << strReason << "\n" << service_test::ToJson(jsDefinition);
        iValid += bValid ? 1 : 0;
    }
    // Both outcomes have to come up, else agreement says nothing.
    EXPECT_GT(iValid, DEFINITIONS / 10);
    EXPECT_LT(iValid, DEFINITIONS - DEFINITIONS / 10);
}
