#pragma once

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "crond/cronjob.h"

namespace fuzz {

/// Ends the process with the reason, so that the fuzzer keeps the input.
void Require(bool bHolds, const char* szWhat);

/// The bytes as a JSON document; false when they are none.
bool ReadJson(const std::uint8_t* pData, std::size_t uSize, Json::Value& jsDocument);

/// What holds for one parsed field of a job, whatever its text was: every item lies in the field's domain, what is
/// generated lies in the items' ranges, and what is rendered reads back as the same values.
void RequireFieldHolds(VUKO::VUKOCrond::CronJob& job, const std::string& strType);

/// RequireFieldHolds() for a valid job's five fields, none of which is empty unless its text had no items.
void RequireJobHolds(VUKO::VUKOCrond::CronJob& job);

} // namespace fuzz
