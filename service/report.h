#pragma once

#include <iosfwd>

#include "service/engine/jobtable.h"
#include "service/jobloader.h"

namespace VUKO::VUKOCrond::Service {

/// Prints one line for each job: its identity, its account, its schedule in the library's five fields, and the same in
/// words.
void PrintSchedule(std::ostream& out, const JobTable& table);

/// A generated schedule in words: "at 03:07, on day 12", "every minute".
std::string ScheduleInWords(const Job& job);

/// What loading came to, in one text: "5 jobs (1 new, 4 as before), 1 refusal".
std::string Summary(const LoadReport& report);

} // namespace VUKO::VUKOCrond::Service
