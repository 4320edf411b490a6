#include "service/definitions/definitionpolicy.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/fake/fake_platform.h"
#include "tests/service/service_fixture.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

constexpr uid_t ALICE = 1001;
constexpr uid_t BOB = 1002;

DefinitionOrigin BuiltIn() {
    return {"builtin", false, "", std::nullopt};
}

DefinitionOrigin PackageOf(std::optional<uid_t> uid) {
    return {"pkg_nonroot", true, "photos", uid};
}

std::string Repeated(const std::string& strPiece, int iTimes) {
    std::string strText;
    for (int i = 0; i < iTimes; ++i) {
        strText += strPiece;
    }
    return strText;
}

class DefinitionPolicy : public testing::Test {
protected:
    DefinitionPolicy() {
        fake::Platform().mapAccounts = {
            {"root", {0, 0}}, {"toor", {0, 0}}, {"alice", {ALICE, ALICE}}, {"bob", {BOB, BOB}}};
    }

    static std::string WhyNamed(const std::string& strName) {
        return WhyRefused(service_test::JobDefinition(strName), BuiltIn());
    }

    static std::string WhyRun(const std::string& strUser, const Json::Value& jsAccount,
                              const DefinitionOrigin& origin) {
        Json::Value jsDefinition = service_test::JobDefinition("job");
        jsDefinition["user"] = strUser;
        jsDefinition["package_username"] = jsAccount;
        return WhyRefused(jsDefinition, origin);
    }

private:
    fake::ScopedPlatform _platform;
};

} // namespace

TEST_F(DefinitionPolicy, TakesAnOrdinaryDefinition) {
    EXPECT_EQ(WhyNamed("backup"), "");
    EXPECT_EQ(WhyNamed("backup of \"today\""), "");
    EXPECT_EQ(WhyNamed("gr\xc3\xbc\xc3\x9f"), "");
    EXPECT_EQ(WhyNamed(std::string(128, 'x')), "");
}

TEST_F(DefinitionPolicy, RefusesNamesThatAreUnfitForFilesAndLogs) {
    EXPECT_EQ(WhyNamed(""), R"(field "name": is empty)");
    EXPECT_EQ(WhyNamed(std::string(129, 'x')), R"(field "name": 129 characters are more than 128)");
    EXPECT_EQ(WhyNamed(Repeated("\xc3\xbc", 125)), "");
    EXPECT_EQ(WhyNamed(Repeated("\xc3\xbc", 126)), R"(field "name": 252 bytes are more than 250)");
    EXPECT_EQ(WhyNamed("../x"), R"(field "name": "../x" begins with ".")");
    EXPECT_EQ(WhyNamed("a/b"), R"(field "name": "a/b" holds "/")");
    EXPECT_EQ(WhyNamed("a\nb"), R"(field "name": "a\x0ab" holds a control character)");
    EXPECT_EQ(WhyNamed(std::string("a\0b", 3)), R"(field "name": "a\x00b" holds a control character)");
    EXPECT_EQ(WhyNamed("a\x7f"), R"(field "name": "a\x7f" holds a control character)");
    EXPECT_EQ(WhyNamed("a\xc2\x9b"), R"(field "name": "a\xc2\x9b" holds a control character)");
    EXPECT_EQ(WhyNamed("a\xff"), R"(field "name": "a\xff" holds a control character)");
    EXPECT_EQ(WhyNamed("a\xe2\x80\xae"
                       "b"),
              R"(field "name": "a\xe2\x80\xaeb" holds a control character)");
}

TEST_F(DefinitionPolicy, RefusesAccountNamesThatWouldForgeALogLine) {
    EXPECT_EQ(WhyRun("root\nx", Json::Value(), BuiltIn()), R"(field "user": "root\x0ax" holds a control character)");
    EXPECT_EQ(WhyRun("package", "alice\n", BuiltIn()),
              R"(field "package_username": "alice\x0a" holds a control character)");
}

TEST_F(DefinitionPolicy, RefusesCommandsThatTheLibraryOnlyFailsAtLater) {
    Json::Value jsDefinition = service_test::JobDefinition("job");
    const auto whyList = [&jsDefinition](const char* szList) {
        jsDefinition["cmd_list"] = service_test::FromJson(szList);
        return WhyRefused(jsDefinition, BuiltIn());
    };
    EXPECT_EQ(whyList(R"(["/bin/true", "-x", ""])"), "");
    EXPECT_EQ(whyList(R"(["/bin/true", 5])"), R"(field "cmd_list": element 2: expected a text, found a number)");
    EXPECT_EQ(whyList(R"([null])"), R"(field "cmd_list": element 1: expected a text, found null)");
    EXPECT_EQ(whyList(R"({"a": "/bin/true"})"), R"(field "cmd_list": expected an array, found an object)");
    EXPECT_EQ(whyList(R"(["/bin/true", "a\u0000b"])"), R"(field "cmd_list": element 2: holds a NUL character)");
    jsDefinition.removeMember("cmd_list");
    jsDefinition["cmd"] = std::string("/bin/true\0x", 11);
    EXPECT_EQ(WhyRefused(jsDefinition, BuiltIn()), R"(field "cmd": holds a NUL character)");
}

TEST_F(DefinitionPolicy, RefusesArgumentsThatTheKernelWouldNotTake) {
    Json::Value jsDefinition = service_test::JobDefinition("job");
    const std::string strLongest(128 * 1024 - 1, 'x');
    jsDefinition["cmd"] = "/bin/echo " + strLongest + " " + strLongest;
    EXPECT_EQ(WhyRefused(jsDefinition, BuiltIn()), "");
    jsDefinition["cmd"] = "/bin/echo " + strLongest + "x";
    EXPECT_EQ(WhyRefused(jsDefinition, BuiltIn()), R"(field "cmd": 131072 bytes are more than 131071)");
    jsDefinition["cmd_list"].append("/bin/echo");
    jsDefinition["cmd_list"].append(strLongest);
    EXPECT_EQ(WhyRefused(jsDefinition, BuiltIn()), "");
    jsDefinition["cmd_list"].append(strLongest + "x");
    EXPECT_EQ(WhyRefused(jsDefinition, BuiltIn()), R"(field "cmd_list": element 3: 131072 bytes are more than 131071)");
}

TEST_F(DefinitionPolicy, RefusesAccountsThatNobodyCanHave) {
    EXPECT_EQ(WhyRun("", Json::Value(), BuiltIn()), R"(field "user": is empty)");
    EXPECT_EQ(WhyRun("ro ot", Json::Value(), BuiltIn()), R"(field "user": "ro ot" can name no account)");
    EXPECT_EQ(WhyRun("root:x", Json::Value(), BuiltIn()), R"(field "user": "root:x" can name no account)");
    EXPECT_EQ(WhyRun("../root", Json::Value(), BuiltIn()), R"(field "user": "../root" can name no account)");
    EXPECT_EQ(WhyRun("root\xc2\x85", Json::Value(), BuiltIn()),
              R"(field "user": "root\xc2\x85" holds a control character)");
    EXPECT_EQ(WhyRun(std::string(255, 'r'), Json::Value(), BuiltIn()), "");
    EXPECT_EQ(WhyRun(std::string(256, 'r'), Json::Value(), BuiltIn()), R"(field "user": 256 bytes are more than 255)");
    EXPECT_EQ(WhyRun("package", "", BuiltIn()), R"(field "package_username": is empty)");
    EXPECT_EQ(WhyRun("package", "a b", PackageOf(ALICE)), R"(field "package_username": "a b" can name no account)");
    EXPECT_EQ(WhyRun("package", std::string(256, 'p'), PackageOf(ALICE)),
              R"(field "package_username": 256 bytes are more than 255)");
    EXPECT_EQ(WhyRun("packages", 7, BuiltIn()), R"(field "package_username": expected a text, found a number)");
    Json::Value jsDefinition = service_test::JobDefinition("job");
    jsDefinition["user"] = "packages";
    EXPECT_EQ(WhyRefused(jsDefinition, BuiltIn()),
              R"(field "package_username": missing, expected an account name, as "user" contains "package")");
    EXPECT_EQ(WhyRun("root", 7, BuiltIn()), ""); // read by nobody
    EXPECT_EQ(WhyRun("root", "", BuiltIn()), "");
}

TEST_F(DefinitionPolicy, HoldsTheServicesOwnMembersToTheirKinds) {
    const struct {
        const char* szMember;
        const char* szReason;
    } aCases[] = {
        {R"({"enabled": true})", ""},
        {R"({"enabled": false})", ""},
        {R"({"enabled": 1})", R"(field "enabled": expected true or false, found a number)"},
        {R"({"enabled": "true"})", R"(field "enabled": expected true or false, found a text)"},
        {R"({"enabled": null})", R"(field "enabled": expected true or false, found null)"},
        {R"({"overlap": "skip"})", ""},
        {R"({"overlap": "allow"})", ""},
        {R"({"overlap": "Skip"})", R"(field "overlap": expected "skip" or "allow", found "Skip")"},
        {R"({"overlap": "skip\u0000"})", R"(field "overlap": expected "skip" or "allow", found "skip\x00")"},
        {R"({"overlap": true})", R"(field "overlap": expected "skip" or "allow", found a boolean)"},
        {R"({"overlap": null})", R"(field "overlap": expected "skip" or "allow", found null)"},
        {R"({"timeout": 0})", ""},
        {R"({"timeout": 2147483647})", ""},
        {R"({"timeout": 60.0})", ""},
        {R"({"timeout": 2147483648})", R"(field "timeout": 2147483648 is not in 0..2147483647)"},
        {R"({"timeout": 18446744073709551615})", R"(field "timeout": 18446744073709551615 is not in 0..2147483647)"},
        {R"({"timeout": -1})", R"(field "timeout": -1 is not in 0..2147483647)"},
        {R"({"timeout": 1.5})", R"(field "timeout": expected a whole number of seconds, found 1.5)"},
        {R"({"timeout": -0.5})", R"(field "timeout": -0.5 is not in 0..2147483647)"},
        {R"({"timeout": "60"})", R"(field "timeout": expected a whole number of seconds, found a text)"},
        {R"({"timeout": true})", R"(field "timeout": expected a whole number of seconds, found a boolean)"},
        {R"({"timeout": null})", R"(field "timeout": expected a whole number of seconds, found null)"},
        {R"({"description": ""})", ""},
        {R"({"description": "copies \"all\" pictures, gr\u00fcndlich"})", ""},
        {R"({"description": "a\nb"})", R"(field "description": holds a control character)"},
        {R"({"description": "a\u2028b"})", R"(field "description": holds a control character)"},
        {R"({"description": 5})", R"(field "description": expected a text, found a number)"},
        {R"({"description": null})", R"(field "description": expected a text, found null)"},
        {R"({"Enabled": 5, "anything": null})", ""}, // nobody's members
    };
    for (const auto& entry : aCases) {
        Json::Value jsDefinition = service_test::JobDefinition("job");
        const Json::Value jsMembers = service_test::FromJson(entry.szMember);
        for (const std::string& strName : jsMembers.getMemberNames()) {
            jsDefinition[strName] = jsMembers[strName];
        }
        EXPECT_EQ(WhyRefused(jsDefinition, BuiltIn()), entry.szReason) << entry.szMember;
    }
}

TEST_F(DefinitionPolicy, LetsTrustedFoldersNameAnyAccount) {
    EXPECT_EQ(WhyRun("root", Json::Value(), BuiltIn()), "");
    EXPECT_EQ(WhyRun("package", "alice", BuiltIn()), "");
    EXPECT_EQ(WhyRun("package", "nobody-knows", BuiltIn()), "");
}

TEST_F(DefinitionPolicy, HoldsAPackageToTheAccountThatOwnsItsFolder) {
    EXPECT_EQ(WhyRun("package", "alice", PackageOf(ALICE)), "");
    EXPECT_EQ(WhyRun("package", "bob", PackageOf(ALICE)),
              R"(field "package_username": "bob" is not the account that owns the package's folder)");
    EXPECT_EQ(WhyRun("package", "nobody-knows", PackageOf(ALICE)),
              R"(field "package_username": "nobody-knows" is no known account)");
    EXPECT_EQ(WhyRun("package", "root", PackageOf(ALICE)), R"(field "package_username": "root" is root)");
    EXPECT_EQ(WhyRun("package", "toor", PackageOf(ALICE)), R"(field "package_username": "toor" is root)");
    EXPECT_EQ(WhyRun("package", 5, PackageOf(ALICE)), R"(field "package_username": expected a text, found a number)");
}

TEST_F(DefinitionPolicy, RefusesAnyOtherUserInThePackagesFolder) {
    for (const std::string strUser : {"root", "system", "package-root", "Package", ""}) {
        EXPECT_EQ(WhyRun(strUser, "alice", PackageOf(ALICE)),
                  "field \"user\": expected \"package\" in this folder, found \"" + strUser + "\"");
    }
}

TEST_F(DefinitionPolicy, LetsRootWriteForAPackageButNeverAsRoot) {
    EXPECT_EQ(WhyRun("package", "alice", PackageOf(std::nullopt)), "");
    EXPECT_EQ(WhyRun("package", "not-made-yet", PackageOf(std::nullopt)), "");
    EXPECT_EQ(WhyRun("package", "toor", PackageOf(std::nullopt)), R"(field "package_username": "toor" is root)");
    EXPECT_EQ(WhyRun("root", "alice", PackageOf(std::nullopt)),
              R"(field "user": expected "package" in this folder, found "root")");
}

TEST_F(DefinitionPolicy, AsksForFewAccountsBesideThePackagesOwn) {
    int iAsked = 0;
    fake::Platform().onCall = [&iAsked] { ++iAsked; };
    const AccountLookup lookUp = LookUpFewBeside(ALICE);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(lookUp("nobody-" + std::to_string(i)), std::nullopt);
        EXPECT_EQ(lookUp("nobody-0"), std::nullopt);
    }
    EXPECT_EQ(iAsked, 8);
    EXPECT_EQ(lookUp("alice"), std::nullopt) << "the definitions before it used the questions up";
    const AccountLookup another = LookUpFewBeside(ALICE);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(another("alice"), ALICE);
        EXPECT_EQ(another("bob"), BOB);
    }
    EXPECT_EQ(iAsked, 10);
}
