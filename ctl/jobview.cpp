#include "ctl/jobview.h"

#include "ctl/nextstarts.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

Json::Value StatusInItsZone(Client& client) {
    Json::Value jsStatus = client.Ask("status");
    UseServiceZone(jsStatus);
    return jsStatus;
}

std::time_t NowOf(const Json::Value& jsStatus) {
    return static_cast<std::time_t>(jsStatus["now"].asInt64());
}

Service::ClockPolicy PolicyOf(const Json::Value& jsStatus) {
    return Service::ClockPolicyOf(jsStatus["policy"].asString()).value_or(Service::ClockPolicy::CatchUp);
}

Json::Value Naming(const std::string& strJob) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    return jsMembers;
}

std::optional<std::time_t> NextStartOf(const Json::Value& jsJob, Service::ClockPolicy ePolicy, std::time_t tNow) {
    if (!jsJob["enabled"].asBool() || jsJob["state"] == "invalid") {
        return std::nullopt;
    }
    Service::Job job; // as much of it as its schedule needs
    job.strSchedule = jsJob["schedule"].asString();
    job.schedule = Service::Schedule(job.strSchedule);
    const std::vector<NextStart> vecNext = FindNextStarts(job, ePolicy, tNow, 1);
    return vecNext.empty() ? std::nullopt : std::optional(vecNext.front().tInstant);
}

Cell StateCell(const Json::Value& jsJob) {
    const std::string strState = jsJob["state"].asString();
    const Style eStyle = strState == "running"    ? Style::Good
                         : strState == "pending"  ? Style::Warn
                         : strState == "disabled" ? Style::Faint
                         : strState == "invalid"  ? Style::Bad
                                                  : Style::Plain;
    return {eStyle, strState};
}

bool HasFailed(const Json::Value& jsEnd, const char* szKindMember) {
    if (!jsEnd.isObject() || jsEnd[szKindMember] == "running") {
        return false;
    }
    return jsEnd[szKindMember] != "exited" || jsEnd["code"].asInt() != 0;
}

Cell EndCell(const Json::Value& jsEnd, const char* szKindMember) {
    if (!jsEnd.isObject()) {
        return "-";
    }
    const bool bRunning = jsEnd[szKindMember] == "running";
    return {HasFailed(jsEnd, szKindMember) ? Style::Bad
            : bRunning                     ? Style::Good
                                           : Style::Plain,
            EndText(jsEnd, szKindMember)};
}

} // namespace VUKO::VUKOCrond::Ctl
