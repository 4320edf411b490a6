#include "service/control/tokenbucket.h"

#include <gtest/gtest.h>

#include "service/control/accounts.h"

using namespace VUKO::VUKOCrond::Service;

namespace {

constexpr std::uint64_t START = 123456789;
constexpr std::uint64_t SECOND = 1000000;

int TakeAll(TokenBucket& bucket, std::uint64_t uNow) {
    int iTaken = 0;
    while (bucket.Take(uNow)) {
        ++iTaken;
    }
    return iTaken;
}

} // namespace

TEST(TokenBucketTest, HoldsASecondsWorth) {
    TokenBucket bucket(50);
    EXPECT_EQ(TakeAll(bucket, START), 50);
    EXPECT_EQ(TakeAll(bucket, START + SECOND), 50);
    EXPECT_EQ(TakeAll(bucket, START + 100 * SECOND), 50);
}

TEST(TokenBucketTest, FillsEvenly) {
    TokenBucket bucket(50);
    TakeAll(bucket, START);
    EXPECT_EQ(TakeAll(bucket, START + SECOND / 50 - 1), 0);
    EXPECT_EQ(TakeAll(bucket, START + SECOND / 50), 1);
    EXPECT_EQ(TakeAll(bucket, START + SECOND / 2), 24);
}

TEST(TokenBucketTest, LosesNothingToManyLooks) {
    TokenBucket bucket(3);
    TakeAll(bucket, START);
    int iTaken = 0;
    for (std::uint64_t uUsec = 0; uUsec <= 10 * SECOND; uUsec += 777) {
        iTaken += bucket.Take(START + uUsec) ? 1 : 0;
    }
    EXPECT_EQ(iTaken, 29) << "the thirtieth comes with the microsecond that the last look missed";
}

TEST(TokenBucketTest, TellsWhetherItIsFull) {
    TokenBucket bucket(2);
    EXPECT_TRUE(bucket.IsFull(START));
    EXPECT_TRUE(bucket.Take(START));
    EXPECT_FALSE(bucket.IsFull(START + SECOND / 2 - 1));
    EXPECT_TRUE(bucket.IsFull(START + SECOND / 2));
}

TEST(AccountsTest, RememberWhoAskedTooMuchUntilItCountsNoMore) {
    Accounts accounts(1);
    EXPECT_TRUE(accounts.Of(1000, START).requests.Take(START));
    accounts.Of(1001, START); // an occasion to forget
    EXPECT_FALSE(accounts.Of(1000, START).requests.Take(START));
    ++accounts.Of(1001, START).uConnections;
    accounts.Of(1002, START + 2 * SECOND);
    EXPECT_EQ(accounts.Of(1001, START + 2 * SECOND).uConnections, 1u);
    EXPECT_TRUE(accounts.Of(1000, START + 2 * SECOND).requests.Take(START + 2 * SECOND));
}
