#pragma once

#include <cerrno>

namespace VUKO::PLATFORM {

/// Makes a system call again for as long as a signal handler interrupts it.
template <typename Call>
auto RetryInterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

} // namespace VUKO::PLATFORM
