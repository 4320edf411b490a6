#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "service/engine/engine.h"

namespace engine_test {

using Texts = std::vector<std::string>;

/// A tick at the beginning of a minute, in a zone without an offset.
inline VUKO::VUKOCrond::Service::TickInput InputAt(std::int64_t iWorkedUpTo, std::int64_t iNow) {
    VUKO::VUKOCrond::Service::TickInput input;
    input.reading = {iNow * 60, iNow, 0};
    input.iWorkedUpTo = iWorkedUpTo;
    return input;
}

inline std::string TimeOfDay(std::int64_t iMinute) {
    char szText[16];
    std::snprintf(szText, sizeof(szText), "%02d:%02d", static_cast<int>(iMinute / 60 % 24),
                  static_cast<int>(iMinute % 60));
    return szText;
}

/// A decision's starts as "JOB REASON HH:MM", in their order.
inline Texts Starts(const VUKO::VUKOCrond::Service::Decision& decision) {
    Texts vecTexts;
    for (const auto& start : decision.vecStarts) {
        vecTexts.push_back(std::to_string(start.uJob) + " " + ToText(start.eReason) + " " + TimeOfDay(start.iMinute));
    }
    return vecTexts;
}

/// A decision's skips as "JOB REASON HH:MM", with "pending" after those that end an earlier start.
inline Texts Skips(const VUKO::VUKOCrond::Service::Decision& decision) {
    Texts vecTexts;
    for (const auto& skip : decision.vecSkips) {
        vecTexts.push_back(std::to_string(skip.uJob) + " " + ToText(skip.eReason) + " " + TimeOfDay(skip.iMinute) +
                           (skip.bOfPending ? " pending" : ""));
    }
    return vecTexts;
}

} // namespace engine_test
