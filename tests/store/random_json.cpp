#include "tests/store/random_json.h"

#include <cstdint>
#include <limits>

#include "tests/unit/definitions.h"

namespace store {

namespace {

template <typename T, std::size_t N>
const T& Pick(RandomJson& random, const T (&aValues)[N]) {
    return aValues[random.Below(N)];
}

} // namespace

std::string RandomJson::Text() {
    static const char* const aTexts[] = {"",    "a",     "package", "root", "~",         "*",         "5",  "61",
                                         "1~3", "daily", "crontab", "name", "* * * * *", "~ ~ ~ ~ ~", "\n", "\xc3\xa4"};
    return Below(20) == 0 ? std::string("a\0b", 3) : std::string(Pick(*this, aTexts));
}

Json::Value RandomJson::Scalar() {
    static const double aReals[] = {0.0, -0.0, 1.0, 1.5, -1e300, 4294967296.0, std::numeric_limits<double>::infinity()};
    static const std::int64_t aIntegers[] = {0,          1,          -1,
                                             2147483647, 2147483648, std::numeric_limits<std::int64_t>::min()};
    switch (Below(6)) {
    case 0:
        return Json::Value();
    case 1:
        return Json::Value(Below(2) == 0);
    case 2:
        return Json::Value(static_cast<Json::Int64>(Pick(*this, aIntegers)));
    case 3:
        return Json::Value(std::numeric_limits<Json::UInt64>::max() - Below(2));
    case 4:
        return Json::Value(Pick(*this, aReals));
    default:
        return Json::Value(Text());
    }
}

Json::Value RandomJson::Value(int iDepth) {
    const unsigned uKind = iDepth == 0 ? 2 : Below(3);
    if (uKind == 2) {
        return Scalar();
    }
    Json::Value jsValue(uKind == 0 ? Json::arrayValue : Json::objectValue);
    for (unsigned uCount = Below(4); uCount > 0; --uCount) {
        if (uKind == 0) {
            jsValue.append(Value(iDepth - 1));
        } else {
            jsValue[Text()] = Value(iDepth - 1);
        }
    }
    return jsValue;
}

Json::Value RandomJson::Field() {
    static const char* const aFields[] = {"* * * * *",    "~ ~ ~ ~ ~", "0,30 1~5 * * 1", "60 * * * *",
                                          "5~1 * * * *",  "* * * *",   "a b c d e",      "",
                                          "1  2  3  4  5"};
    return Below(4) == 0 ? Value(2) : Json::Value(Pick(*this, aFields));
}

Json::Value RandomJson::NearDefinition() {
    static const char* const aKeys[] = {
        "name",     "user",           "package_username",      "period",         "crontab", "cmd",
        "cmd_list", "assure_execute", "assure_execute_action", "run_on_passive", "other"};
    static const char* const aPeriods[] = {"daily", "hourly", "weekly", "monthly", "crontab", "yearly", "C"};
    Json::Value jsDefinition = unit::Definition();
    jsDefinition["period"] = Pick(*this, aPeriods);
    jsDefinition["crontab"] = Field();
    for (unsigned uCount = Below(3); uCount > 0; --uCount) {
        const std::string strKey = Pick(*this, aKeys);
        if (Below(3) == 0) {
            jsDefinition.removeMember(strKey);
        } else {
            jsDefinition[strKey] = Value(2);
        }
    }
    return jsDefinition;
}

} // namespace store
