#include "ctl/faults.h"

#include <map>
#include <utility>

#include "service/definitions/definitionreason.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::DefinitionFault;
using Service::DefinitionOrigin;
using Service::DefinitionPlace;

/// More than anybody reads.
constexpr std::size_t FAULTS_MAX = 100;

/// Values that nobody has anything against, wherever the definition lies.
const std::map<std::string, Json::Value>& GoodValues() {
    static const std::map<std::string, Json::Value> mapValues = {
        {"name", "name"},         {"user", "root"},          {"package_username", "package"},
        {"crontab", "* * * * *"}, {"cmd", "/bin/true"},      {"overlap", "skip"},
        {"assure_execute", 0},    {"run_on_passive", false}, {"enabled", true},
        {"timeout", 0},           {"description", ""}};
    return mapValues;
}

Json::Value GoodValueOf(const std::string& strField, const Json::Value& jsDefinition) {
    if (strField == "period") {
        return jsDefinition.isMember("crontab") ? "crontab" : "daily"; // what the fields say is still looked at
    }
    if (strField == "cmd_list") {
        Json::Value jsList(Json::arrayValue);
        jsList.append("/bin/true");
        return jsList;
    }
    const auto itValue = GoodValues().find(strField);
    return itValue != GoodValues().end() ? itValue->second : Json::Value();
}

/// Puts something good in the place of what is bad, so that the rules go on to what they have against the rest. An item
/// becomes "*" with a tail, which is dropped: so the places of the other items stay what they are.
void Mend(Json::Value& jsDefinition, const DefinitionPlace& place) {
    Json::Value& jsMember = jsDefinition[place.strField];
    if (place.element && jsMember.isArray()) { // the library counts the members of an object as well
        jsMember[*place.element] = "/bin/true";
    } else if (place.uCount != 0) {
        std::string strText = jsMember.asString();
        strText.replace(place.uFrom, place.uCount, place.uCount, '*');
        jsMember = strText;
    } else {
        jsMember = GoodValueOf(place.strField, jsDefinition);
    }
}

DefinitionFault FirstFault(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    DefinitionFault fault = Service::FindInvalid(jsDefinition);
    return fault ? fault : Service::FindRefused(jsDefinition, origin);
}

} // namespace

std::vector<DefinitionFault> FindFaults(const Json::Value& jsDefinition, const DefinitionOrigin& origin) {
    std::vector<DefinitionFault> vecFaults;
    Json::Value jsMended = jsDefinition;
    DefinitionOrigin originOfRest = origin;
    while (vecFaults.size() < FAULTS_MAX) {
        DefinitionFault fault = FirstFault(jsMended, originOfRest);
        if (!fault || (!vecFaults.empty() && vecFaults.back().strReason == fault.strReason)) {
            break;
        }
        vecFaults.push_back(fault);
        if (fault.place.strField.empty()) {
            break; // it is no definition at all
        }
        if (fault.place.strField == "user" || fault.place.strField == "package_username") {
            originOfRest = DefinitionOrigin(); // no account that is put there would be the right one
        }
        Mend(jsMended, fault.place);
    }
    return vecFaults;
}

} // namespace VUKO::VUKOCrond::Ctl
