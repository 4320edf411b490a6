#pragma once

#include <cstdint>

namespace support {

/// Replaces the clocks that nobody sets (CLOCK_MONOTONIC and CLOCK_BOOTTIME) of this process while it lives; without
/// one they are the real ones. They begin a day after the machine's start, and show the same.
class FakeMonotonic {
public:
    FakeMonotonic();
    ~FakeMonotonic();
    FakeMonotonic(const FakeMonotonic&) = delete;
    FakeMonotonic& operator=(const FakeMonotonic&) = delete;

    void Advance(std::int64_t iUsec);
    std::int64_t NowUsec() const;
};

} // namespace support
