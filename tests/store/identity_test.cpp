#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "crond/utils.h"
#include "tests/support/captured_syslog.h"
#include "tests/unit/definitions.h"

using unit::FromText;
using VUKO::VUKOCrond::isIdenticalJSON;

namespace {

struct Case {
    const char* szLeft;
    const char* szRight;
    bool bIdentical;
    const char* szWhy;
};

/// A value in a form of its own, so that the comparison below shares nothing with the JSON library.
struct Node {
    char cKind = 'n'; ///< n null, b boolean, i signed, u unsigned, r real, s string, a array, o object
    std::int64_t iValue = 0;
    double dValue = 0;
    std::string strValue;
    std::vector<Node> vecElements;
    std::map<std::string, Node> mapMembers;
};

/// The rule as it stands, word for word and slowly: an array matches element by element, an object asks for its own
/// members only, and a member that is not there is null.
bool Holds(const Node& right, const Node& left) {
    if (left.cKind != right.cKind) {
        return false;
    }
    if (left.cKind == 'a') {
        bool bAll = left.vecElements.size() == right.vecElements.size();
        for (std::size_t i = 0; bAll && i < left.vecElements.size(); ++i) {
            bAll = Holds(right.vecElements[i], left.vecElements[i]);
        }
        return bAll;
    }
    bool bAll = true;
    for (const auto& [strName, member] : left.mapMembers) {
        const auto it = right.mapMembers.find(strName);
        bAll = Holds(it == right.mapMembers.end() ? Node() : it->second, member) && bAll;
    }
    const bool bSameScalar = left.cKind == 'r' ? !(left.dValue < right.dValue) && !(right.dValue < left.dValue)
                                               : left.iValue == right.iValue && left.strValue == right.strValue;
    return bAll && bSameScalar;
}

Json::Value ToJson(const Node& node) {
    Json::Value jsValue;
    switch (node.cKind) {
    case 'b':
        return Json::Value(node.iValue != 0);
    case 'i':
        return Json::Value(static_cast<Json::Int64>(node.iValue));
    case 'u':
        return Json::Value(static_cast<Json::UInt64>(node.iValue));
    case 'r':
        return Json::Value(node.dValue);
    case 's':
        return Json::Value(node.strValue);
    case 'a':
        jsValue = Json::Value(Json::arrayValue);
        for (const Node& element : node.vecElements) {
            jsValue.append(ToJson(element));
        }
        return jsValue;
    case 'o':
        jsValue = Json::Value(Json::objectValue);
        for (const auto& [strName, member] : node.mapMembers) {
            jsValue[strName] = ToJson(member);
        }
        return jsValue;
    default:
        return jsValue;
    }
}

class RandomNodes {
public:
    explicit RandomNodes(unsigned uSeed) : _engine(uSeed) {}

    unsigned Below(unsigned uEnd) { return static_cast<unsigned>(_engine() % uEnd); }

    Node Make(int iDepth) {
        Node node;
        node.cKind = "aonbiurs"[iDepth == 0 ? 2 + Below(6) : Below(8)];
        switch (node.cKind) {
        case 'a':
            for (unsigned uCount = Below(4); uCount > 0; --uCount) {
                node.vecElements.push_back(Make(iDepth - 1));
            }
            break;
        case 'o':
            for (unsigned uCount = Below(4); uCount > 0; --uCount) {
                node.mapMembers[Name()] = Make(iDepth - 1);
            }
            break;
        case 'b':
        case 'i':
        case 'u':
            node.iValue = Below(2);
            break;
        case 'r':
            node.dValue = Below(3) == 0 ? -0.0 : Below(2);
            break;
        case 's':
            node.strValue = Name();
            break;
        default:
            break;
        }
        return node;
    }

    /// A copy with something changed here and there, so that equal and nearly equal pairs are common.
    Node Alter(const Node& node, int iDepth) {
        if (Below(12) == 0) {
            return Make(iDepth);
        }
        Node altered = node;
        for (Node& element : altered.vecElements) {
            element = Alter(element, iDepth - 1);
        }
        for (auto& [strName, member] : altered.mapMembers) {
            member = Alter(member, iDepth - 1);
        }
        if (node.cKind == 'o' && Below(4) == 0) {
            altered.mapMembers[Name()] = Make(0);
        }
        if (node.cKind == 'o' && Below(6) == 0) {
            altered.mapMembers.erase(Name());
        }
        return altered;
    }

private:
    std::string Name() {
        const std::string aNames[] = {"", "a", "b", "c", std::string("a\0", 2), "\xc3\xa4"};
        return aNames[Below(6)];
    }

    std::mt19937 _engine;
};

} // namespace

TEST(IdenticalJson, ComparesByTheOneSidedRule) {
    const Case aCases[] = {
        {"{}", "{}", true, "empty objects"},
        {"{}", R"({"a":1})", true, "members that only the right has are not looked at"},
        {R"({"a":1})", "{}", false, "but those of the left are"},
        {R"({"a":1})", R"({"a":1,"b":2})", true, "one-sided"},
        {R"({"a":1,"b":2})", R"({"a":1})", false, "one-sided"},
        {R"({"a":null})", "{}", true, "a null member matches a missing one"},
        {"{}", R"({"a":null})", true, "not looked at"},
        {R"({"a":null})", R"({"a":0})", false, "null is not zero"},
        {R"({"a":{"b":1}})", R"({"a":{"b":1,"c":2}})", true, "one-sided all the way down"},
        {R"({"a":{"b":null}})", "{}", false, "an object does not match a missing member"},
        {R"({"a":{}})", R"({"a":null})", false, "an object is no null"},
        {"{}", "null", false, "an object is no null"},
        {"null", "{}", false, "nor the other way round"},
        {"{}", "[]", false, "an object is no array"},
        {"[]", "{}", false, "nor the other way round"},
        {"[]", "[]", true, "empty arrays"},
        {"[]", "null", false, "an array is no null"},
        {"null", "[]", false, "nor the other way round"},
        {"[1]", "[1,2]", false, "a prefix is not enough"},
        {"[1,2]", "[1]", false, "nor the other way round"},
        {"[1,2]", "[2,1]", false, "the order counts"},
        {"[{}]", R"([{"a":1}])", true, "one-sided inside an array"},
        {R"([{"a":1}])", "[{}]", false, "one-sided inside an array"},
        {"[null]", "[]", false, "no missing elements"},
        {"1", "1", true, ""},
        {"1", "2", false, ""},
        {"1", "1.0", false, "an integer is no real number"},
        {"1", "true", false, ""},
        {"1", R"("1")", false, ""},
        {R"("a")", R"("a")", true, ""},
        {R"("a")", R"("A")", false, ""},
        {R"("a")", R"("a\u0000")", false, "beyond a NUL"},
        {R"({"a\u0000b":1})", R"({"a\u0000c":1})", false, "names beyond a NUL"},
        {R"({"a\u0000b":1})", R"({"a":1})", false, "names beyond a NUL"},
        {"null", "null", true, ""},
        {"null", "false", false, ""},
        {"false", "false", true, ""},
        {"1.5", "1.5", true, ""},
    };
    for (const Case& c : aCases) {
        EXPECT_EQ(isIdenticalJSON(FromText(c.szLeft), FromText(c.szRight)), c.bIdentical)
            << c.szLeft << " " << c.szRight << " " << c.szWhy;
    }
}

TEST(IdenticalJson, HoldsADefinitionAgainstTheSameWithItsDefaults) {
    const Json::Value jsWritten = unit::Definition();
    const unit::CronJob job(unit::Document(jsWritten));
    EXPECT_TRUE(isIdenticalJSON(jsWritten, job._jsJob["config"]));
    EXPECT_FALSE(isIdenticalJSON(job._jsJob["config"], jsWritten));
}

TEST(IdenticalJson, AddsNothingToEitherSide) {
    const support::CapturedSyslog log;
    const Json::Value jsLeft = FromText(R"({"a":null,"b":{"c":null}})");
    const Json::Value jsRight = FromText(R"({"b":{}})");
    EXPECT_TRUE(isIdenticalJSON(jsLeft, jsRight));
    EXPECT_EQ(jsLeft, FromText(R"({"a":null,"b":{"c":null}})"));
    EXPECT_EQ(jsRight, FromText(R"({"b":{}})"));
}

TEST(IdenticalJson, ComparesDocumentsNestedFarTooDeep) {
    Json::Value jsValue = "core";
    Json::Value jsOther = "other";
    for (int i = 0; i < 2000; ++i) {
        for (Json::Value* const pValue : {&jsValue, &jsOther}) {
            Json::Value jsOuter;
            jsOuter["a"].append(std::move(*pValue));
            pValue->swap(jsOuter);
        }
    }
    EXPECT_TRUE(isIdenticalJSON(jsValue, jsValue));
    EXPECT_FALSE(isIdenticalJSON(jsValue, jsOther));
}

TEST(IdenticalJson, AgreesWithASlowComparisonOnRandomPairs) {
    constexpr unsigned SEED = 20261121;
    std::cout << "seed " << SEED << "\n";
    RandomNodes random(SEED);
    int aCounts[2] = {0, 0};
    for (int i = 0; i < 50000; ++i) {
        const Node left = random.Make(4);
        const Node right = random.Below(10) == 0 ? random.Make(4) : random.Alter(left, 4);
        const Json::Value jsLeft = ToJson(left);
        const Json::Value jsRight = ToJson(right);
        const bool bExpected = Holds(right, left);
        ASSERT_EQ(isIdenticalJSON(jsLeft, jsRight), bExpected) << jsLeft << jsRight;
        ASSERT_EQ(isIdenticalJSON(jsRight, jsLeft), Holds(left, right)) << jsRight << jsLeft;
        ++aCounts[bExpected ? 1 : 0];
    }
    EXPECT_GT(aCounts[0], 10000);
    EXPECT_GT(aCounts[1], 10000);
}
