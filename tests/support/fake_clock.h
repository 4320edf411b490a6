#pragma once

#include <ctime>

namespace support {

/// Replaces time() and localtime() of this process while it lives; without one they tell the real time.
class FakeClock {
public:
    explicit FakeClock(time_t tNow);
    ~FakeClock();
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    void Set(time_t tNow);
    time_t Now() const;

    /// From now on each call of time() moves the clock on by so many seconds, after it has answered.
    void AdvancePerReading(time_t tSeconds);
    /// How often time() has been called.
    int Readings() const;

    /// localtime() fails from now on, leaving errno as given (0: untouched).
    void FailLocaltime(int iErrno);
    /// localtime() answers with this offset from UTC, whatever the zone.
    void ForceOffset(long lSeconds);
};

} // namespace support
