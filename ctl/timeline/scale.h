#pragma once

#include <cstdint>
#include <ctime>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// The wall clock is set, as for daylight saving time: it shows `iAfter` at an instant at which it would have shown
/// `iBefore`, both in minutes of the day.
struct ClockChange {
    std::time_t tInstant = 0;
    int iBefore = 0;
    int iAfter = 0;
};

/// What the wall clock shows in a span of time. The span itself runs evenly: an hour that the clock leaves out has no
/// room in it, and one that comes twice has it twice.
struct Scale {
    std::vector<std::time_t> vecMarks; ///< instants at which it shows a multiple of the step
    std::vector<std::time_t> vecDays;  ///< the first instant, and each at which a day begins
    std::vector<ClockChange> vecChanges;
};

/// The shortest distance of marks that is good to read and leaves them so many minutes of room.
int ScaleStep(double dMinutes);

/// @param iStepMin  between two marks; a divisor of a day's 1440 minutes.
Scale MakeScale(std::time_t tFrom, std::time_t tTo, int iStepMin);

/// The last instant up to this one at which the wall clock showed a multiple of so many minutes of the day; where it
/// was set since, a minute that is as far before.
std::time_t WallFloor(std::time_t tInstant, int iStepMin);

} // namespace VUKO::VUKOCrond::Ctl
