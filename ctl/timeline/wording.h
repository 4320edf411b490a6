#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

#include "ctl/timeline/timeline.h"

namespace VUKO::VUKOCrond::Ctl {

/// "a, b", or "a, b and 3 more" where there are more than `uMost`.
std::string Enumerated(const std::vector<std::string>& vecNames, std::size_t uMost);

/// "1 job", "2 jobs", "0 jobs"
std::string Counted(std::size_t uCount, const std::string& strThing);

/// "Sat 2026-11-21 03:00", with "+01:00" behind it where the clock is set within the span.
std::string InstantText(std::time_t tInstant, bool bWithOffset);

/// Names of the jobs that start so often that they collide with nothing.
std::vector<std::string> FrequentJobs(const Timeline& timeline);

/// The whole in one line: time, zone, how many jobs, starts and collisions there are, and the heaviest of these.
std::string SummaryOf(const Timeline& timeline, const std::string& strZone);

/// "02:00"
std::string MinuteOfDayText(int iMinuteOfDay);

} // namespace VUKO::VUKOCrond::Ctl
