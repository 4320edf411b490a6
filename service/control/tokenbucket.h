#pragma once

#include <cstdint>

namespace VUKO::VUKOCrond::Service {

/// So many per second on the average, and no more than a second's worth at once.
class TokenBucket {
public:
    /// Starts full.
    explicit TokenBucket(unsigned uPerSecond) : _uPerSecond(uPerSecond), _uMicroTokens(Full()) {}

    /// @param uNowUsec  a clock that only goes forward. @return whether there was one to take.
    bool Take(std::uint64_t uNowUsec);
    /// Whether it would be no different if it were new.
    bool IsFull(std::uint64_t uNowUsec) const { return After(uNowUsec) == Full(); }

private:
    static constexpr std::uint64_t TOKEN = 1000000; ///< in millionths: whole numbers need no care

    std::uint64_t Full() const { return _uPerSecond * TOKEN; }
    std::uint64_t After(std::uint64_t uNowUsec) const;

    std::uint64_t _uPerSecond;
    std::uint64_t _uMicroTokens;
    std::uint64_t _uLastUsec = 0;
};

} // namespace VUKO::VUKOCrond::Service
