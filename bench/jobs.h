#pragma once

#include <json/json.h>

#include <cstddef>
#include <string>
#include <vector>

#include "crond/cronjob.h"

namespace bench {

/// A definition as a real one: every optional member written out, the command as a list.
Json::Value Document(const std::string& strName, const std::string& strCrontab);

/// A valid job with generated values for its five fields.
VUKO::VUKOCrond::CronJob Job(const std::string& strCrontab);

/// So many jobs of mixed kinds, with generated values.
std::vector<VUKO::VUKOCrond::CronJob> Fleet(std::size_t uCount);

/// The documents that a fleet is built from, over and over.
const std::vector<Json::Value>& FleetDocuments();

void GenerateAllFields(VUKO::VUKOCrond::CronJob& job);

/// Bytes that the process has allocated and not freed.
std::size_t AllocatedBytes();

} // namespace bench
