#include "ctl/import/effect.h"

#include <ctime>
#include <map>
#include <string>

#include "ctl/nextstarttext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using State = PlannedJob::State;

std::vector<PlannedJob> StoredOf(const std::vector<PlannedItem>& vecItems) {
    std::vector<PlannedJob> vecStored;
    for (const PlannedItem& planned : vecItems) {
        for (const PlannedJob& job : planned.vecJobs) {
            if (job.eState == State::New || job.eState == State::Replacing) {
                vecStored.push_back(job);
            }
        }
    }
    return vecStored;
}

/// Of jobs that the service knows.
Note FirstStart(const std::vector<Json::Value>& vecJobs, const Json::Value& jsStatus) {
    const std::time_t tNow = time(nullptr);
    Json::Value jsFirst;
    Json::Value jsFirstStart;
    for (const Json::Value& jsJob : vecJobs) {
        const Json::Value jsStart = NextStartJson(jsJob, jsStatus, tNow);
        if (!jsStart.isNull() && (jsFirst.isNull() || jsStart < jsFirstStart)) {
            jsFirst = jsJob;
            jsFirstStart = jsStart;
        }
    }
    if (jsFirst.isNull()) {
        return {"next-start", "none of them is started by its schedule: it is disabled, or never due"};
    }
    return {"next-start", jsFirst["id"].asString() + (vecJobs.size() > 1 ? " comes first; " : "; ") +
                              NextStartText(jsFirst, jsStatus, tNow)};
}

} // namespace

Note EffectOf(const std::vector<PlannedItem>& vecItems, const Place& place, ServiceView& service) {
    const std::vector<PlannedJob> vecStored = StoredOf(vecItems);
    service.Refresh();
    const Json::Value jsStatus = service.Status();
    // It looks at all of them at once, and what was written last it sees last.
    const PlannedJob& last = vecStored.back();
    (void)service.WaitFor(place.IdOf(last.Name()), last.Path(place), last.jsDefinition);
    std::map<std::string, Json::Value> mapKnown;
    for (const Json::Value& jsJob : service.List()) {
        mapKnown[jsJob["id"].asString()] = jsJob;
    }
    if (!service.WhyLost().empty()) {
        return {"no-service", service.WhyLost() + "; the jobs will be known when the service starts"};
    }
    std::vector<Json::Value> vecJobs;
    for (const PlannedJob& job : vecStored) {
        const std::string strId = ToText(place.IdOf(job.Name()));
        if (mapKnown[strId].isNull() || mapKnown[strId]["state"] == "invalid") {
            return {NOT_TAKEN, "the service does not take " + strId + ": " + service.WhyRefused(job.Path(place))};
        }
        vecJobs.push_back(mapKnown[strId]);
    }
    return FirstStart(vecJobs, jsStatus);
}

} // namespace VUKO::VUKOCrond::Ctl
