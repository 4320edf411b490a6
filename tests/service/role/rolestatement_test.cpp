#include "service/role/rolestatement.h"

#include <gtest/gtest.h>

#include <string>

using namespace VUKO::VUKOCrond::Service;

TEST(RoleStatementTest, SaysARoleAndMaySaySinceWhen) {
    const RoleStatement active{Role::Active, std::nullopt};
    const RoleStatement passive{Role::Passive, std::nullopt};
    EXPECT_EQ(ParseRole("active"), active);
    EXPECT_EQ(ParseRole("passive\n"), passive);
    EXPECT_EQ(ParseRole("active\nwhatever follows\n"), active);
    EXPECT_EQ(ParseRole("passive @1793000000\n"), (RoleStatement{Role::Passive, 1793000000000000}));
    EXPECT_EQ(ParseRole("active @0"), (RoleStatement{Role::Active, 0}));
    EXPECT_EQ(ParseRole("active @1793000000.5"), (RoleStatement{Role::Active, 1793000000500000}));
    EXPECT_EQ(ParseRole("active @1793000000.0000019"), (RoleStatement{Role::Active, 1793000000000001}));
    EXPECT_EQ(ParseRole("active @999999999999"), (RoleStatement{Role::Active, 999999999999000000}));
}

TEST(RoleStatementTest, IsNothingElse) {
    for (const char* szText : {"",
                               "\n",
                               "\nactive",
                               "Active",
                               "active ",
                               " active",
                               "active\r\n",
                               "activepassive",
                               "active @",
                               "active @x",
                               "active @-1",
                               "active @1.",
                               "active @.5",
                               "active @1.2.3",
                               "active @1 ",
                               "active  @1",
                               "active@1",
                               "active @1793000000x",
                               "active @1000000000000",
                               "@1"}) {
        EXPECT_EQ(ParseRole(szText), std::nullopt) << szText;
    }
    EXPECT_EQ(ParseRole(std::string("active\0", 7)), std::nullopt);
}
