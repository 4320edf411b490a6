#include "platform/vukorandom.h"

#include <pthread.h>

#include <climits>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <type_traits>

#include "platform/linux/entropy.h"

namespace VUKO {
namespace RANDOM {

namespace {

/// Fills the engine's whole state from the operating system: a seed of one number would leave most states out of reach.
struct SystemSeed {
    using result_type = std::uint_least32_t;

    void generate(result_type* pBegin, result_type* pEnd) {
        PLATFORM::FillWithEntropy(pBegin, static_cast<std::size_t>(pEnd - pBegin) * sizeof(result_type));
    }
};

/// The process's one generator: ready before any constructor runs and never destroyed, so that objects of other
/// libraries can use it at any time of their lives.
class Generator {
public:
    static Generator& Instance() {
        static constinit Generator generator;
        return generator;
    }

    /// @return a number below uSpan (not 0), each with the same probability: the upper half of uSpan times a random
    ///         word. Where 2^32 is no multiple of uSpan, some results would get one word more than others; the words
    ///         too many are those with the smallest lower halves, and are drawn again.
    std::uint32_t Below(std::uint32_t uSpan) {
        const std::lock_guard<std::mutex> lock(_mutex);
        if (!_engine) {
            SystemSeed seed;
            _engine.emplace(seed);
        }
        const std::uint32_t uFirstFair = (0U - uSpan) % uSpan;
        for (;;) {
            const std::uint64_t uProduct = ((*_engine)() >> 32) * uSpan;
            if (static_cast<std::uint32_t>(uProduct) >= uFirstFair) {
                return static_cast<std::uint32_t>(uProduct >> 32);
            }
        }
    }

    void BeforeFork() { _mutex.lock(); }
    void AfterForkInParent() { _mutex.unlock(); }
    void AfterForkInChild() {
        _engine.reset();
        _mutex.unlock();
    }

private:
    constexpr Generator() = default;

    std::mutex _mutex;
    std::optional<std::mt19937_64> _engine;
};

static_assert(std::is_trivially_destructible_v<Generator>);

/// A fork takes the lock first, so that the child never finds it held by a thread that it does not have; and the child
/// forgets the engine, so that it does not repeat its parent's numbers. Set up when the library is loaded: later, a
/// fork could come between the first use and the set-up.
__attribute__((constructor)) void FollowForks() {
    pthread_atfork([] { Generator::Instance().BeforeFork(); }, [] { Generator::Instance().AfterForkInParent(); },
                   [] { Generator::Instance().AfterForkInChild(); });
}

} // namespace

VUKORandomBase::~VUKORandomBase() = default;

int VUKORandomBase::random(int low, int high) {
    if (low == high || (low > high && high != INT_MIN)) {
        return low;
    }
    // Unsigned all through: the span of two ints does not fit in an int, and an end of 2^31 wraps to INT_MIN.
    const std::uint32_t uLow = static_cast<std::uint32_t>(low);
    const std::uint32_t uSpan = static_cast<std::uint32_t>(high) - uLow;
    return static_cast<int>(uLow + Generator::Instance().Below(uSpan));
}

} // namespace RANDOM
} // namespace VUKO
