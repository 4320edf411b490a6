#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "service/definitions/definitionpolicy.h"
#include "service/engine/jobid.h"

namespace VUKO::VUKOCrond::Ctl {

/// A definition folder, of which the tool can write some: where a job belongs.
struct Place {
    std::string strFolder;  ///< key of the folder
    std::string strPackage; ///< name of the package's sub-folder; empty in folders without

    auto operator<=>(const Place&) const = default;

    /// Packages with accounts of their own write here themselves.
    bool IsOfPackageAccount() const;
    /// Its path, by the library's constants as they are now.
    std::string Path() const;
    Service::JobId IdOf(const std::string& strName) const { return {strFolder, strPackage, strName}; }
};

Place PlaceOf(const Service::JobId& id);

/// Who owns a package's sub-folder.
///
/// @throws ToolError where there is no such folder, or what there is is no folder, with what to do.
uid_t OwnerOf(const Place& place);

/// The packages whose sub-folders the caller owns, by name. Root owns none in this sense.
std::vector<std::string> OwnPackages();

/// Whether the caller may change what belongs to the system: root, and whoever runs a service of his own below a
/// folder of his own.
bool MayChangeSystem();

/// Where new jobs belong: into a package's sub-folder where one is named, else root's to the system, and another
/// account's to the package whose sub-folder it owns.
///
/// @throws ToolError where it owns none, or several.
Place PlaceForNew(const std::string& strPackage);

/// Makes sure that the caller is one who may change definitions there, as far as that can be told before.
///
/// @param strWhat  what is to be changed, for the message. @throws ToolError
void RequireWritable(const Place& place, const std::string& strWhat);

/// What the service will hold a definition there against.
Service::DefinitionOrigin OriginOf(const Place& place);

/// The name of an account. @throws ToolError where the user id has none.
std::string AccountName(uid_t uid);

} // namespace VUKO::VUKOCrond::Ctl
