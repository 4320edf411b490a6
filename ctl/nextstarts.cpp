#include "ctl/nextstarts.h"

#include <algorithm>

#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

/// Longer than any clock change is made up for: whatever happened before that has no say in a day any more.
constexpr std::time_t SETTLED_SEC = 12 * 3600;
constexpr std::int64_t MINUTES_OF_DAY = 24 * 60;

/// Whether any minute of the local day holds the date of a schedule. A field without values never matches.
bool IsDateOf(const std::vector<std::vector<int>>& vecValues, std::int64_t iLocalDay) {
    const WallMinute wall = WallMinuteOf(iLocalDay * MINUTES_OF_DAY);
    const auto holds = [](const std::vector<int>& vecField, int iValue) {
        return std::any_of(vecField.begin(), vecField.end(), [iValue](int i) { return i == -1 || i == iValue; });
    };
    return vecValues.size() == 5 && !vecValues[0].empty() && !vecValues[1].empty() && holds(vecValues[2], wall.iDay) &&
           holds(vecValues[3], wall.iMonth) && holds(vecValues[4], wall.iWeekday);
}

/// Only its schedule counts here.
JobTable TableOf(Job job) {
    job.iAssureHours = 0;
    job.bEnabled = true;
    std::vector<Job> vecJobs;
    vecJobs.push_back(std::move(job));
    return JobTable(std::move(vecJobs));
}

} // namespace

std::vector<NextStart> FindNextStarts(const Job& job, ClockPolicy ePolicy, std::time_t tAfter, std::size_t uCount) {
    std::vector<NextStart> vecStarts;
    const std::time_t tLimit = YearsLater(tAfter, LOOK_AHEAD_YEARS);
    const std::optional<ClockReading> first = ReadingAt(tAfter);
    if (!first) {
        return vecStarts;
    }
    const std::optional<ClockReading> last = ReadingAt(tLimit);
    const std::int64_t iLastDay = (last ? last->iLocalMinute : INT64_MAX) / MINUTES_OF_DAY;
    const std::vector<std::vector<int>> vecValues = ScheduleValues(job.strSchedule);
    std::int64_t iLocalDay = first->iLocalMinute / MINUTES_OF_DAY;
    std::time_t tDone = tAfter;
    // A day at a time, and of the days only those that can have a start: of their own, or made up for the evening
    // before.
    for (int iDays = 0; vecStarts.size() < uCount && iLocalDay <= iLastDay; ++iDays, ++iLocalDay) {
        if (!IsDateOf(vecValues, iLocalDay) && !IsDateOf(vecValues, iLocalDay - 1)) {
            continue; // before the instants are asked for, which takes long where it is done for every day of years
        }
        const std::time_t tBegin = std::max(DayBegin(tAfter, iDays), tDone + 1);
        const std::time_t tEnd = std::min(DayBegin(tAfter, iDays + 1) - 1, tLimit);
        if (tBegin > tLimit) {
            break;
        }
        if (tEnd < tBegin) { // a day that the zone left out
            continue;
        }
        tDone = tEnd;
        Simulator simulator({ePolicy, 0}, TableOf(job));
        simulator.Run(tBegin - SETTLED_SEC, tEnd, {},
                      [&](const ClockReading& reading, const Decision& decision, const JobTable&) {
                          if (!decision.vecStarts.empty() && reading.tNow >= tBegin) {
                              vecStarts.push_back({reading.tNow, decision.vecStarts.front().eReason});
                          }
                          return vecStarts.size() < uCount;
                      });
    }
    return vecStarts;
}

} // namespace VUKO::VUKOCrond::Ctl
