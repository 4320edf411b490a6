#pragma once

#include <json/json.h>

#include <compare>
#include <map>
#include <string>

#include "crond/cronjob.h"

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

/// One job as the service holds it.
struct ScheduledJob {
    std::string strFile;       ///< where its definition was read
    Json::Value jsDefinition;  ///< as it was read, before the library's defaults: a reload compares with it
    CronJob job;               ///< always a valid record with a generated schedule
    std::string strReadyLabel; ///< while the job is ready: the label that its pending start goes by

    /// Due, and not started yet.
    bool IsReady() const { return !job._strReadyCrontab.empty(); }
};

using JobMap = std::map<JobId, ScheduledJob>;

} // namespace VUKO::VUKOCrond::Service
