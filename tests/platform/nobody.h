#pragma once

#include <grp.h>
#include <unistd.h>

#include <stdexcept>

namespace support {

constexpr unsigned NOBODY_ID = 65534;

/// Gives root's rights up for good, in a child; nothing to do for a test that was started without them.
inline void BecomeNobody() {
    if (geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setgid(NOBODY_ID) != 0 || setuid(NOBODY_ID) != 0 || geteuid() == 0)) {
        throw std::runtime_error("cannot give root's rights up");
    }
}

} // namespace support
