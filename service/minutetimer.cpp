#include "service/minutetimer.h"

#include <sys/timerfd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace VUKO::VUKOCrond::Service {

namespace {

/// time() reads a clock that moves in steps of some milliseconds. A timer that fires on the second is ahead of it, and
/// the minute would not have begun yet for anybody who asks, the execution log's stamp included.
long ResolutionOfTime() {
    timespec tsResolution = {};
    if (clock_getres(CLOCK_REALTIME_COARSE, &tsResolution) != 0 || tsResolution.tv_sec != 0) {
        return 0;
    }
    return tsResolution.tv_nsec;
}

} // namespace

MinuteTimer::MinuteTimer()
    : _fd(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC)), _lResolution(ResolutionOfTime()) {
    if (!_fd) {
        throw std::system_error(errno, std::generic_category(), "timerfd_create");
    }
}

void MinuteTimer::Arm(std::time_t tInstant) {
    itimerspec spec = {};
    spec.it_value.tv_sec = tInstant;
    spec.it_value.tv_nsec = _lResolution;
    while (timerfd_settime(_fd.Get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &spec, nullptr) != 0) {
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
