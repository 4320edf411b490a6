#include "service/minutetimer.h"

#include <sys/timerfd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace VUKO::VUKOCrond::Service {

namespace {

/// How long "a moment" is: short beside the lag of time(), long beside the work of asking.
constexpr long MOMENT_NANOSECONDS = 250000;
constexpr long SECOND_NANOSECONDS = 1000000000;

timespec AMomentFromNow() {
    timespec ts = {};
    clock_gettime(CLOCK_REALTIME, &ts);
    ts.tv_nsec += MOMENT_NANOSECONDS;
    if (ts.tv_nsec >= SECOND_NANOSECONDS) {
        ++ts.tv_sec;
        ts.tv_nsec -= SECOND_NANOSECONDS;
    }
    return ts;
}

} // namespace

MinuteTimer::MinuteTimer() : _fd(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC)) {
    if (!_fd) {
        throw std::system_error(errno, std::generic_category(), "timerfd_create");
    }
}

void MinuteTimer::Arm(std::time_t tInstant) {
    itimerspec setting = {};
    setting.it_value = AMomentFromNow();
    if (tInstant > setting.it_value.tv_sec) {
        setting.it_value = {tInstant, 0};
    }
    while (timerfd_settime(_fd.Get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &setting, nullptr) != 0) {
        // The clock was set since the last look. The timer is armed all the same; asking again takes the news off it.
        if (errno != ECANCELED) {
            throw std::system_error(errno, std::generic_category(), "timerfd_settime");
        }
    }
}

MinuteTimer::Event MinuteTimer::Consume() {
    std::uint64_t uExpired = 0;
    const ssize_t iRead = read(_fd.Get(), &uExpired, sizeof(uExpired));
    return iRead == static_cast<ssize_t>(sizeof(uExpired)) ? Event::Expired : Event::ClockSet;
}

} // namespace VUKO::VUKOCrond::Service
