#include "ctl/timeline/wording.h"

#include <cstdio>

#include "ctl/timeline/collisions.h"
#include "ctl/timeline/scale.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

bool IsClockChanged(const TimelineSpan& span) {
    return !MakeScale(span.tFrom, span.tTo, 60).vecChanges.empty();
}

} // namespace

std::string Enumerated(const std::vector<std::string>& vecNames, std::size_t uMost) {
    std::string strText;
    for (std::size_t u = 0; u < vecNames.size() && u < uMost; ++u) {
        strText += (u == 0 ? "" : ", ") + vecNames[u];
    }
    return vecNames.size() > uMost ? strText + " and " + std::to_string(vecNames.size() - uMost) + " more" : strText;
}

std::string Counted(std::size_t uCount, const std::string& strThing) {
    return std::to_string(uCount) + " " + strThing + (uCount == 1 ? "" : "s");
}

std::string InstantText(std::time_t tInstant, bool bWithOffset) {
    const std::string strWhole = LocalText(tInstant);
    return LocalFormat(tInstant, "%a %Y-%m-%d %H:%M") + (bWithOffset ? strWhole.substr(strWhole.size() - 6) : "");
}

std::vector<std::string> FrequentJobs(const Timeline& timeline) {
    std::vector<std::string> vecNames;
    for (const TimelineJob& job : timeline.vecJobs) {
        if (job.bFrequent) {
            vecNames.push_back(job.strName);
        }
    }
    return vecNames;
}

std::string SummaryOf(const Timeline& timeline, const std::string& strZone) {
    const TimelineSpan& span = timeline.span;
    const bool bWithOffset = IsClockChanged(span);
    std::size_t uStarts = 0;
    for (const TimelineJob& job : timeline.vecJobs) {
        uStarts += job.vecRuns.size();
    }
    std::string strText = InstantText(span.tFrom, bWithOffset) + " to " + InstantText(span.tTo, bWithOffset) + ", " +
                          strZone + ": " + Counted(timeline.vecJobs.size(), "job") + " with " +
                          Counted(uStarts, "start") + ", " + Counted(timeline.vecCollisions.size(), "collision");
    if (!timeline.vecCollisions.empty()) {
        const CollisionGroup group = GroupCollisions(timeline.vecCollisions).front();
        strText += "; most jobs at once: " + std::to_string(group.vecJobs.size()) + ", " +
                   InstantText(group.tFirst, bWithOffset);
    }
    const std::string strNote = StandstillText(span.bPassive, span.bDraining);
    return strText + "." + (strNote.empty() ? "" : " " + strNote);
}

std::string MinuteOfDayText(int iMinuteOfDay) {
    char szText[16];
    std::snprintf(szText, sizeof(szText), "%02d:%02d", iMinuteOfDay / 60, iMinuteOfDay % 60);
    return szText;
}

} // namespace VUKO::VUKOCrond::Ctl
