#pragma once

#include <json/json.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace VUKO::VUKOCrond {

/// An account that a job runs as.
struct JobUser {
    std::string strName; ///< as it was looked up
    uid_t uid;
    gid_t gid; ///< its primary group
};

/// Settles the account of a job from its definition (the "config" object): "package_username" when "user" contains
/// "package", "user" itself when that contains "system" or "root".
///
/// @return nothing when there is no such account; the reason is then in the log, followed by "Unable to determine user"
///         where the definition is at fault.
std::optional<JobUser> GetJobUser(const Json::Value& jsConf);

} // namespace VUKO::VUKOCrond
