/// The C library's time() is read off a clock that the kernel moves once per timer interrupt: for up to 10 ms into a
/// minute it says that the one before has not ended. The service would have to wait that long before it may start the
/// minute's jobs and write a line that bears the right second. Defined in the program, this is the time() of all of its
/// libraries.

#include <ctime>

#include "base/export.h"

extern "C" VUKO_API time_t time(time_t* ptNow) noexcept {
    timespec ts = {};
    clock_gettime(CLOCK_REALTIME, &ts);
    if (ptNow != nullptr) {
        *ptNow = ts.tv_sec;
    }
    return ts.tv_sec;
}
