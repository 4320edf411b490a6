#include <gtest/gtest.h>

#include "platform/vlibc.h"

namespace {

int iForksAsked = 0;

} // namespace

/// This program's own fork, in the place of the platform's.
pid_t VLIBCProcForkEx(int /*flags*/) {
    ++iForksAsked;
    return -1;
}

namespace {

TEST(Exec, DoesNotForkByAFunctionThatTheProgramReplaced) {
    ASSERT_EQ(VLIBCProcForkEx(71), -1);
    ASSERT_EQ(iForksAsked, 1);
    EXPECT_EQ(VLIBCExec("/bin/sh", "-c", "exit 3", static_cast<char*>(nullptr)), 3);
    EXPECT_EQ(iForksAsked, 1);
}

} // namespace
