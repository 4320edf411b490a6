#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "service/job.h"

namespace VUKO::VUKOCrond::Service {

/// One definition that the library and the service accept.
struct Definition {
    JobId id;
    std::string strFile;  ///< path of its file
    std::string strWhere; ///< the file and, in a file that holds several, its number there: fit for a log line
    Json::Value jsDefinition;
};

/// What the definition folders hold at one moment.
struct DefinitionScan {
    std::vector<Definition> vecDefinitions; ///< in the order of the folders, then of sub-folders and files by name
    std::vector<std::string> vecRefusals;   ///< one line each: what was refused, where, and why
};

/// Reads every file NAME.conf in the four definition folders: built-in, built-in dynamic, packages, packages that run
/// as accounts of their own (these have one sub-folder for each package). A file holds one definition or an array of
/// them. Names that begin with "." are passed over, and a folder that does not exist holds nothing.
///
/// Logs nothing and keeps nothing.
DefinitionScan ScanDefinitions();

} // namespace VUKO::VUKOCrond::Service
