#include "ctl/timeline/scale.h"

#include <algorithm>
#include <array>

#include "service/engine/simulator.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::ClockReading;
using Service::ReadingAt;

constexpr std::int64_t MINUTES_OF_DAY = 24 * 60;

} // namespace

int ScaleStep(double dMinutes) {
    constexpr std::array<int, 12> STEPS = {1, 5, 10, 15, 30, 60, 120, 180, 240, 360, 720, 1440};
    const auto it = std::find_if(STEPS.begin(), STEPS.end(), [dMinutes](int iStep) { return iStep >= dMinutes; });
    return it != STEPS.end() ? *it : STEPS.back();
}

Scale MakeScale(std::time_t tFrom, std::time_t tTo, int iStepMin) {
    Scale scale;
    scale.vecDays.push_back(tFrom);
    std::optional<ClockReading> before;
    // Minute by minute, as zones change their clocks at any of them.
    for (std::time_t tNow = WallFloor(tFrom, 1); tNow < tTo; tNow += 60) {
        const std::optional<ClockReading> now = ReadingAt(tNow);
        if (!now) {
            break;
        }
        const std::int64_t iMinute = now->iLocalMinute % MINUTES_OF_DAY;
        if (before && now->iLocalMinute / MINUTES_OF_DAY != before->iLocalMinute / MINUTES_OF_DAY) {
            scale.vecDays.push_back(tNow);
        }
        if (before && now->iLocalMinute != before->iLocalMinute + 1) {
            scale.vecChanges.push_back(
                {tNow, static_cast<int>((before->iLocalMinute + 1) % MINUTES_OF_DAY), static_cast<int>(iMinute)});
        }
        if (iMinute % iStepMin == 0 && tNow >= tFrom) {
            scale.vecMarks.push_back(tNow);
        }
        before = now;
    }
    return scale;
}

std::time_t WallFloor(std::time_t tInstant, int iStepMin) {
    const std::optional<ClockReading> reading = ReadingAt(tInstant);
    return reading ? tInstant - reading->iSecond - reading->iLocalMinute % iStepMin * 60 : tInstant;
}

} // namespace VUKO::VUKOCrond::Ctl
