#pragma once

#include <ctime>

#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

/// A descriptor that becomes readable at an instant of the real-time clock, and at once when that clock is set: the
/// instant it was armed for then means nothing any more.
class MinuteTimer {
public:
    enum class Event { Expired, ClockSet };

    /// @throws std::system_error when the kernel gives no timer.
    MinuteTimer();

    int Descriptor() const { return _fd.Get(); }

    /// Becomes readable at `tInstant`; a moment from now for an instant that has passed.
    ///
    /// time() may not have reached the instant yet when that happens: it reads a clock that moves in steps of some
    /// milliseconds and lags behind. Whoever finds the minute not begun arms for it again, and is asked again a
    /// moment later.
    ///
    /// @throws std::system_error
    void Arm(std::time_t tInstant);

    /// Takes note of what made the descriptor readable. Arm() again after either.
    Event Consume();

private:
    UniqueFd _fd;
};

} // namespace VUKO::VUKOCrond::Service
