#pragma once

#include <sys/stat.h>

namespace support {

/// Sets the process's umask while it lives.
class ScopedUmask {
public:
    explicit ScopedUmask(mode_t uMask) : _uOld(umask(uMask)) {}
    ~ScopedUmask() { umask(_uOld); }
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;

private:
    mode_t _uOld;
};

} // namespace support
