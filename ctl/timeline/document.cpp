#include "ctl/timeline/document.h"

#include <json/json.h>

#include <ostream>

#include "ctl/jsonstream.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

Json::Value InstantJson(std::time_t tInstant) {
    Json::Value jsInstant(Json::objectValue);
    jsInstant["epoch"] = static_cast<Json::Int64>(tInstant);
    jsInstant["local"] = LocalText(tInstant);
    return jsInstant;
}

Json::Value JobJson(const TimelineJob& job) {
    Json::Value jsJob(Json::objectValue);
    jsJob["name"] = job.id.strName;
    jsJob["id"] = job.id.strFolder.empty() ? Json::Value() : Json::Value(ToText(job.id));
    jsJob["frequent"] = job.bFrequent;
    jsJob["durationUsec"] =
        job.iLastDurationUsec ? Json::Value(static_cast<Json::Int64>(*job.iLastDurationUsec)) : Json::Value();
    jsJob["starts"] = Json::Value(Json::arrayValue);
    for (const TimelineRun& run : job.vecRuns) {
        Json::Value jsStart = InstantJson(run.tBegin);
        jsStart["reason"] = ToText(run.eReason);
        jsStart["delay"] = run.iDelaySec;
        jsStart["end"] = job.iLastDurationUsec ? Json::Value(static_cast<Json::Int64>(job.EndOf(run))) : Json::Value();
        jsJob["starts"].append(std::move(jsStart));
    }
    return jsJob;
}

Json::Value CollisionJson(const Timeline& timeline, const Collision& collision) {
    Json::Value jsCollision = InstantJson(collision.tMinute);
    jsCollision["jobs"] = Json::Value(Json::arrayValue);
    for (const std::size_t uJob : collision.vecJobs) {
        jsCollision["jobs"].append(timeline.vecJobs[uJob].strName);
    }
    return jsCollision;
}

} // namespace

void PrintTimelineJson(std::ostream& out, const Timeline& timeline, const std::string& strZone) {
    out << "{\n";
    PrintJsonMember(out, "zone", strZone);
    PrintJsonMember(out, "policy", ToText(timeline.span.ePolicy));
    PrintJsonMember(out, "passive", timeline.span.bPassive);
    PrintJsonMember(out, "draining", timeline.span.bDraining);
    PrintJsonMember(out, "from", InstantJson(timeline.span.tFrom));
    PrintJsonMember(out, "to", InstantJson(timeline.span.tTo));
    PrintJsonArray(out, "jobs", timeline.vecJobs, JobJson);
    out << ",\n";
    PrintJsonArray(out, "idle", timeline.vecIdle, [](const std::string& strName) { return Json::Value(strName); });
    out << ",\n";
    PrintJsonArray(out, "collisions", timeline.vecCollisions,
                   [&timeline](const Collision& collision) { return CollisionJson(timeline, collision); });
    out << "\n}\n";
}

} // namespace VUKO::VUKOCrond::Ctl
