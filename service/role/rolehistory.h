#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "service/role/rolefile.h"

namespace VUKO::VUKOCrond::Service {

/// Which role held when, as far as is known; changes that lie ahead included.
class RoleHistory {
public:
    static constexpr std::size_t DEPTH = 64;

    bool IsEmpty() const { return _dequeChanges.empty(); }
    /// Not to be asked of an empty one.
    Role At(std::int64_t iInstantUsec) const;

    /// From this instant on it is this role, whatever was known to come after it.
    void Change(Role eRole, std::int64_t iFromUsec);
    /// Forgets the changes from this instant on.
    void CutOff(std::int64_t iFromUsec);

private:
    struct Entry {
        std::int64_t iFromUsec;
        Role eRole;
    };

    std::deque<Entry> _dequeChanges; ///< by instant; the first one's role also held before it
};

} // namespace VUKO::VUKOCrond::Service
