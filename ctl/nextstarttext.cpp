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

std::string NextStartText(const Json::Value& jsJob, const Json::Value& jsStatus, std::time_t tNow) {
    if (!jsJob["enabled"].asBool()) {
        return "its schedule starts nothing while it is disabled";
    }
    const std::optional<std::time_t> next = NextStartOf(jsJob, PolicyOf(jsStatus), tNow);
    if (!next) {
        return "next start: never";
    }
    std::string strText = "next start: " + LocalText(*next) + " (in " + DurationText(*next - tNow) + ")";
    if (const std::string strAccount = jsJob["account"].asString(); !Service::LookUpAccount(strAccount)) {
        strText += ", but not before there is an account " + strAccount;
    } else if (jsStatus["draining"].asBool()) {
        strText += ", but not while the service is drained";
    } else if (jsStatus["role"] == "passive" && !jsJob["runOnPassive"].asBool()) {
        strText += ", but not while this machine is passive";
    }
    return strText;
}

Json::Value NextStartJson(const Json::Value& jsJob, const Json::Value& jsStatus, std::time_t tNow) {
    const std::optional<std::time_t> next = NextStartOf(jsJob, PolicyOf(jsStatus), tNow);
    return next ? Json::Value(static_cast<Json::Int64>(*next)) : Json::Value();
}

} // namespace VUKO::VUKOCrond::Ctl
