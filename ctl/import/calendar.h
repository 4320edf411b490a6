#pragma once

#include <string>
#include <vector>

#include "ctl/import/item.h"
#include "ctl/import/times.h"

namespace VUKO::VUKOCrond::Ctl {

/// What a calendar expression of systemd (OnCalendar=) comes to here.
struct CalendarTimes {
    std::vector<Times> vecTimes; ///< several where no five fields alone can say it
    std::vector<Note> vecNotes;
    std::string strReason; ///< why it cannot be said here; empty where it can
};

/// @param strZone  the zone that schedules are in here.
CalendarTimes ReadCalendar(const std::string& strExpression, const std::string& strZone);

} // namespace VUKO::VUKOCrond::Ctl
