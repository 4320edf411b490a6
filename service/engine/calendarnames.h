#pragma once

#include <array>

namespace VUKO::VUKOCrond::Service {

/// What days and months are called where a schedule is told in words.
constexpr std::array<const char*, 7> WEEKDAYS = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                 "Thursday", "Friday", "Saturday"};
constexpr std::array<const char*, 12> MONTHS = {"January", "February", "March",     "April",   "May",      "June",
                                                "July",    "August",   "September", "October", "November", "December"};

} // namespace VUKO::VUKOCrond::Service
