#pragma once

#include <json/json.h>

#include "base/export.h"

namespace VUKO {
namespace VUKOCrond {

/// Tells whether one definition, or every definition of an array, would make a valid job.
///
/// @param jsJobs  a definition (what stands in a job document's "config") or an array of them; never changed.
/// @return true also for an empty array; false at the first definition that is no good, whose messages are those of
///         CronJob's constructor, and false, silently, for a value that is neither object nor array. The definitions
///         after the first bad one are not looked at. Throws nothing.
VUKO_API bool checkJobFormat(const Json::Value& jsJobs);

/// Tells whether the right value holds everything that the left one holds.
///
/// One-sided for objects: members that only the right has are not looked at, and a left member whose value is null
/// matches a missing right one. Arrays must have the same size. To ignore what was filled in by default, pass the
/// definition as written on the left. Logs nothing, changes nothing, throws nothing.
VUKO_API bool isIdenticalJSON(const Json::Value& jsLeft, const Json::Value& jsRight);

/// @return true while the system hibernates; false also when that could not be asked: "Fail to VUKOEvmgrStatusGet()"
///         is then logged at LOG_ERR (source "utils").
VUKO_API bool isHibernating();

} // namespace VUKOCrond
} // namespace VUKO
