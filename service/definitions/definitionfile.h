#pragma once

#include <sys/stat.h>

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// One file must not keep the service from its minutes, nor its refusals fill the system log.
constexpr Json::ArrayIndex DEFINITIONS_IN_FILE_MAX = 1000;

/// Bytes of a file: more than any definition that somebody wrote by hand.
constexpr off_t DEFINITION_FILE_SIZE_MAX = off_t{256} * 1024;

/// Whether a file of that name is read as a definition file: NAME.conf, not beginning with ".".
bool IsDefinitionFileName(const std::string& strName);

/// An account other than root and the service's own that may own definitions in one place; none in most places.
using PackageOwner = std::optional<uid_t>;

/// Root and the account that the service runs as: whatever they own needs no further proof.
bool IsTrustedOwner(uid_t uid);

/// Why an entry cannot be trusted with what the service runs: others may write it, or it belongs to somebody who has
/// no say here.
///
/// @return the reason, fit for a log line; empty when there is none.
std::string WhyUntrusted(const struct stat& stEntry, PackageOwner uidPackage);

/// The same for a definition file, which has to be a regular file with one name and of some size at most, too.
std::string WhyNoDefinitionFile(const struct stat& stFile, PackageOwner uidPackage);

/// A number that tells one state of a file or folder from the next: another entry in its place, another content, mode
/// or owner. For telling a refusal again when there is something new to tell, and for nothing else.
std::uint64_t StateOf(const struct stat& stEntry);

/// Outcome of reading a definition file: the document, or the reason why there is none.
struct DefinitionFile {
    Json::Value jsDocument;
    std::string strReason;    ///< fit for a log line; empty when the document was read
    bool bGone = false;       ///< the file was removed between the listing of its folder and now: nothing to report
    std::size_t uBytes = 0;   ///< its size
    std::uint64_t uState = 0; ///< StateOf() the file; 0 when nothing is known of it
};

/// Reads a definition file that belongs to a trusted owner or to `uidPackage`. The file that is checked is the file
/// that is read, whatever somebody does to the folder meanwhile; a link, a device or a pipe is not even opened.
///
/// @param iFolder  descriptor of the folder. Throws nothing but std::bad_alloc.
DefinitionFile ReadDefinitionFile(int iFolder, const std::string& strName, PackageOwner uidPackage);

} // namespace VUKO::VUKOCrond::Service
