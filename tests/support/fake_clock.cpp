#include "tests/support/fake_clock.h"

#include <cerrno>

namespace {

struct State {
    bool bActive = false;
    time_t tNow = 0;
    time_t tPerReading = 0;
    int iReadings = 0;
    bool bFailLocaltime = false;
    int iLocaltimeErrno = 0;
    bool bForceOffset = false;
    long lOffset = 0;
};

State g_state;

} // namespace

extern "C" {

time_t time(time_t* pResult) noexcept {
    time_t tNow = 0;
    if (g_state.bActive) {
        tNow = g_state.tNow;
        g_state.tNow += g_state.tPerReading;
        ++g_state.iReadings;
    } else {
        struct timespec tsNow = {};
        clock_gettime(CLOCK_REALTIME, &tsNow);
        tNow = tsNow.tv_sec;
    }
    if (pResult != nullptr) {
        *pResult = tNow;
    }
    return tNow;
}

struct tm* localtime(const time_t* pTime) noexcept {
    static struct tm tmShared = {};
    if (g_state.bActive && g_state.bFailLocaltime) {
        if (g_state.iLocaltimeErrno != 0) {
            errno = g_state.iLocaltimeErrno;
        }
        return nullptr;
    }
    tzset(); // localtime() does, localtime_r() need not
    struct tm* const pResult = localtime_r(pTime, &tmShared);
    if (pResult != nullptr && g_state.bActive && g_state.bForceOffset) {
        pResult->tm_gmtoff = g_state.lOffset;
    }
    return pResult;
}
}

namespace support {

FakeClock::FakeClock(time_t tNow) {
    g_state = State();
    g_state.bActive = true;
    g_state.tNow = tNow;
}

FakeClock::~FakeClock() {
    g_state = State();
}

void FakeClock::Set(time_t tNow) {
    g_state.tNow = tNow;
}

time_t FakeClock::Now() const {
    return g_state.tNow;
}

void FakeClock::AdvancePerReading(time_t tSeconds) {
    g_state.tPerReading = tSeconds;
}

int FakeClock::Readings() const {
    return g_state.iReadings;
}

void FakeClock::FailLocaltime(int iErrno) {
    g_state.bFailLocaltime = true;
    g_state.iLocaltimeErrno = iErrno;
}

void FakeClock::ForceOffset(long lSeconds) {
    g_state.bForceOffset = true;
    g_state.lOffset = lSeconds;
}

} // namespace support
