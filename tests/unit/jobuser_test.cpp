#include "crond/cronjob/jobuser.h"

#include <gtest/gtest.h>

#include "tests/fake/call_record.h"
#include "tests/fake/fake_platform.h"
#include "tests/unit/definitions.h"
#include "tests/unit/messages.h"

using namespace unit;
using VUKO::VUKOCrond::GetJobUser;
using VUKO::VUKOCrond::JobUser;

namespace {

using Calls = std::vector<std::string>;

/// The accounts that the platform knows in these tests.
class JobAccount : public testing::Test {
protected:
    JobAccount() {
        fake::Platform().mapAccounts = {{"root", {0, 0}},
                                        {"system", {11, 12}},
                                        {"alice", {1001, 2001}},
                                        {"", {7, 8}},
                                        {"far", {4294967294U, 4294967293U}}};
    }

    static void ExpectRefused(const Json::Value& jsConf, const std::vector<Message>& vecMessages) {
        ExpectInBothForms([&jsConf] { EXPECT_FALSE(GetJobUser(jsConf).has_value()); }, vecMessages);
    }

private:
    fake::ScopedPlatform _platform;
};

} // namespace

TEST_F(JobAccount, IsTheUserOrThePackagesOwn) {
    struct Case {
        const char* szUser;
        const char* szPackageUser;
        const char* szAccount;
        uid_t uid;
        gid_t gid;
        const char* szComment;
    };
    const Case aCases[] = {
        {"root", nullptr, "root", 0, 0, "root"},
        {"system", nullptr, "system", 11, 12, "the system's account"},
        {"package", "alice", "alice", 1001, 2001, "a package's account"},
        {"package", "root", "root", 0, 0, "which may be any"},
        {"package-root", "alice", "alice", 1001, 2001, "\"package\" is looked for first"},
        {"rootpackage", "alice", "alice", 1001, 2001, "wherever it stands"},
        {"system package", "alice", "alice", 1001, 2001, "before \"system\" too"},
        {"root", "alice", "root", 0, 0, "a package's account means nothing elsewhere"},
        {"system", "alice", "system", 11, 12, "nor here"},
        {"package", "", "", 7, 8, "an empty name is looked up as it is"},
        {"package", "far", "far", 4294967294U, 4294967293U, "ids are unsigned"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        fake::ClearCalls();
        Json::Value jsConf = With("user", c.szUser);
        if (c.szPackageUser != nullptr) {
            jsConf["package_username"] = c.szPackageUser;
        }
        std::optional<JobUser> user;
        ExpectInBothForms([&] { user = GetJobUser(jsConf); }, {});
        ASSERT_TRUE(user.has_value());
        EXPECT_EQ(user->strName, c.szAccount);
        EXPECT_EQ(user->uid, c.uid);
        EXPECT_EQ(user->gid, c.gid);
        const std::string strCall = std::string("account ") + c.szAccount;
        EXPECT_EQ(fake::Calls(), (Calls{strCall, strCall})) << "once for each form";
    }
}

TEST_F(JobAccount, IsLookedUpUnderTheVeryTextThatHoldsSystemOrRoot) {
    for (const char* const szUser : {"myroot", "systemd", "root ", "rooted", "xsystemroot", "filesystem"}) {
        ExpectRefused(With("user", szUser), {{104, std::string("user ") + szUser + " not exist"}});
    }
    fake::Platform().mapAccounts["systemd"] = {101, 102};
    EXPECT_EQ(Logged([] { EXPECT_EQ(GetJobUser(With("user", "systemd")).value().uid, 101U); }), Calls{});
}

TEST_F(JobAccount, ThatIsUnknownIsReported) {
    ExpectRefused(With("package_username", "bob", With("user", "package")), {{104, "user bob not exist"}});
    fake::Platform().mapAccounts.clear();
    ExpectRefused(With("user", "root"), {{104, "user root not exist"}});
    ExpectRefused(With("user", "system"), {{104, "user system not exist"}});
}

TEST_F(JobAccount, ThatCannotBeLookedUpIsReportedWithTheReasonOfTheLookUp) {
    fake::Platform().mapAccounts.clear();
    fake::Platform().iAccountErrno = EIO;
    EXPECT_EQ(Logged([] { EXPECT_FALSE(GetJobUser(With("user", "root")).has_value()); }),
              Calls{"<3>cronjob:104 user root not exist (Input/output error)"});
}

TEST_F(JobAccount, IsMissedOnlyWhenTheLookUpAnswersMinusOne) {
    for (const int iResult : {1, -2}) {
        fake::Platform().iAccountResult = iResult;
        ExpectInBothForms([] { EXPECT_EQ(GetJobUser(With("user", "system")).value().gid, 12U); }, {});
    }
    fake::Platform().iAccountResult = -1;
    ExpectRefused(With("user", "system"), {{104, "user system not exist"}});
}

TEST_F(JobAccount, OfAPackageNeedsItsName) {
    const std::vector<Message> vecMessages = {{70, "you are not package! error user in config"},
                                              {96, "Unable to determine user"}};
    for (const char* const szUser : {"package", "package-root", "mypackage", "packages"}) {
        const Json::Value jsConf = With("user", szUser);
        ExpectRefused(jsConf, vecMessages);
        for (const char* const szNoName : {"5", "null", "true", R"(["alice"])", R"({"name":"alice"})"}) {
            SCOPED_TRACE(szNoName);
            ExpectRefused(With("package_username", FromText(szNoName), jsConf), vecMessages);
        }
    }
    EXPECT_EQ(fake::Calls(), Calls{}) << "nothing is looked up without a name";
}

TEST_F(JobAccount, OfNoKnownClassIsReportedWithTheNameAsJson) {
    struct Case {
        const char* szUser;
        const char* szName;
        const char* szComment;
    };
    const Case aCases[] = {
        {"admin", R"("backup")", "a name"},
        {"alice", R"("backup")", "an account that exists is no class"},
        {"", R"("backup")", "an empty user"},
        {"Root", R"("backup")", "letter case counts"},
        {"SYSTEM", R"("backup")", "letter case counts"},
        {"pack age", R"("backup")", "the word is not whole"},
        {"admin", R"("a \"quoted\" name")", "a name with quotes"},
        {"admin", R"("")", "an empty name"},
        {"admin", "5", "a number"},
        {"admin", "null", "null"},
        {"admin", "true", "a bool"},
        {"admin", R"(["a",1])", "an array"},
        {"admin", R"({"a":1})", "an object"},
        {"%s%n", R"("%s%n")", "a format in the texts"},
    };
    for (const Case& c : aCases) {
        SCOPED_TRACE(c.szComment);
        ExpectRefused(With("name", FromText(c.szName), With("user", c.szUser)),
                      {{74, std::string("wrong user ") + c.szUser +
                                "! you can only specify root/system/package in config [" + c.szName + "]"},
                       {96, "Unable to determine user"}});
    }
    EXPECT_EQ(fake::Calls(), Calls{});
}

TEST_F(JobAccount, OfADefinitionWithoutUserOrNameIsThatOfAnEmptyUser) {
    const std::vector<Message> vecMessages = {
        {74, "wrong user ! you can only specify root/system/package in config [null]"},
        {96, "Unable to determine user"}};
    ExpectRefused(Json::Value(Json::objectValue), vecMessages);
    ExpectRefused(Json::Value(), vecMessages);
    ExpectRefused(FromText(R"({"user":null})"), vecMessages);
}

TEST_F(JobAccount, IsFoundWithoutChangingTheDefinition) {
    for (const Json::Value& jsConf : {Definition(), With("user", "package"), Json::Value(Json::objectValue)}) {
        const Json::Value jsBefore = jsConf;
        Logged([&jsConf] { GetJobUser(jsConf); });
        EXPECT_EQ(jsConf, jsBefore);
    }
}
