#include "tests/support/fake_monotonic.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

namespace {

constexpr std::int64_t USEC = 1'000'000;

bool g_bActive = false;
std::int64_t g_iNowUsec = 0;

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec* pResult) noexcept {
    if (g_bActive && (clock == CLOCK_MONOTONIC || clock == CLOCK_BOOTTIME)) {
        pResult->tv_sec = g_iNowUsec / USEC;
        pResult->tv_nsec = g_iNowUsec % USEC * 1000;
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, pResult));
}

namespace support {

FakeMonotonic::FakeMonotonic() {
    g_bActive = true;
    g_iNowUsec = 86'400 * USEC;
}

FakeMonotonic::~FakeMonotonic() {
    g_bActive = false;
}

void FakeMonotonic::Advance(std::int64_t iUsec) {
    g_iNowUsec += iUsec;
}

std::int64_t FakeMonotonic::NowUsec() const {
    return g_iNowUsec;
}

} // namespace support
