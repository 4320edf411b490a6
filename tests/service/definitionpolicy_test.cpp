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
    EXPECT_EQ(WhyNamed(std::string(129, 'x')), R"(field "name": 129 bytes are more than 128)");
    EXPECT_EQ(WhyNamed("../x"), R"(field "name": "../x" begins with ".")");
    EXPECT_EQ(WhyNamed("a/b"), R"(field "name": "a/b" holds "/")");
    EXPECT_EQ(WhyNamed("a\nb"), R"(field "name": "a\x0ab" holds a control character)");
    EXPECT_EQ(WhyNamed(std::string("a\0b", 3)), R"(field "name": "a\x00b" holds a control character)");
    EXPECT_EQ(WhyNamed("a\x7f"), R"(field "name": "a\x7f" holds a control character)");
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
