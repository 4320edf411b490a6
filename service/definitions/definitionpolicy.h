#pragma once

#include <sys/types.h>

#include <json/json.h>

#include <functional>
#include <optional>
#include <string>

#include "service/definitions/definitionfault.h"

namespace VUKO::VUKOCrond::Service {

/// The user id of an account by its name; nothing when there is no such account.
using AccountLookup = std::function<std::optional<uid_t>(const std::string&)>;

/// Asks the platform, which may ask a directory in the network.
std::optional<uid_t> LookUpAccount(const std::string& strAccount);

/// The same with a memory, which asks for no more than a few accounts that are not this one: whoever writes a package's
/// definitions could make the service wait for the directory with each of them. Any further one counts as unknown.
AccountLookup LookUpFewBeside(uid_t uid);

/// Where a definition was found, as far as that bears on what it may ask for.
struct DefinitionOrigin {
    std::string strFolder;          ///< key of the definition folder
    bool bOfPackageAccount = false; ///< read in the folder of packages that run as accounts of their own
    std::string strPackage;         ///< the package's sub-folder there
    /// Owner of that sub-folder, when it is a common account: the only one that its jobs may run as. Without a value
    /// the sub-folder belongs to whom the service trusts anyway.
    std::optional<uid_t> uidPackage;
    AccountLookup lookUp = LookUpAccount;
};

/// Why a text is no name for a job or for a package's sub-folder: names are 1 to 128 characters, do not begin with ".",
/// and are fit for file names and log lines.
///
/// @return the reason, fit for a log line; empty when there is none.
std::string WhyBadName(const std::string& strName);

/// The service's own rules, which are stricter than the library's: names that are fit for file names and log lines, a
/// command that can be started, an account that the definition's place entitles it to, and members of the right kind
/// where the library looks at none: "enabled" (true or false), "overlap" ("skip" or "allow"), "timeout" (whole seconds,
/// 0 for none) and "description" (a text without control characters). Each of these may be missing.
///
/// @param jsDefinition  one that WhyInvalid() has nothing against.
/// @return the first reason to refuse it, in one line that is fit for a log; empty when there is none.
std::string WhyRefused(const Json::Value& jsDefinition, const DefinitionOrigin& origin);

/// The same with its place in the definition.
DefinitionFault FindRefused(const Json::Value& jsDefinition, const DefinitionOrigin& origin);

} // namespace VUKO::VUKOCrond::Service
