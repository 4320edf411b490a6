#include "service/clocks.h"

#include <ctime>

namespace VUKO::VUKOCrond::Service {

namespace {

timespec Read(clockid_t eClock) {
    timespec ts = {};
    clock_gettime(eClock, &ts);
    return ts;
}

std::int64_t ToUsec(const timespec& ts) {
    return std::int64_t{ts.tv_sec} * 1'000'000 + ts.tv_nsec / 1000;
}

} // namespace

std::int64_t MonotonicUsec() {
    return ToUsec(Read(CLOCK_MONOTONIC));
}

std::int64_t RealtimeUsec() {
    return ToUsec(Read(CLOCK_REALTIME));
}

std::int64_t UptimeSec() {
    return Read(CLOCK_BOOTTIME).tv_sec;
}

} // namespace VUKO::VUKOCrond::Service
