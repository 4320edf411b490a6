#pragma once

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "service/engine/jobid.h"

namespace VUKO::VUKOCrond::Service {

/// One definition that the library and the service accept.
struct Definition {
    JobId id;
    std::string strFile;  ///< path of its file
    std::string strWhere; ///< the file and, in a file that holds several, its number there: fit for a log line
    Json::Value jsDefinition;
    std::string strText = {}; ///< jsDefinition as compact JSON
};

/// Something in the folders that the service does not take.
struct Refusal {
    std::string strFile; ///< path of the file or folder, as it is
    std::string strText; ///< one line, fit for a log: where (the file, and the definition in it) and why
    /// Differs when the file has changed: the same line is then news again.
    std::uint64_t uState = 0;

    bool operator==(const Refusal&) const = default;
};

/// What the definition folders hold at one moment.
struct DefinitionScan {
    std::vector<Definition> vecDefinitions; ///< in the order of the folders, then of sub-folders and files by name
    std::vector<Refusal> vecRefusals;       ///< in the same order
};

/// What one package with a sub-folder of its own may have the service read. The first files by name are taken; from the
/// file on that would be too much, the rest is refused in one line.
struct PackageLimits {
    static constexpr std::size_t FOLDERS_MAX = 1000;
    static constexpr std::size_t ENTRIES_MAX = 16384; ///< of any name; a folder with more is not read at all
    static constexpr std::size_t FILES_MAX = 4096;
    static constexpr std::size_t DEFINITIONS_MAX = 4096; ///< accepted and refused ones
    static constexpr std::size_t BYTES_MAX = std::size_t{4} << 20;
};

/// Reads every file NAME.conf in the four definition folders: built-in, built-in dynamic, packages, packages that run
/// as accounts of their own (these have one sub-folder for each package). A file holds one definition or an array of
/// them. Names that begin with "." are passed over, and a folder that does not exist holds nothing. What counts is what
/// the files hold, and no time of theirs.
///
/// Logs nothing and keeps nothing.
DefinitionScan ScanDefinitions();

} // namespace VUKO::VUKOCrond::Service
