#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "service/role/rolefile.h"

namespace VUKO::VUKOCrond::Service {

/// What a role file says.
struct RoleStatement {
    Role eRole = Role::Passive;
    std::optional<std::int64_t> fromUsec; ///< nothing: from the time that the file was changed

    bool operator==(const RoleStatement&) const = default;
};

/// @return nothing when the first line of the text is none that says a role.
std::optional<RoleStatement> ParseRole(std::string_view strText);

} // namespace VUKO::VUKOCrond::Service
