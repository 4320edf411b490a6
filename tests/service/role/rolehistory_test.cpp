#include "service/role/rolehistory.h"

#include <gtest/gtest.h>

using namespace VUKO::VUKOCrond::Service;

TEST(RoleHistoryTest, AnswersForEachInstantWithTheRoleThatHeldThen) {
    RoleHistory history;
    history.Change(Role::Passive, 0);
    history.Change(Role::Active, 100);
    history.Change(Role::Passive, 200);
    EXPECT_EQ(history.At(-5), Role::Passive);
    EXPECT_EQ(history.At(99), Role::Passive);
    EXPECT_EQ(history.At(100), Role::Active);
    EXPECT_EQ(history.At(199), Role::Active);
    EXPECT_EQ(history.At(200), Role::Passive);
}

TEST(RoleHistoryTest, TakesANewerWordOverWhatWasKnownToComeAfterIt) {
    RoleHistory history;
    history.Change(Role::Passive, 0);
    history.Change(Role::Active, 100);
    history.Change(Role::Passive, 200);
    history.Change(Role::Active, 50);
    EXPECT_EQ(history.At(49), Role::Passive);
    EXPECT_EQ(history.At(50), Role::Active);
    EXPECT_EQ(history.At(250), Role::Active);
    history.CutOff(10);
    EXPECT_EQ(history.At(250), Role::Passive);
}

TEST(RoleHistoryTest, RemembersItsLastChanges) {
    RoleHistory history;
    for (int i = 0; i < 1000; ++i) {
        history.Change(i % 2 == 0 ? Role::Active : Role::Passive, i);
    }
    for (int i = 1000 - static_cast<int>(RoleHistory::DEPTH); i < 1000; ++i) {
        EXPECT_EQ(history.At(i), i % 2 == 0 ? Role::Active : Role::Passive) << i;
    }
}
