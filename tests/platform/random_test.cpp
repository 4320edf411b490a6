#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <climits>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/vukorandom.h"
#include "tests/platform/errors.h"
#include "tests/support/forked.h"

namespace {

using VUKO::RANDOM::VUKORandomBase;

/// Chi-square of how often each of the buckets was drawn, against equal chances.
template <std::size_t COUNT, typename Draw>
double ChiSquare(int iDraws, Draw draw) {
    std::array<int, COUNT> aiSeen = {};
    for (int iDraw = 0; iDraw < iDraws; ++iDraw) {
        ++aiSeen.at(draw());
    }
    const double dExpected = static_cast<double>(iDraws) / static_cast<double>(COUNT);
    double dSum = 0;
    for (const int iSeen : aiSeen) {
        dSum += (iSeen - dExpected) * (iSeen - dExpected) / dExpected;
    }
    return dSum;
}

/// A text that two generators have in common with a probability of 2^-512.
std::string Fingerprint() {
    VUKORandomBase source;
    std::string strNumbers;
    for (int iDraw = 0; iDraw < 16; ++iDraw) {
        strNumbers += std::to_string(source.random(INT_MIN + 1, INT_MIN)) + " ";
    }
    return strNumbers;
}

TEST(Random, StaysWithinEveryInterval) {
    VUKORandomBase source;
    const std::vector<std::pair<int, int>> vecIntervals = {
        {0, 1}, {0, 60}, {1, 32}, {-5, 5}, {INT_MAX - 1, INT_MAX}, {INT_MIN, INT_MIN + 2}, {INT_MIN, INT_MAX}};
    for (const auto& [iLow, iHigh] : vecIntervals) {
        for (int iDraw = 0; iDraw < 2000; ++iDraw) {
            const int iValue = source.random(iLow, iHigh);
            ASSERT_GE(iValue, iLow);
            ASSERT_LT(iValue, iHigh);
        }
    }
}

TEST(Random, ReachesEveryValueOfASmallInterval) {
    VUKORandomBase source;
    std::set<int> setSeen;
    for (int iDraw = 0; iDraw < 6000; ++iDraw) { // one value of 60 stays away with a probability below 1e-41
        setSeen.insert(source.random(0, 60));
    }
    EXPECT_EQ(setSeen.size(), 60U);
    EXPECT_EQ(*setSeen.begin(), 0);
    EXPECT_EQ(*setSeen.rbegin(), 59);
}

TEST(Random, GivesTheLowEndOfAnEmptyInterval) {
    VUKORandomBase source;
    EXPECT_EQ(source.random(7, 7), 7);
    EXPECT_EQ(source.random(7, 3), 7);
    EXPECT_EQ(source.random(INT_MAX, -1), INT_MAX);
    EXPECT_EQ(source.random(INT_MIN, INT_MIN), INT_MIN);
    EXPECT_EQ(source.random(0, INT_MIN + 1), 0);
}

TEST(Random, TakesIntMinAsHighForOnePastIntMax) {
    VUKORandomBase source;
    EXPECT_EQ(source.random(INT_MAX, INT_MIN), INT_MAX);
    std::set<int> setSeen;
    for (int iDraw = 0; iDraw < 200; ++iDraw) {
        setSeen.insert(source.random(INT_MAX - 1, INT_MIN));
    }
    EXPECT_EQ(setSeen, (std::set<int>{INT_MAX - 1, INT_MAX}));
}

// The bounds of the chi-square tests are passed by a correct source with a probability above 1 - 1e-12.
TEST(Random, IsUniformOverASmallInterval) {
    VUKORandomBase source;
    EXPECT_LT((ChiSquare<10>(200000, [&] { return static_cast<std::size_t>(source.random(-3, 7) + 3); })), 90.0);
}

TEST(Random, HasNoModuloBiasOverThreeQuartersOfAllInts) {
    VUKORandomBase source;
    const auto Third = [&] {
        const std::int64_t iOffset = std::int64_t{source.random(INT_MIN, 1 << 30)} - INT_MIN;
        return static_cast<std::size_t>(iOffset >> 30);
    };
    EXPECT_LT((ChiSquare<3>(60000, Third)), 60.0);
}

TEST(Random, GivesNoResultMoreWordsThanOthers) {
    // Of 2^32 words, four share three results here; without the drawing again every third result would come twice as
    // often as the others.
    VUKORandomBase source;
    const auto Remainder = [&] {
        return static_cast<std::size_t>((std::int64_t{source.random(INT_MIN, 1 << 30)} - INT_MIN) % 3);
    };
    EXPECT_LT((ChiSquare<3>(60000, Remainder)), 60.0);
}

TEST(Random, CoversASpanBeyond31Bits) {
    VUKORandomBase source;
    const auto Eighth = [&] {
        const std::int64_t iOffset = std::int64_t{source.random(INT_MIN, INT_MAX)} - INT_MIN;
        return static_cast<std::size_t>(iOffset >> 29);
    };
    EXPECT_LT((ChiSquare<8>(80000, Eighth)), 85.0);
}

TEST(Random, IsUniformInItsLowestBits) {
    VUKORandomBase source;
    const auto Low = [&] { return static_cast<std::size_t>(source.random(0, INT_MAX) & 15); };
    EXPECT_LT((ChiSquare<16>(160000, Low)), 105.0);
}

TEST(Random, DiffersInAChildAfterAFork) {
    Fingerprint(); // seeded before the fork
    const auto Tell = [](int iFdOut) { return dprintf(iFdOut, "%s", Fingerprint().c_str()) > 0 ? 0 : 1; };
    const std::string strFirst = support::RunForked(Tell).strOutput;
    const std::string strSecond = support::RunForked(Tell).strOutput;
    const std::string strParent = Fingerprint();
    EXPECT_FALSE(strFirst.empty());
    EXPECT_NE(strFirst, strSecond);
    EXPECT_NE(strFirst, strParent);
    EXPECT_NE(strSecond, strParent);
}

TEST(Random, IsOneGeneratorForAllObjects) {
    // Were there one per object, or a seed by the second, these two would be alike.
    EXPECT_NE(Fingerprint(), Fingerprint());
}

TEST(Random, ServesThreadsWhileTheProcessForks) {
    std::atomic<bool> bStop = false;
    std::vector<std::thread> vecThreads;
    for (int iThread = 0; iThread < 3; ++iThread) {
        vecThreads.emplace_back([&bStop] {
            VUKORandomBase source;
            while (!bStop) {
                EXPECT_LT(source.random(0, 60), 60);
            }
        });
    }
    for (int iChild = 0; iChild < 100; ++iChild) {
        const support::ChildEnd end = support::RunForked([](int) {
            alarm(20); // ends a child that would wait for a lock for ever
            VUKORandomBase source;
            return source.random(4, 5);
        });
        ASSERT_EQ(end.iExitStatus, 4) << "signal " << end.iSignal;
    }
    bStop = true;
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
}

TEST(Random, LeavesErrnoAlone) {
    const support::ChildEnd end = support::RunForked([](int) { // seeds anew
        VUKORandomBase source;
        int iErrno = 0;
        support::WithMarkedErrno([&] { return source.random(0, 10); }, iErrno);
        return iErrno == support::ERRNO_MARK ? 0 : 1;
    });
    EXPECT_EQ(end.iExitStatus, 0);
}

} // namespace
