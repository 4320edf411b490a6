#include "ctl/nextstarttext.h"

#include <optional>

#include "ctl/jobview.h"
#include "ctl/words.h"
#include "ctl/zone.h"
#include "service/definitions/definitionpolicy.h"

namespace VUKO::VUKOCrond::Ctl {

Json::Value AskStatus(Client& client) {
    Json::Value jsStatus = StatusInItsZone(client);
    jsStatus["role"] = client.Ask("role")["role"]; // that of the next moment, not of the last
    return jsStatus;
}

std::string ObstacleText(const Json::Value& jsJob, const Json::Value& jsStatus) {
    if (const std::string strAccount = jsJob["account"].asString(); !Service::LookUpAccount(strAccount)) {
        return ", but not before there is an account " + strAccount;
    }
    if (jsStatus["draining"].asBool()) {
        return ", but not while the service is drained";
    }
    const bool bPassive = jsStatus["role"] == "passive" && !jsJob["runOnPassive"].asBool();
    return bPassive ? ", but not while this machine is passive" : "";
}

std::string NextStartText(const Json::Value& jsJob, const Json::Value& jsStatus, std::time_t tNow) {
    if (!jsJob["enabled"].asBool()) {
        return "its schedule starts nothing while it is disabled";
    }
    const std::optional<std::time_t> next = NextStartOf(jsJob, PolicyOf(jsStatus), tNow);
    if (!next) {
        return "next start: never";
    }
    return "next start: " + LocalText(*next) + " (in " + DurationText(*next - tNow) + ")" +
           ObstacleText(jsJob, jsStatus);
}

Json::Value NextStartJson(const Json::Value& jsJob, const Json::Value& jsStatus, std::time_t tNow) {
    const std::optional<std::time_t> next = NextStartOf(jsJob, PolicyOf(jsStatus), tNow);
    return next ? Json::Value(static_cast<Json::Int64>(*next)) : Json::Value();
}

} // namespace VUKO::VUKOCrond::Ctl
