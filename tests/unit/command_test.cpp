#include <gtest/gtest.h>

#include "crond/cronjob.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;

namespace {

const char* const EMPTY_LIST = R"(0 == _jsJob["cmd_list"].size())";

Json::Value WithList(Json::Value jsList) {
    return With("cmd_list", std::move(jsList), Without("cmd"));
}

} // namespace

TEST(CommandText, IsSplitAtEverySingleBlank) {
    struct Case {
        const char* szCmd;
        const char* szList;
        const char* szComment;
    };
    const Case aCases[] = {
        {"/bin/true", R"(["/bin/true"])", "a program alone"},
        {"/bin/ls -l /tmp", R"(["/bin/ls","-l","/tmp"])", "arguments"},
        {"/bin/ls  -l", R"(["/bin/ls","","-l"])", "two blanks make an empty argument between them"},
        {"/bin/ls   -l", R"(["/bin/ls","","","-l"])", "three make two"},
        {" /bin/ls", R"(["","/bin/ls"])", "a leading blank makes one in front"},
        {"/bin/ls ", R"(["/bin/ls",""])", "a trailing blank makes one behind"},
        {"", R"([""])", "an empty text is one empty argument"},
        {" ", R"(["",""])", "a blank alone is two"},
        {"/bin/echo 'a b'", R"(["/bin/echo","'a","b'"])", "quotes keep nothing together"},
        {"/bin/echo a\\ b", R"(["/bin/echo","a\\","b"])", "nor does a backslash"},
        {"/bin/echo\ta", R"(["/bin/echo\ta"])", "a tab is no blank"},
        {"/bin/echo\na", R"(["/bin/echo\na"])", "nor is a line's end"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        const CronJob job(Document(With("cmd", c.szCmd)));
        EXPECT_TRUE(job._bValid);
        EXPECT_EQ(job._jsJob["cmd_list"], FromText(c.szList));
        EXPECT_EQ(job._jsJob["cmd_str"], c.szCmd) << "the text is kept as it is";
    }
}

TEST(CommandText, KeepsBytesThatAreNoText) {
    const std::string strCmd("/bin/echo \xff\xfe a\0b", 16);
    const CronJob job(Document(With("cmd", strCmd)));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(job._jsJob["cmd_str"].asString(), strCmd);
    ASSERT_EQ(job._jsJob["cmd_list"].size(), 3U);
    EXPECT_EQ(job._jsJob["cmd_list"][2].asString(), std::string("a\0b", 3));
}

TEST(ArgumentVector, IsCopiedAsItIsAndJoinedWithABlankAfterEachArgument) {
    struct Case {
        const char* szList;
        const char* szText;
        const char* szComment;
    };
    const Case aCases[] = {
        {R"(["/bin/true"])", "/bin/true ", "a program alone"},
        {R"(["/bin/ls","-l"])", "/bin/ls -l ", "a program and an argument"},
        {R"(["/bin/echo","a b",""])", "/bin/echo a b  ", "blanks and empty arguments are not marked"},
        {R"([""])", " ", "one empty argument"},
        {R"([5,-1,2.5,true,false,null])", "5 -1 2.5 true false  ", "what is no text is turned into one"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        const CronJob job(Document(WithList(FromText(c.szList))));
        EXPECT_TRUE(job._bValid);
        EXPECT_EQ(job._jsJob["cmd_list"], FromText(c.szList));
        EXPECT_EQ(job._jsJob["cmd_str"], c.szText);
    }
}

TEST(ArgumentVector, GoesBeforeTheText) {
    const CronJob job(Document(With("cmd_list", FromText(R"(["/bin/false"])"))));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(job._jsJob["cmd_list"], FromText(R"(["/bin/false"])"));
    EXPECT_EQ(job._jsJob["cmd_str"], "/bin/false ");
}

TEST(ArgumentVector, OfNoArgumentsIsRefused) {
    const Json::Value aEmpty[] = {
        WithList(Json::Value(Json::arrayValue)),
        With("cmd_list", Json::Value(Json::arrayValue)),
        With("cmd_list", "/bin/true"),
        With("cmd_list", ""),
        With("cmd_list", Json::Value()),
        With("cmd_list", 5),
        With("cmd_list", true),
        With("cmd_list", Json::Value(Json::objectValue)),
    };
    for (const Json::Value& jsConf : aEmpty) {
        SCOPED_TRACE(jsConf.toStyledString());
        ExpectInBothForms(
            [&jsConf] {
                const CronJob job(Document(jsConf));
                EXPECT_FALSE(job._bValid);
                EXPECT_EQ(job._jsJob["cmd_list"], jsConf["cmd_list"]) << "copied whatever its kind";
                EXPECT_EQ(job._jsJob["cmd_str"], "");
            },
            {Failed(301, EMPTY_LIST), {166, "parse error"}});
    }
}

TEST(ArgumentVector, WithAnArgumentThatNoTextCanBeMadeOfIsRefused) {
    for (const char* const szList : {R"(["a",[]])", R"([{}])", R"(["a",{"b":1},"c"])"}) {
        ExpectInBothForms(
            [szList] {
                const CronJob job(Document(WithList(FromText(szList))));
                EXPECT_FALSE(job._bValid);
                EXPECT_EQ(job._jsJob["cmd_list"], FromText(szList));
                EXPECT_FALSE(job._jsJob.isMember("cmd_str"));
            },
            {{166, "parse error"}});
    }
}

TEST(ArgumentVector, ThatIsAnObjectIsWalkedByItsMembers) {
    const CronJob job(Document(With("cmd_list", FromText(R"({"a":"/bin/true","b":"x"})"))));
    EXPECT_TRUE(job._bValid);
    EXPECT_EQ(job._jsJob["cmd_str"], "/bin/true x ");
}

TEST(Command, OfADocumentThatIsLoadedAgainIsTheConfiguredOne) {
    Json::Value jsDocument = Document(Definition());
    for (const Json::Value& jsStaged : {FromText(R"(["/tmp/staged","x"])"), Json::Value("text"), Json::Value(5)}) {
        jsDocument["cmd_list"] = jsStaged;
        jsDocument["cmd_str"] = jsStaged;
        const CronJob job(jsDocument);
        EXPECT_TRUE(job._bValid);
        EXPECT_EQ(job._jsJob["cmd_list"], FromText(R"(["/bin/true"])"));
        EXPECT_EQ(job._jsJob["cmd_str"], "/bin/true");
    }
}
