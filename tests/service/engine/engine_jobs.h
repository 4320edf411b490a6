#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "service/engine/job.h"
#include "service/engine/jobtable.h"

namespace engine_test {

namespace Service = VUKO::VUKOCrond::Service;
using VUKO::VUKOCrond::CronJob;

/// A definition with that crontab text and everything else at its default.
Json::Value Definition(const std::string& strName, const std::string& strCrontab);

/// The library's record of a definition, with its values drawn.
///
/// @param vecPreferred  a value for the random items of each field; none where it is shorter or holds -1.
CronJob RecordOf(const Json::Value& jsDefinition, const std::vector<int>& vecPreferred = {});

/// The job that the service makes of a record, known since `iStartup`.
Service::Job JobOf(const CronJob& record, std::int64_t iStartup = 0);

/// Both in one, for jobs of which only the schedule counts.
Service::Job JobOf(const std::string& strName, const std::string& strCrontab);

Service::JobTable TableOf(std::vector<Service::Job> vecJobs);

/// Minutes on the local wall clock since it showed 1970-01-01 00:00.
std::int64_t LocalMinute(int iYear, int iMonth, int iDay, int iHour, int iMinute);

} // namespace engine_test
