#pragma once

/// Files of the service that the library knows nothing of; all below the root folder where there is one.
namespace VUKO::VUKOCrond::Service::Path {

inline constexpr const char* RUN_TABLE = "/var/run/vukocrond.runs";
inline constexpr const char* ROLE_FILE = "/var/run/vukocrond.role";
inline constexpr const char* OUTPUT_FOLDER = "/var/log/vukocrond";

} // namespace VUKO::VUKOCrond::Service::Path
