#pragma once

#include <unistd.h>

#include <utility>

#include "platform/linux/lasterror.h"

namespace VUKO::PLATFORM {

/// Owns one file descriptor, or none (a negative number). Closing leaves errno alone, so that a failed step's errno
/// survives the cleaning up behind it.
class FileDescriptor {
public:
    explicit FileDescriptor(int iFd = -1) : _iFd(iFd) {}
    ~FileDescriptor() { Close(); }
    FileDescriptor(FileDescriptor&& other) noexcept : _iFd(std::exchange(other._iFd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            Close();
            _iFd = std::exchange(other._iFd, -1);
        }
        return *this;
    }

    int Get() const { return _iFd; }
    explicit operator bool() const { return _iFd >= 0; }

    void Close() {
        if (_iFd >= 0) {
            const ErrnoKeeper keeper;
            ::close(std::exchange(_iFd, -1));
        }
    }

private:
    int _iFd;
};

} // namespace VUKO::PLATFORM
