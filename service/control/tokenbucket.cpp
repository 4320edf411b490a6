#include "service/control/tokenbucket.h"

#include <algorithm>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::uint64_t USEC_PER_SEC = 1000000;

} // namespace

bool TokenBucket::Take(std::uint64_t uNowUsec) {
    _uMicroTokens = After(uNowUsec);
    _uLastUsec = std::max(_uLastUsec, uNowUsec);
    if (_uMicroTokens < TOKEN) {
        return false;
    }
    _uMicroTokens -= TOKEN;
    return true;
}

std::uint64_t TokenBucket::After(std::uint64_t uNowUsec) const {
    if (uNowUsec <= _uLastUsec) {
        return _uMicroTokens;
    }
    const std::uint64_t uPassed = std::min(uNowUsec - _uLastUsec, USEC_PER_SEC); // a second fills it anyway
    return std::min(_uMicroTokens + uPassed * _uPerSecond, Full());
}

} // namespace VUKO::VUKOCrond::Service
