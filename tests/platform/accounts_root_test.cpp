#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/vukosdk.h"
#include "tests/platform/errors.h"
#include "tests/platform/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using support::TempDir;
using support::WithMarkedErrno;

/// An account database of the test's own, in the place of the system's.
class Accounts : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        _mounts = std::make_unique<support::PrivateMounts>();
    }

    void Install(const std::string& strEntries) {
        support::WriteFile(_dir / "passwd", "root:x:0:0:root:/root:/bin/sh\n" + strEntries);
        _mounts->Bind(_dir / "passwd", "/etc/passwd");
    }

    int Get(const char* szName) {
        return WithMarkedErrno([&] { return VUKOUserGetUGID(szName, &_uid, &_gid); }, _iErrno);
    }

    uid_t _uid = 77777;
    gid_t _gid = 88888;
    int _iErrno = 0;

private:
    TempDir _dir;
    std::unique_ptr<support::PrivateMounts> _mounts;
};

TEST_F(Accounts, AreReadWithBothIds) {
    Install("alice:x:4001:4002:Alice:/home/alice:/bin/sh\n");
    EXPECT_EQ(Get("alice"), 0);
    EXPECT_EQ(_uid, 4001U);
    EXPECT_EQ(_gid, 4002U);
    EXPECT_EQ(Get("bob"), -1);
    EXPECT_EQ(_iErrno, support::ERRNO_MARK);
}

TEST_F(Accounts, MayHaveEntriesFarBeyondTheUsualSize) {
    Install("long:x:4001:4002:" + std::string(300000, 'g') + ":/home/long:/bin/sh\n" +
            "after:x:4003:4004::/home/after:/bin/sh\n");
    EXPECT_EQ(Get("long"), 0);
    EXPECT_EQ(_uid, 4001U);
    EXPECT_EQ(_iErrno, support::ERRNO_MARK);
    EXPECT_EQ(Get("after"), 0);
    EXPECT_EQ(_gid, 4004U);
}

TEST_F(Accounts, OfAbsurdSizeAreRefused) {
    Install("huge:x:4001:4002:" + std::string(2000000, 'g') + ":/home/huge:/bin/sh\n");
    EXPECT_EQ(Get("huge"), -1);
    support::ExpectFailedWith(_iErrno, ERANGE);
    EXPECT_EQ(_uid, 77777U);
}

TEST_F(Accounts, WithAnIdThatMeansLeaveItAreRefused) {
    Install("nouid:x:4294967295:4002::/:/bin/sh\n"
            "nogid:x:4001:4294967295::/:/bin/sh\n"
            "last:x:4294967294:4294967294::/:/bin/sh\n");
    for (const char* const szName : {"nouid", "nogid"}) {
        EXPECT_EQ(Get(szName), -1) << szName;
        support::ExpectFailedWith(_iErrno, EINVAL);
        EXPECT_EQ(_uid, 77777U) << szName;
        EXPECT_EQ(_gid, 88888U) << szName;
    }
    EXPECT_EQ(Get("last"), 0);
    EXPECT_EQ(_uid, 4294967294U);
}

TEST_F(Accounts, GiveTheirOwnerToFoldersThatAreMade) {
    const TempDir dir;
    EXPECT_EQ(VUKOFSMkdirP((dir / "a/b").c_str(), 0, 1, 4001, 4002, 02750), 0);
    for (const char* const szName : {"a", "a/b"}) {
        struct stat stMade = {};
        ASSERT_EQ(stat((dir / szName).c_str(), &stMade), 0);
        EXPECT_EQ(stMade.st_uid, 4001U);
        EXPECT_EQ(stMade.st_gid, 4002U);
        EXPECT_EQ(stMade.st_mode & 07777U, 02750U);
    }
    struct stat stParent = {};
    ASSERT_EQ(stat(dir.Path().c_str(), &stParent), 0);
    EXPECT_EQ(stParent.st_uid, 0U);
}

} // namespace
