#include "service/minutetimer.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <ctime>

using namespace VUKO::VUKOCrond::Service;

namespace {

bool IsReadable(const MinuteTimer& timer, int iMilliseconds) {
    pollfd poll = {timer.Descriptor(), POLLIN, 0};
    return ::poll(&poll, 1, iMilliseconds) == 1;
}

} // namespace

TEST(MinuteTimer, FiresAtOnceForAnInstantThatHasPassed) {
    MinuteTimer timer;
    timer.Arm(std::time(nullptr) - 100);
    EXPECT_TRUE(IsReadable(timer, 5000));
    EXPECT_EQ(timer.Consume(), MinuteTimer::Event::Expired);
    EXPECT_FALSE(IsReadable(timer, 0));
}

TEST(MinuteTimer, DoesNotFireBeforeItsInstant) {
    MinuteTimer timer;
    timer.Arm(std::time(nullptr) + 3600);
    EXPECT_FALSE(IsReadable(timer, 0));
    timer.Arm(std::time(nullptr) - 1);
    EXPECT_TRUE(IsReadable(timer, 5000));
}

TEST(MinuteTimer, FiresAtItsInstant) {
    MinuteTimer timer;
    timespec tsBefore = {};
    clock_gettime(CLOCK_REALTIME, &tsBefore);
    timer.Arm(tsBefore.tv_sec + 1);
    ASSERT_TRUE(IsReadable(timer, 10000));
    timespec tsAfter = {};
    clock_gettime(CLOCK_REALTIME, &tsAfter);
    EXPECT_GT(tsAfter.tv_sec, tsBefore.tv_sec);
    EXPECT_EQ(timer.Consume(), MinuteTimer::Event::Expired);
}

/// time() lags behind the timer; it is waited for in short steps, neither in a busy loop nor for another minute.
TEST(MinuteTimer, WaitsForTimeToReachTheInstantInShortSteps) {
    MinuteTimer timer;
    const std::time_t tInstant = std::time(nullptr) + 1;
    int iSteps = 0;
    do {
        timer.Arm(tInstant);
        ASSERT_TRUE(IsReadable(timer, 10000));
        ASSERT_EQ(timer.Consume(), MinuteTimer::Event::Expired);
        ++iSteps;
    } while (std::time(nullptr) < tInstant && iSteps < 200);
    EXPECT_LT(iSteps, 200);
}

TEST(MinuteTimer, DoesNotTakeANewsThatIsNotThereForATick) {
    MinuteTimer timer;
    EXPECT_NE(timer.Consume(), MinuteTimer::Event::Expired);
}
