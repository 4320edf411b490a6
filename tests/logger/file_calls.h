#pragma once

#include <functional>
#include <string>

namespace fake {

/// Stands between the logger and the C library: opening, chmod, flock and strftime of this process can be told to fail,
/// and a test can look at the world in the middle of an operation. Everything else goes through to the real function.
struct FileCalls {
    std::string strFailOpen; ///< opening this file as a stream fails
    int iOpenErrno = 0;      ///< and leaves this in errno (0: untouched)
    bool bFailChmod = false;
    int iChmodErrno = 0;
    int iFlockErrno = 0; ///< not 0: flock fails with it
    bool bFailStrftime = false;

    /// Called before each call, with "open PATH", "chmod PATH MODE", "flock" or "stat PATH".
    std::function<void(const std::string&)> onCall;
};

FileCalls& Files();

/// Real calls again at the end of a test.
class ScopedFileCalls {
public:
    ScopedFileCalls() { Files() = FileCalls(); }
    ~ScopedFileCalls() { Files() = FileCalls(); }
    ScopedFileCalls(const ScopedFileCalls&) = delete;
    ScopedFileCalls& operator=(const ScopedFileCalls&) = delete;
};

} // namespace fake
