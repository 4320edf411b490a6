#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <type_traits>

#include "crond/cronjob.h"
#include "tests/support/fake_clock.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

// What the record is made of, in its order: nothing comes before, between or after.
struct SameMembers {
    bool bFirst;
    std::int32_t iSecond;
    std::int32_t iThird;
    bool bFourth;
    Json::Value jsFifth;
    std::string strSixth;
    std::map<std::string, std::vector<CronJob::Range>> mapSeventh;
};

struct RequiredKey {
    int iNumber;
    const char* szCondition;
    std::function<void(Json::Value& jsConf)> spoil;
};

const RequiredKey CHECKS[] = {
    {179, R"(!_jsJob.isMember("config") || !jsConf.isObject())", [](Json::Value& jsConf) { jsConf = "text"; }},
    {180, R"(!jsConf.isMember("period") || !jsConf["period"].isString() || jsConf["period"].asString().empty())",
     [](Json::Value& jsConf) { jsConf["period"] = ""; }},
    {181, R"(!jsConf.isMember("user") || !jsConf["user"].isString())",
     [](Json::Value& jsConf) { jsConf.removeMember("user"); }},
    {182, R"(!jsConf.isMember("name") || !jsConf["name"].isString())",
     [](Json::Value& jsConf) { jsConf.removeMember("name"); }},
    {184,
     "(!jsConf.isMember(\"cmd\") || !jsConf[\"cmd\"].isString()) && "
     "(!jsConf.isMember(\"cmd_list\") || !jsConf[\"cmd_list\"].isArray())",
     [](Json::Value& jsConf) { jsConf.removeMember("cmd"); }},
    {185, R"("package" == jsConf["user"].asString() && !jsConf.isMember("package_username"))",
     [](Json::Value& jsConf) { jsConf.removeMember("package_username"); }},
    {188, R"(!jsConf.isMember("crontab") || !jsConf["crontab"].isString())",
     [](Json::Value& jsConf) { jsConf.removeMember("crontab"); }},
};
constexpr std::size_t CHECK_COUNT = std::size(CHECKS);

/// A valid definition that each of the checks looks at.
Json::Value CheckedDefinition() {
    return With("user", "package", With("package_username", "alice", Crontab("1 2 3 4 5")));
}

const char* ConditionOf(int iNumber) {
    for (const RequiredKey& check : CHECKS) {
        if (check.iNumber == iNumber) {
            return check.szCondition;
        }
    }
    throw std::out_of_range("no such check");
}

} // namespace

TEST(Record, HasItsMembersInTheirOrderAndNothingElse) {
    const CronJob job(Document(Definition()));
    const void* const aAddresses[] = {&job._bValid,        &job._iAssureExecute, &job._iAssureExecuteAction,
                                      &job._bRunOnPassive, &job._jsJob,          &job._strReadyCrontab,
                                      &job._mapRanges};
    EXPECT_EQ(aAddresses[0], static_cast<const void*>(&job));
    for (std::size_t i = 1; i < std::size(aAddresses); ++i) {
        EXPECT_TRUE(std::less<const void*>()(aAddresses[i - 1], aAddresses[i])) << "member " << i;
    }
    EXPECT_EQ(sizeof(CronJob), sizeof(SameMembers));
    EXPECT_EQ(alignof(CronJob), alignof(SameMembers));
}

TEST(Record, HasMembersOfTheirTypes) {
    static_assert(std::is_same_v<decltype(CronJob::_bValid), bool>);
    static_assert(std::is_same_v<decltype(CronJob::_iAssureExecute), std::int32_t>);
    static_assert(std::is_same_v<decltype(CronJob::_iAssureExecuteAction), std::int32_t>);
    static_assert(std::is_same_v<decltype(CronJob::_bRunOnPassive), bool>);
    static_assert(std::is_same_v<decltype(CronJob::_jsJob), Json::Value>);
    static_assert(std::is_same_v<decltype(CronJob::_strReadyCrontab), std::string>);
    static_assert(std::is_same_v<decltype(CronJob::_mapRanges), std::map<std::string, std::vector<CronJob::Range>>>);
    static_assert(std::is_convertible_v<Json::Value, CronJob>);
    SUCCEED();
}

TEST(Record, HasNoVirtualOperations) {
    EXPECT_FALSE(std::is_polymorphic_v<CronJob>);
    EXPECT_FALSE(std::is_polymorphic_v<CronJob::Range>);
}

TEST(Record, KeepsARangeAsThreeNumbers) {
    static_assert(std::is_same_v<decltype(CronJob::Range::kind), std::int32_t>);
    static_assert(std::is_same_v<decltype(CronJob::Range::from), std::int32_t>);
    static_assert(std::is_same_v<decltype(CronJob::Range::to), std::int32_t>);
    static_assert(std::is_standard_layout_v<CronJob::Range> && std::is_trivially_copyable_v<CronJob::Range>);
    EXPECT_EQ(offsetof(CronJob::Range, kind), 0U);
    EXPECT_EQ(offsetof(CronJob::Range, from), 4U);
    EXPECT_EQ(offsetof(CronJob::Range, to), 8U);
    EXPECT_EQ(sizeof(CronJob::Range), 12U);
    EXPECT_EQ(Text({CronJob::Range()}), "0:-1..-1");
}

TEST(Record, IsCopiedAndAssignedMemberByMember) {
    static_assert(std::is_copy_constructible_v<CronJob> && std::is_copy_assignable_v<CronJob>);
    Json::Value jsConf = With("assure_execute", 24, Crontab("1 2 3 4 5"));
    jsConf["assure_execute_action"] = "run";
    jsConf["run_on_passive"] = true;
    CronJob job(Document(jsConf));
    job._strReadyCrontab = "1 2 3 4 5";
    const CronJob copy(job); // NOLINT(performance-unnecessary-copy-initialization): the copy is the test
    CronJob assigned(Document(Definition()));
    assigned = job;
    for (const CronJob* const pCopy : {&copy, static_cast<const CronJob*>(&assigned)}) {
        EXPECT_TRUE(pCopy->_bValid);
        EXPECT_EQ(pCopy->_iAssureExecute, 24);
        EXPECT_EQ(pCopy->_iAssureExecuteAction, 1);
        EXPECT_TRUE(pCopy->_bRunOnPassive);
        EXPECT_EQ(pCopy->_jsJob, job._jsJob);
        EXPECT_EQ(pCopy->_strReadyCrontab, "1 2 3 4 5");
        EXPECT_EQ(AllRanges(*pCopy), "0:1..-1|0:2..-1|0:3..-1|0:4..-1|0:5..-1");
    }
    job._jsJob["config"]["name"] = "another";
    EXPECT_EQ(copy._jsJob["config"]["name"], "backup") << "a copy must not share the document";
}

TEST(Record, StartsNotReadyAndWithoutAGuarantee) {
    const CronJob job(Document(Definition()));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(job._strReadyCrontab, "");
    EXPECT_EQ(job._iAssureExecute, 0);
    EXPECT_EQ(job._iAssureExecuteAction, 0);
    EXPECT_FALSE(job._bRunOnPassive);
}

TEST(Record, IsBuiltOfAGoodDefinitionWithoutAWordAndWithoutTouchingErrno) {
    ExpectInBothForms([] { EXPECT_TRUE(CronJob(Document(Definition()))._bValid); }, {});
}

TEST(RequiredKeys, FailEachWithItsNumberAndItsConditionBeforeTheFormatError) {
    struct Case {
        const char* szComment;
        Json::Value jsConf;
        int iNumber;
    };
    const Json::Value jsPackage = With("user", "package");
    const Case aCases[] = {
        {"config is null", Json::Value(), 179},
        {"config is a text", "daily", 179},
        {"config is an array", Json::Value(Json::arrayValue), 179},
        {"config is a number", 5, 179},
        {"config has no member at all", Json::Value(Json::objectValue), 180},
        {"no period", Without("period"), 180},
        {"period is null", With("period", Json::Value()), 180},
        {"period is a number", With("period", 5), 180},
        {"period is an array of texts", With("period", FromText(R"(["daily"])")), 180},
        {"period is empty", With("period", ""), 180},
        {"period is empty beside a crontab", With("period", "", Crontab("1 2 3 4 5")), 180},
        {"no user", Without("user"), 181},
        {"user is null", With("user", Json::Value()), 181},
        {"user is a number", With("user", 0), 181},
        {"no name", Without("name"), 182},
        {"name is a number", With("name", 7), 182},
        {"name is an object", With("name", Json::Value(Json::objectValue)), 182},
        {"neither command", Without("cmd"), 184},
        {"cmd is a number", With("cmd", 5), 184},
        {"cmd is an array", With("cmd", FromText(R"(["/bin/true"])")), 184},
        {"cmd_list is a text and cmd is missing", With("cmd_list", "/bin/true", Without("cmd")), 184},
        {"cmd_list is null and cmd is a number", With("cmd_list", Json::Value(), With("cmd", 5)), 184},
        {"a package's job without its account", jsPackage, 185},
        {"a crontab kind without a crontab", With("period", "crontab"), 188},
        {"crontab is a number", With("crontab", 5, Crontab("")), 188},
        {"crontab is null", With("crontab", Json::Value(), Crontab("")), 188},
        {"crontab stands inside a longer word", With("period", "mycrontabs"), 188},
        {"crontab stands at the end of a daily kind", With("period", "daily crontab"), 188},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        ExpectInBothForms(
            [&c] {
                const CronJob job(Document(c.jsConf));
                EXPECT_FALSE(job._bValid);
                EXPECT_EQ(job._jsJob, Document(c.jsConf)) << "nothing may have been written";
                EXPECT_TRUE(job._mapRanges.empty());
            },
            {Failed(c.iNumber, ConditionOf(c.iNumber)), {162, "crontab format error"}});
    }
}

TEST(RequiredKeys, AreTestedInTheirOrderWhateverElseIsWrong) {
    for (unsigned uSpoiled = 0; uSpoiled < 1U << CHECK_COUNT; ++uSpoiled) {
        Json::Value jsConf = CheckedDefinition();
        const RequiredKey* pFirst = nullptr;
        for (std::size_t i = CHECK_COUNT; i-- > 0;) {
            if ((uSpoiled >> i & 1U) != 0) {
                CHECKS[i].spoil(jsConf);
                pFirst = &CHECKS[i];
            }
        }
        SCOPED_TRACE(jsConf.toStyledString());
        bool bValid = false;
        const std::vector<std::string> vecLines = Logged([&] { bValid = CronJob(Document(jsConf))._bValid; });
        EXPECT_EQ(bValid, pFirst == nullptr);
        if (pFirst != nullptr) {
            EXPECT_EQ(vecLines, (std::vector<std::string>{"<3>cronjob:" + std::to_string(pFirst->iNumber) +
                                                              " Failed [" + pFirst->szCondition + "], err=Success",
                                                          "<3>cronjob:162 crontab format error"}));
        } else {
            EXPECT_EQ(vecLines, std::vector<std::string>{});
        }
    }
}

TEST(RequiredKeys, AreSatisfiedByTheseDefinitions) {
    struct Case {
        const char* szComment;
        Json::Value jsConf;
    };
    const Case aCases[] = {
        {"a package's account of a wrong kind is judged at launch",
         With("package_username", 5, With("user", "package"))},
        {"a package's account that is null is a member too",
         With("package_username", Json::Value(), With("user", "package"))},
        {"a user with another letter case needs no package account", With("user", "Package")},
        {"a user with letters behind needs none", With("user", "packages")},
        {"a user with letters before needs none", With("user", "mypackage")},
        {"a user of no known class is judged at launch", With("user", "whoever")},
        {"an empty user is a text", With("user", "")},
        {"an empty name is a text", With("name", "")},
        {"an empty cmd is a text", With("cmd", "")},
        {"cmd_list alone is enough", With("cmd_list", FromText(R"(["/bin/true"])"), Without("cmd"))},
        {"cmd of a wrong kind beside a cmd_list", With("cmd_list", FromText(R"(["/bin/true"])"), With("cmd", 5))},
        {"crontab in capitals is not looked for", With("period", "daily CRONTAB")},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        EXPECT_EQ(Logged([&c] { EXPECT_TRUE(CronJob(Document(c.jsConf))._bValid); }), std::vector<std::string>{});
    }
}

TEST(RequiredKeys, MissOnlyTheConfigOfADocumentWithoutOneAndAddItAsNull) {
    for (const Json::Value& jsDocument :
         {Json::Value(), Json::Value(Json::objectValue), FromText(R"({"name":"backup"})")}) {
        Json::Value jsExpected = jsDocument;
        jsExpected["config"] = Json::Value();
        ExpectInBothForms(
            [&] {
                const CronJob job(jsDocument);
                EXPECT_FALSE(job._bValid);
                EXPECT_EQ(job._jsJob, jsExpected);
                EXPECT_FALSE(jsDocument.isMember("config")) << "the caller's document is not the record's";
            },
            {Failed(179, ConditionOf(179)), {162, "crontab format error"}});
    }
}

TEST(RequiredKeys, CannotBeLookedForInWhatIsNoObject) {
    for (const Json::Value& jsDocument :
         {Json::Value(5), Json::Value("text"), Json::Value(Json::arrayValue), Json::Value(true)}) {
        EXPECT_THROW(CronJob{jsDocument}, Json::LogicError) << jsDocument;
    }
}
