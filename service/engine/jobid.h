#pragma once

#include <compare>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// What makes a job the same job after a reload. The same name may be used in another folder or by another package.
struct JobId {
    std::string strFolder;  ///< key of the definition folder, as in SZK_CRON_FOLDER_PKG
    std::string strPackage; ///< name of the package's sub-folder; empty in folders without
    std::string strName;    ///< the definition's own "name"

    auto operator<=>(const JobId&) const = default;
};

/// The identity in one text, fit for a log line: FOLDER/NAME or FOLDER/PACKAGE/NAME.
std::string ToText(const JobId& id);

/// Reads FOLDER/NAME or FOLDER/PACKAGE/NAME. Names hold no "/", so any other text names no job.
JobId IdFromText(const std::string& strText);

} // namespace VUKO::VUKOCrond::Service
