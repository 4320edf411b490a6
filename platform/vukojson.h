#pragma once

/// JSON documents in files and texts. A success leaves errno as it was before the call.

#include <json/json.h>

#include <string>

#include "base/export.h"

namespace VUKO {
namespace JSON {

/// Reads a file that holds one JSON document in UTF-8, without comments, trailing commas or repeated member names, and
/// with no number beyond what a double holds. The file must be a regular file of at most 4 MiB, nested at most 128
/// deep; opening it never blocks.
///
/// @param value  receives the document; untouched unless the result is true.
/// @return false when the file cannot be read or is not JSON; errno says why and is the last platform error: EBADMSG
///         for what is not JSON, EFBIG for what is too large, EISDIR or EINVAL for what is no regular file, EINVAL for
///         a path with a NUL in it. Throws nothing.
VUKO_API bool fromFile(Json::Value& value, const std::string& path);

/// Writes a document to a file, indented and closed by a newline, so that a reader, a crash or a loss of power at any
/// instant sees the old file or the new one, whole: it is written to a temporary file in the same folder, synced, and
/// renamed over the old one. A new file gets mode 0600 and the caller's ids; a regular file that is replaced hands
/// its owner, group and mode on. A symbolic link at `path` is replaced, never followed; a folder, pipe, socket or
/// device is refused (EISDIR, EINVAL), and so is a document that fromFile() would not read back (EBADMSG, EFBIG): texts
/// that are no UTF-8, infinite numbers, too deep, too large. Comments that the value carries are left out.
///
/// @param durable  also sync the folder, so that the new file is there after a loss of power once this returns.
/// @return false when that failed: errno says why and is the last platform error; the old file is as it was and no
///         temporary file is left. (With `durable`, a folder that cannot be synced gives false although the new file
///         stands.) Throws nothing.
VUKO_API bool toFile(const Json::Value& value, const std::string& path, bool durable = false);

/// @return the document's JSON text on one line, without a newline at its end; "null" for a null value. Characters
///         stand for themselves, in UTF-8; where some text is no UTF-8, what is none reads as U+FFFD and all beyond
///         ASCII is escaped.
VUKO_API std::string toString(const Json::Value& value);

} // namespace JSON
} // namespace VUKO
