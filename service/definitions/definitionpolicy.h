#pragma once

#include <sys/types.h>

#include <json/json.h>

#include <optional>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// Where a definition was found, as far as that bears on what it may ask for.
struct DefinitionOrigin {
    std::string strFolder;          ///< key of the definition folder
    bool bOfPackageAccount = false; ///< read in the folder of packages that run as accounts of their own
    std::string strPackage;         ///< the package's sub-folder there
    /// Owner of that sub-folder, when it is a common account: the only one that its jobs may run as. Without a value
    /// the sub-folder belongs to whom the service trusts anyway.
    std::optional<uid_t> uidPackage;
};

/// The service's own rules, which are stricter than the library's: names that are fit for file names and log lines, a
/// command that can be started, and an account that the definition's place entitles it to.
///
/// @param jsDefinition  one that WhyInvalid() has nothing against.
/// @return the first reason to refuse it, in one line that is fit for a log; empty when there is none.
std::string WhyRefused(const Json::Value& jsDefinition, const DefinitionOrigin& origin);

} // namespace VUKO::VUKOCrond::Service
