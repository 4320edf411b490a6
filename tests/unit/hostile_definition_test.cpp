#include <gtest/gtest.h>

#include <limits>

#include "crond/cronjob.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

const char* const MEMBERS[] = {"name",     "user",           "package_username",      "period",        "crontab", "cmd",
                               "cmd_list", "assure_execute", "assure_execute_action", "run_on_passive"};

std::vector<Json::Value> EveryKind() {
    std::vector<Json::Value> vecValues{
        Json::Value(),
        Json::Value(true),
        Json::Value(false),
        Json::Value(0),
        Json::Value(-1),
        Json::Value(24),
        Json::Value(Json::Value::minInt),
        Json::Value(Json::Value::maxInt),
        Json::Value(Json::Value::minInt64),
        Json::Value(Json::Value::maxInt64),
        Json::Value(Json::Value::maxUInt64),
        Json::Value(-0.0),
        Json::Value(1.5),
        Json::Value(-1e300),
        Json::Value(std::numeric_limits<double>::infinity()),
        Json::Value(std::numeric_limits<double>::quiet_NaN()),
        Json::Value(""),
        Json::Value(" "),
        Json::Value("package"),
        Json::Value("crontab"),
        Json::Value("daily"),
        Json::Value("1 2 3 4 5"),
        Json::Value("~,~ 1~2 5~3 * *"),
        Json::Value("%s%n%s%n %d"),
        Json::Value("\xff\xfe\x80 \xc0\xaf"),
        Json::Value(std::string("d\0aily\0", 7)),
        Json::Value(std::string("\0\0", 2)),
    };
    for (const char* const szText : {"[]", "[null]", R"(["a","b"])", "[[],{}]", "[1,-1,1.5,true]", "{}", R"({"":""})",
                                     R"({"a":{"b":[{"c":null}]}})"}) {
        vecValues.push_back(FromText(szText));
    }
    return vecValues;
}

/// What a caller may do with a valid job; none of it may throw, whatever the definition held.
void Use(CronJob& job) {
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, 5);
    }
    job.IsOnScheduled();
    job.SetReadyIfScheduled();
    job.IsExpiredAssure();
    job.ToCurrentCrontabString();
}

/// Builds a job of a document and expects that it is valid or says last why not, and that nothing is thrown.
void ExpectAJobOrAReason(const Json::Value& jsDocument) {
    bool bValid = false;
    std::vector<std::string> vecLines;
    ASSERT_NO_THROW(vecLines = Logged([&] {
                        CronJob job(jsDocument);
                        bValid = job._bValid;
                        if (bValid) {
                            Use(job);
                        }
                    }));
    if (bValid) {
        EXPECT_EQ(vecLines, std::vector<std::string>{});
        return;
    }
    ASSERT_FALSE(vecLines.empty());
    ASSERT_LE(vecLines.size(), 2U);
    const std::string& strLast = vecLines.back();
    EXPECT_TRUE(strLast == "<3>cronjob:166 parse error" || strLast == "<3>cronjob:162 crontab format error") << strLast;
    EXPECT_TRUE(strLast == "<3>cronjob:166 parse error" || vecLines.size() == 2) << "a missing key has its own message";
    EXPECT_EQ(vecLines.front().rfind("<3>cronjob:", 0), 0U) << vecLines.front();
}

/// A value nested so deep that a careless walk over it would be noticed.
Json::Value Nested(int iDepth, bool bObjects) {
    Json::Value jsValue("/bin/true");
    for (int i = 0; i < iDepth; ++i) {
        Json::Value jsOuter(bObjects ? Json::objectValue : Json::arrayValue);
        if (bObjects) {
            jsOuter["cmd_list"].swap(jsValue);
        } else {
            jsOuter.append(Json::Value()).swap(jsValue);
        }
        jsValue.swap(jsOuter);
    }
    return jsValue;
}

std::string Repeated(const std::string& strPiece, std::size_t uSize) {
    std::string strText;
    while (strText.size() < uSize) {
        strText += strPiece;
    }
    return strText;
}

constexpr std::size_t ONE_MB = std::size_t{1} << 20;

} // namespace

TEST(HostileDefinition, WithOneMemberOfAnyKindMakesAJobOrAReason) {
    for (const Json::Value& jsBase : {Definition(), Crontab("~ 1,2 * 3~5 *"), With("user", "package")}) {
        for (const char* const szMember : MEMBERS) {
            for (const Json::Value& jsValue : EveryKind()) {
                SCOPED_TRACE(std::string(szMember) + " is " + jsValue.toStyledString());
                ExpectAJobOrAReason(Document(With(szMember, jsValue, jsBase)));
            }
        }
    }
}

TEST(HostileDefinition, WithTwoMembersOfAnyKindsMakesAJobOrAReason) {
    const std::vector<Json::Value> vecValues = EveryKind();
    for (std::size_t i = 0; i < std::size(MEMBERS); ++i) {
        for (std::size_t k = i + 1; k < std::size(MEMBERS); ++k) {
            for (const Json::Value& jsFirst : vecValues) {
                const Json::Value jsBase = With(MEMBERS[i], jsFirst);
                for (const Json::Value& jsSecond : vecValues) {
                    ExpectAJobOrAReason(Document(With(MEMBERS[k], jsSecond, jsBase)));
                    ASSERT_FALSE(HasFailure()) << With(MEMBERS[k], jsSecond, jsBase);
                }
            }
        }
    }
}

TEST(HostileDefinition, OfAnyKindItselfMakesAReason) {
    for (const Json::Value& jsValue : EveryKind()) {
        ExpectAJobOrAReason(Document(jsValue));
    }
}

TEST(HostileDefinition, InADocumentWithRuntimeKeysOfAnyKindStillMakesAJob) {
    for (const char* const szKey : {"startup", "lastExecution", "expireTime", "schedule", "cmd_list", "cmd_str"}) {
        for (const Json::Value& jsValue : EveryKind()) {
            Json::Value jsDocument = Document(Definition());
            jsDocument[szKey] = jsValue;
            EXPECT_EQ(Logged([&] { EXPECT_TRUE(CronJob(jsDocument)._bValid); }), std::vector<std::string>{});
        }
    }
}

TEST(HostileDefinition, WithAMemberOfAMegabyteMakesAJobOrAReason) {
    for (const char* const szPiece : {"d", "c", "~,", "1,", "1~2,", "9", "~", "*", "\xff", "crontab", "/bin/true x "}) {
        const std::string strText = Repeated(szPiece, ONE_MB);
        for (const char* const szMember : MEMBERS) {
            SCOPED_TRACE(std::string(szMember) + " repeats " + szPiece);
            ExpectAJobOrAReason(Document(With(szMember, strText, Crontab("* * * * *"))));
        }
    }
}

TEST(HostileDefinition, WithAFieldOfAMegabyteMakesAJobOrAReason) {
    for (const char* const szPiece : {"1,", "~,", "1~2,", "9", ",", "1~", "\t"}) {
        const std::string strField = Repeated(szPiece, ONE_MB);
        for (const char* const szRest : {" * * * *", ""}) {
            SCOPED_TRACE(std::string("a field repeats ") + szPiece + ", then" + szRest);
            ExpectAJobOrAReason(Document(Crontab(strField + szRest)));
        }
    }
}

TEST(HostileDefinition, WithACommandOfBlanksAloneHasAsManyEmptyArguments) {
    const CronJob job(Document(With("cmd", std::string(100'000, ' '))));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(job._jsJob["cmd_list"].size(), 100'001U);
}

TEST(HostileDefinition, NestedTwoThousandDeepMakesAJobOrAReason) {
    for (const bool bObjects : {false, true}) {
        const Json::Value jsDeep = Nested(2000, bObjects);
        for (const char* const szMember : MEMBERS) {
            SCOPED_TRACE(szMember);
            ExpectAJobOrAReason(Document(With(szMember, jsDeep)));
            ExpectAJobOrAReason(Document(With(szMember, jsDeep, Without("cmd"))));
        }
        ExpectAJobOrAReason(Document(jsDeep));
        ExpectAJobOrAReason(Document(With("unknown", jsDeep)));
    }
}
