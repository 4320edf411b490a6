#include "ctl/timeline/document.h"

#include <json/json.h>

#include <ostream>

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

/// An array whose items are made one by one.
template <typename Items, typename Make>
void PrintArray(std::ostream& out, const char* szName, const Items& items, const Make& make) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    out << "  \"" << szName << "\": [";
    bool bFirst = true;
    for (const auto& item : items) {
        out << (bFirst ? "\n    " : ",\n    ") << Json::writeString(builder, make(item));
        bFirst = false;
    }
    out << (bFirst ? "]" : "\n  ]");
}

void PrintMember(std::ostream& out, const char* szName, const Json::Value& jsValue) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    out << "  \"" << szName << "\": " << Json::writeString(builder, jsValue) << ",\n";
}

} // namespace

void PrintTimelineJson(std::ostream& out, const Timeline& timeline, const std::string& strZone) {
    out << "{\n";
    PrintMember(out, "zone", strZone);
    PrintMember(out, "policy", ToText(timeline.span.ePolicy));
    PrintMember(out, "passive", timeline.span.bPassive);
    PrintMember(out, "draining", timeline.span.bDraining);
    PrintMember(out, "from", InstantJson(timeline.span.tFrom));
    PrintMember(out, "to", InstantJson(timeline.span.tTo));
    PrintArray(out, "jobs", timeline.vecJobs, JobJson);
    out << ",\n";
    PrintArray(out, "idle", timeline.vecIdle, [](const std::string& strName) { return Json::Value(strName); });
    out << ",\n";
    PrintArray(out, "collisions", timeline.vecCollisions,
               [&timeline](const Collision& collision) { return CollisionJson(timeline, collision); });
    out << "\n}\n";
}

} // namespace VUKO::VUKOCrond::Ctl
