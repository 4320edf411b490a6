#include <gtest/gtest.h>
#include <unistd.h>

#include "service/engine/job.h"
#include "service/launch/launcher.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

std::string NameOf(const char* szUser, const char* szPackage) {
    Json::Value jsDefinition(Json::objectValue);
    if (szUser != nullptr) {
        jsDefinition["user"] = szUser;
    }
    if (szPackage != nullptr) {
        jsDefinition["package_username"] = szPackage;
    }
    return AccountNameOf(jsDefinition);
}

TEST(Account, IsTheOneThatTheLibraryChooses) {
    EXPECT_EQ(NameOf("root", nullptr), "root");
    EXPECT_EQ(NameOf("system", "pkg"), "system");
    EXPECT_EQ(NameOf("myroot", nullptr), "myroot");
    EXPECT_EQ(NameOf("package", "pkg"), "pkg");
    EXPECT_EQ(NameOf("package-root", "pkg"), "pkg");
    EXPECT_EQ(NameOf("package", nullptr), "");
    EXPECT_EQ(NameOf("guest", "pkg"), "");
    EXPECT_EQ(NameOf(nullptr, "pkg"), "");
    Json::Value jsOdd(Json::objectValue);
    jsOdd["user"] = 5;
    EXPECT_EQ(AccountNameOf(jsOdd), "");
    jsOdd["user"] = "package";
    jsOdd["package_username"] = Json::Value(Json::arrayValue);
    EXPECT_EQ(AccountNameOf(jsOdd), "");
    EXPECT_EQ(AccountNameOf(Json::Value()), "");
    EXPECT_EQ(AccountNameOf(Json::Value("root")), "");
}

TEST(Account, IsFoundWithItsHomeAndShell) {
    const std::optional<Account> account = FindAccount("root");
    ASSERT_TRUE(account);
    EXPECT_EQ(account->strName, "root");
    EXPECT_EQ(account->uid, 0U);
    EXPECT_EQ(account->gid, 0U);
    EXPECT_EQ(account->strHome, "/root");
    EXPECT_NE(account->strShell, "");
}

TEST(Account, ThatDoesNotExistIsNotFound) {
    EXPECT_FALSE(FindAccount("no such account"));
    EXPECT_FALSE(FindAccount(""));
    EXPECT_FALSE(FindAccount(std::string("root\0x", 6)));
}

TEST(Account, OfTheServiceItselfCanAlwaysBeBecome) {
    EXPECT_TRUE(CanBecome({"me", geteuid(), getegid(), "", ""}));
}

} // namespace
