#pragma once

#include <string>
#include <vector>

#include "ctl/import/item.h"

namespace VUKO::VUKOCrond::Ctl {

/// What the time of a crontab's line comes to here.
struct CronSchedule {
    std::vector<std::string> vecTexts; ///< five fields each; together the minutes of the line, none of them twice
    std::vector<Note> vecNotes;
    std::string strReason; ///< why it cannot be said here; empty where it can
};

/// Converts five fields: numbers, names, ranges, steps, lists, 7 for Sunday, random values, and the two day fields that
/// a classic crontab joins by OR.
CronSchedule ConvertFields(const std::vector<std::string>& vecFields);

/// Converts "@daily" and its like.
CronSchedule ConvertMacro(const std::string& strMacro);

} // namespace VUKO::VUKOCrond::Ctl
