#pragma once

/// Random numbers.

#include "base/export.h"

namespace VUKO {
namespace RANDOM {

/// A source of uniform integers. All objects share one generator per process, seeded by the operating system on first
/// use and again after a fork, so that a child never repeats its parent's numbers. Safe to use from several threads.
class VUKO_API VUKORandomBase {
public:
    virtual ~VUKORandomBase();

    /// @return an integer r with low <= r < high, each with the same probability (no modulo bias). An interval without
    ///         any integer gives `low`. INT_MIN as `high` stands for one past INT_MAX.
    int random(int low, int high);
};

} // namespace RANDOM
} // namespace VUKO
