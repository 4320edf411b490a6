#include <gtest/gtest.h>

#include "platform/vukosdk.h"
#include "tests/platform/errors.h"

namespace {

using support::WithMarkedErrno;

constexpr uid_t UID_MARK = 77777;
constexpr gid_t GID_MARK = 88888;

TEST(User, HasTheIdsOfTheAccount) {
    uid_t uid = UID_MARK;
    gid_t gid = GID_MARK;
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([&] { return VUKOUserGetUGID("root", &uid, &gid); }, iErrno), 0);
    EXPECT_EQ(uid, 0U);
    EXPECT_EQ(gid, 0U);
    EXPECT_EQ(iErrno, support::ERRNO_MARK);
}

TEST(User, WithoutAnAccountIsNoFailureOfErrno) {
    for (const char* const szName : {"no-such-account", "", "0", "root ", "ROOT", "root:x"}) {
        uid_t uid = UID_MARK;
        gid_t gid = GID_MARK;
        int iErrno = 0;
        EXPECT_EQ(WithMarkedErrno([&] { return VUKOUserGetUGID(szName, &uid, &gid); }, iErrno), -1) << szName;
        EXPECT_EQ(iErrno, support::ERRNO_MARK) << szName;
        EXPECT_EQ(VLIBCErrGet(), static_cast<unsigned>(ENOENT)) << szName;
        EXPECT_EQ(uid, UID_MARK) << szName;
        EXPECT_EQ(gid, GID_MARK) << szName;
    }
}

TEST(User, IsNotLookedUpWithNullPointers) {
    uid_t uid = UID_MARK;
    gid_t gid = GID_MARK;
    int iErrno = 0;
    EXPECT_EQ(WithMarkedErrno([&] { return VUKOUserGetUGID(nullptr, &uid, &gid); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, EFAULT);
    EXPECT_EQ(WithMarkedErrno([&] { return VUKOUserGetUGID("root", nullptr, &gid); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, EFAULT);
    EXPECT_EQ(WithMarkedErrno([&] { return VUKOUserGetUGID("root", &uid, nullptr); }, iErrno), -1);
    support::ExpectFailedWith(iErrno, EFAULT);
    EXPECT_EQ(uid, UID_MARK);
    EXPECT_EQ(gid, GID_MARK);
}

} // namespace
