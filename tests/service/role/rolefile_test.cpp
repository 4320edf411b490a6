#include "service/role/rolefile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <string>

#include "tests/support/temp_dir.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

constexpr std::int64_t SECOND = 1000000;
constexpr std::int64_t MINUTE = 60 * SECOND;

std::int64_t Now() {
    timespec ts = {};
    clock_gettime(CLOCK_REALTIME, &ts);
    return ts.tv_sec * SECOND + ts.tv_nsec / 1000;
}

/// The instant as a role file tells it.
std::string Instant(std::int64_t iUsec) {
    std::string strFraction = std::to_string(iUsec % SECOND);
    strFraction.insert(0, 6 - strFraction.size(), '0');
    return " @" + std::to_string(iUsec / SECOND) + "." + strFraction + "\n";
}

/// As whoever writes the file should: a reader never sees half of it.
void Put(const std::string& strPath, const std::string& strText, std::int64_t iModified = 0) {
    const std::string strTemporary = strPath + ".new";
    support::WriteFile(strTemporary, strText);
    ASSERT_EQ(chmod(strTemporary.c_str(), 0644), 0);
    if (iModified != 0) {
        const timespec aTimes[] = {{iModified / SECOND, (iModified % SECOND) * 1000},
                                   {iModified / SECOND, (iModified % SECOND) * 1000}};
        ASSERT_EQ(utimensat(AT_FDCWD, strTemporary.c_str(), aTimes, 0), 0);
    }
    std::filesystem::rename(strTemporary, strPath);
}

bool IsReadable(int iFd) {
    pollfd ready = {iFd, POLLIN, 0};
    return poll(&ready, 1, 0) == 1;
}

class RoleFileTest : public testing::Test {
protected:
    support::TempDir _dir;
    std::string _strPath = _dir / "role";
};

} // namespace

TEST_F(RoleFileTest, SaysActiveWhereItIsMissing) {
    RoleFile file(_strPath);
    EXPECT_EQ(file.RoleAt(0), Role::Active);
    EXPECT_EQ(file.RoleAt(Now()), Role::Active);
    EXPECT_EQ(file.TakeProblem(), "");
}

TEST_F(RoleFileTest, HoldsFromTheTimeThatItWasChanged) {
    const std::int64_t iChanged = Now() - 90 * SECOND;
    Put(_strPath, "passive\n", iChanged);
    RoleFile file(_strPath);
    EXPECT_EQ(file.RoleAt(iChanged), Role::Passive);
    EXPECT_EQ(file.RoleAt(iChanged - 1), Role::Active);
    Put(_strPath, "active\n", iChanged + 30 * SECOND);
    EXPECT_EQ(file.RoleAt(iChanged + 30 * SECOND), Role::Active);
    EXPECT_EQ(file.RoleAt(iChanged + 30 * SECOND - 1), Role::Passive);
    EXPECT_EQ(file.RoleAt(iChanged - 1), Role::Active) << "the past is remembered";
}

TEST_F(RoleFileTest, MayAnnounceAChange) {
    const std::int64_t iAhead = Now() + 90 * SECOND;
    RoleFile file(_strPath);
    Put(_strPath, "passive" + Instant(iAhead));
    EXPECT_EQ(file.RoleAt(Now()), Role::Active);
    EXPECT_EQ(file.RoleAt(iAhead - 1), Role::Active);
    EXPECT_EQ(file.RoleAt(iAhead), Role::Passive);
    RoleFile other(_strPath);
    EXPECT_EQ(other.RoleAt(iAhead - 1), Role::Active) << "also for one who has just come";
}

TEST_F(RoleFileTest, TakesAnAnnouncementBackWhenItIsReplaced) {
    const std::int64_t iAhead = Now() + 90 * SECOND;
    RoleFile file(_strPath);
    Put(_strPath, "passive" + Instant(iAhead));
    EXPECT_EQ(file.RoleAt(iAhead), Role::Passive);
    Put(_strPath, "active\n");
    EXPECT_EQ(file.RoleAt(iAhead), Role::Active);
    Put(_strPath, "passive" + Instant(iAhead));
    EXPECT_EQ(file.RoleAt(iAhead), Role::Passive);
    Put(_strPath, "active" + Instant(iAhead + MINUTE));
    EXPECT_EQ(file.RoleAt(iAhead), Role::Active);
}

TEST_F(RoleFileTest, HoldsFromNowWhenItWasChangedInTheFuture) {
    std::int64_t iNow = Now();
    RoleFile file(_strPath, [&iNow] { return iNow; });
    Put(_strPath, "passive\n", iNow + 1000 * SECOND);
    iNow += SECOND;
    EXPECT_EQ(file.RoleAt(iNow), Role::Passive);
    EXPECT_EQ(file.RoleAt(iNow - 1), Role::Active);
}

TEST_F(RoleFileTest, TellsWhenToLook) {
    RoleFile file(_strPath);
    EXPECT_FALSE(IsReadable(file.Descriptor()));
    EXPECT_FALSE(file.Consume());
    Put(_strPath, "passive\n");
    ASSERT_TRUE(IsReadable(file.Descriptor()));
    EXPECT_TRUE(file.Consume());
    EXPECT_FALSE(IsReadable(file.Descriptor()));
    EXPECT_FALSE(file.Consume());
    support::WriteFile(_dir / "other", "text");
    EXPECT_FALSE(file.Consume());
    std::filesystem::remove(_strPath);
    EXPECT_TRUE(IsReadable(file.Descriptor()));
    EXPECT_TRUE(file.Consume());
    EXPECT_EQ(file.RoleAt(Now()), Role::Active);
}

TEST_F(RoleFileTest, IsReadAnewWithoutBeingTold) {
    RoleFile file(_strPath);
    for (int i = 0; i < 20; ++i) {
        const Role eRole = i % 2 == 0 ? Role::Passive : Role::Active;
        Put(_strPath, std::string(ToText(eRole)) + "\n");
        EXPECT_EQ(file.RoleAt(Now()), eRole) << i;
    }
}

TEST_F(RoleFileTest, NoticesAChangeInPlaceThatLeavesTheSameStamps) {
    Put(_strPath, "active @1000\n");
    RoleFile file(_strPath);
    EXPECT_EQ(file.RoleAt(700 * SECOND), Role::Passive);
    support::WriteFile(_strPath, "active @0500\n"); // within one step of the file system's clock, most likely
    EXPECT_EQ(file.RoleAt(700 * SECOND), Role::Active);
}

TEST_F(RoleFileTest, IsFoundInAFolderThatComesLater) {
    RoleFile file(_dir / "folder/role");
    EXPECT_EQ(file.RoleAt(Now()), Role::Active);
    std::filesystem::create_directory(_dir / "folder");
    Put(_dir / "folder/role", "passive\n");
    EXPECT_EQ(file.RoleAt(Now()), Role::Passive);
    EXPECT_TRUE(file.Consume());
    Put(_dir / "folder/role", "active\n");
    EXPECT_TRUE(IsReadable(file.Descriptor()));
    EXPECT_TRUE(file.Consume());
    std::filesystem::rename(_dir / "folder", _dir / "elsewhere");
    EXPECT_FALSE(file.Consume());
    std::filesystem::create_directory(_dir / "folder");
    Put(_dir / "folder/role", "passive\n");
    EXPECT_TRUE(file.Consume());
}

TEST_F(RoleFileTest, ChangesNothingWhenItCannotBeMadeSenseOf) {
    Put(_strPath, "passive\n");
    RoleFile file(_strPath);
    Put(_strPath, "acitve\n");
    EXPECT_EQ(file.RoleAt(Now()), Role::Passive);
    EXPECT_EQ(file.TakeProblem(),
              "role file " + _strPath + " says \"acitve\", which is no role; the last good role holds");
    EXPECT_EQ(file.TakeProblem(), "");
    EXPECT_EQ(file.RoleAt(Now()), Role::Passive);
    EXPECT_EQ(file.TakeProblem(), "") << "told once";
    Put(_strPath, "acitve\n");
    file.Consume();
    EXPECT_NE(file.TakeProblem(), "") << "and again for another file";
    Put(_strPath, "active\n");
    EXPECT_EQ(file.RoleAt(Now()), Role::Active);
    EXPECT_EQ(file.TakeProblem(), "");
}

TEST_F(RoleFileTest, MeansPassiveWhereNoGoodRoleWasEverSeen) {
    Put(_strPath, "\x1b[31m\n");
    RoleFile file(_strPath);
    EXPECT_EQ(file.RoleAt(Now()), Role::Passive);
    EXPECT_EQ(file.TakeProblem(),
              "role file " + _strPath + " says \"\\x1b[31m\", which is no role; passive until it says a role");
}

TEST_F(RoleFileTest, IsRefusedWhenItIsNoPlainFile) {
    support::WriteFile(_dir / "target", "passive\n");
    RoleFile file(_strPath);
    const auto expectRefusal = [&](const char* szReason) {
        EXPECT_EQ(file.RoleAt(Now()), Role::Active);
        EXPECT_EQ(file.TakeProblem(), "role file " + _strPath + " " + szReason + "; the last good role holds");
        std::filesystem::remove_all(_strPath);
        EXPECT_EQ(file.RoleAt(Now()), Role::Active);
    };
    std::filesystem::create_symlink(_dir / "target", _strPath);
    expectRefusal("is a symbolic link");
    ASSERT_EQ(mkfifo(_strPath.c_str(), 0600), 0);
    expectRefusal("is not a regular file");
    std::filesystem::create_directory(_strPath);
    expectRefusal("is not a regular file");
    Put(_strPath, "passive\n" + std::string(300, 'x'));
    expectRefusal("is too large");
    Put(_strPath, "passive\n");
    ASSERT_EQ(chmod(_strPath.c_str(), 0664), 0);
    expectRefusal("is writable by group or others");
    Put(_strPath, "passive\n");
    ASSERT_EQ(chmod(_strPath.c_str(), 0646), 0);
    expectRefusal("is writable by group or others");
}

TEST_F(RoleFileTest, IsWrittenWholeAndForAllToRead) {
    RoleFile file(_strPath);
    EXPECT_EQ(file.Write(Role::Passive), "");
    EXPECT_EQ(support::ReadFile(_strPath), "passive\n");
    EXPECT_EQ(support::ModeOf(_strPath), 0644);
    EXPECT_EQ(file.RoleAt(Now()), Role::Passive);
    EXPECT_EQ(file.Write(Role::Active), "");
    EXPECT_EQ(file.RoleAt(Now()), Role::Active);
    RoleFile nowhere(_dir / "missing/role");
    EXPECT_EQ(nowhere.Write(Role::Active), _dir / "missing/role" + " cannot be written: No such file or directory");
}

namespace {

/// Two machines, of which one takes over from the other.
struct Pair {
    explicit Pair(const support::TempDir& dir, std::int64_t iBefore)
        : strFormer(dir / "former"), strLatter(dir / "latter") {
        Put(strFormer, "active\n", iBefore);
        Put(strLatter, "passive\n", iBefore);
    }

    std::string strFormer;
    std::string strLatter;
};

void ExpectOneActive(RoleFile& former, RoleFile& latter, std::int64_t iFlip, std::int64_t iInstant) {
    EXPECT_EQ(former.RoleAt(iInstant), iInstant < iFlip ? Role::Active : Role::Passive) << iInstant - iFlip;
    EXPECT_EQ(latter.RoleAt(iInstant), iInstant < iFlip ? Role::Passive : Role::Active) << iInstant - iFlip;
}

} // namespace

TEST(TakeOver, LeavesExactlyOneActiveAtEveryInstant) {
    const unsigned uSeed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(uSeed));
    std::mt19937 random(uSeed);
    const auto between = [&random](std::int64_t iLow, std::int64_t iHigh) {
        return std::uniform_int_distribution<std::int64_t>(iLow, iHigh)(random);
    };
    for (int iRound = 0; iRound < 40; ++iRound) {
        const support::TempDir dir;
        const std::int64_t iMinute = Now() / MINUTE * MINUTE;
        const Pair pair(dir, iMinute - 10 * MINUTE);
        RoleFile former(pair.strFormer);
        RoleFile latter(pair.strLatter);
        const bool bByTime = iRound % 2 == 0; // a time of change lies in the past
        const std::int64_t iFlip = between(iMinute - 5 * MINUTE, bByTime ? iMinute - SECOND : iMinute + 5 * MINUTE);
        const std::int64_t iMarked = bByTime ? iFlip : 0;
        const std::string strMark = bByTime ? "\n" : Instant(iFlip);
        Put(pair.strFormer, "passive" + strMark, iMarked);
        if (random() % 2 == 0) {
            former.RoleAt(Now()); // one of them may look before the other's file is there
        }
        Put(pair.strLatter, "active" + strMark, iMarked);
        for (int i = 0; i < 30; ++i) {
            ExpectOneActive(former, latter, iFlip, between(iMinute - 9 * MINUTE, iMinute + 9 * MINUTE));
        }
        for (const std::int64_t iInstant : {iFlip - 1, iFlip, iFlip + 1, iMinute, iMinute - MINUTE}) {
            ExpectOneActive(former, latter, iFlip, iInstant);
        }
        RoleFile restarted(pair.strFormer); // it knows the file alone
        ExpectOneActive(restarted, latter, iFlip, iFlip - 1);
        ExpectOneActive(restarted, latter, iFlip, iFlip);
    }
}
