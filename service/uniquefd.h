#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace VUKO::VUKOCrond::Service {

/// Owns one descriptor and closes it. errno survives the closing, so a failure can be told after it.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int iFd) : _iFd(iFd) {}
    ~UniqueFd() { Close(); }
    UniqueFd(UniqueFd&& other) noexcept : _iFd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            Close();
            _iFd = other.Release();
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int Get() const { return _iFd; }
    int Release() { return std::exchange(_iFd, -1); }
    explicit operator bool() const { return _iFd >= 0; }

private:
    void Close() {
        if (_iFd >= 0) {
            const int iErrno = errno;
            close(_iFd);
            errno = iErrno;
        }
    }

    int _iFd = -1;
};

} // namespace VUKO::VUKOCrond::Service
