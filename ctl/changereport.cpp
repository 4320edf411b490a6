#include "ctl/changereport.h"

#include <cctype>
#include <ctime>
#include <iostream>
#include <set>

#include "ctl/nextstarttext.h"
#include "ctl/text.h"
#include "platform/vukojson.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string ValueText(const Json::Value& jsDefinition, const std::string& strMember) {
    if (!jsDefinition.isMember(strMember)) {
        return "(none)";
    }
    return Readable(JSON::toString(jsDefinition[strMember]));
}

void PrintDifferences(const Json::Value& jsBefore, const Json::Value& jsAfter) {
    std::set<std::string> setMembers;
    for (const Json::Value& jsDefinition : {jsBefore, jsAfter}) {
        for (const std::string& strMember :
             jsDefinition.isObject() ? jsDefinition.getMemberNames() : Json::Value::Members()) {
            setMembers.insert(strMember);
        }
    }
    for (const std::string& strMember : setMembers) {
        const std::string strBefore = ValueText(jsBefore, strMember);
        const std::string strAfter = ValueText(jsAfter, strMember);
        if (strBefore != strAfter) {
            std::cout << "  " << strMember << ": " << strBefore << " -> " << strAfter << "\n";
        }
    }
}

/// What follows the job's name in the line that tells of it.
std::string EffectText(const ChangedJob& job, const Uptake& uptake, const Json::Value& jsStatus) {
    if (uptake.eKind == Uptake::Kind::NotTaken) {
        return (job.after ? "the service does not take it: " : "the service still has it: ") + uptake.strReason;
    }
    if (uptake.eKind == Uptake::Kind::NotAsked) {
        return uptake.strReason;
    }
    return job.after ? NextStartText(uptake.jsJob, jsStatus, time(nullptr)) : job.strNote;
}

Json::Value ToJson(const ChangedJob& job, const Uptake& uptake, const Json::Value& jsStatus) {
    Json::Value jsJob(Json::objectValue);
    jsJob["id"] = ToText(job.id);
    jsJob["file"] = job.file.Path();
    jsJob["change"] = job.szChange;
    jsJob["before"] = job.before.value_or(Json::Value());
    jsJob["definition"] = job.after.value_or(Json::Value());
    jsJob["taken"] =
        uptake.eKind == Uptake::Kind::NotAsked ? Json::Value() : Json::Value(uptake.eKind == Uptake::Kind::Taken);
    jsJob["reason"] = uptake.strReason.empty() ? Json::Value() : Json::Value(uptake.strReason);
    jsJob["next"] =
        uptake.jsJob.isNull() || !job.after ? Json::Value() : NextStartJson(uptake.jsJob, jsStatus, time(nullptr));
    return jsJob;
}

std::string ChangeText(const ChangedJob& job) {
    if (job.szChange == std::string("unchanged")) {
        const bool bEnabled = job.after && job.after->get("enabled", true).asBool();
        return Spelled(ToText(job.id)) + " is " + (bEnabled ? "enabled" : "disabled") + " already";
    }
    std::string strText = std::string(job.szChange) + " " + Spelled(ToText(job.id));
    strText.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(strText.front())));
    return strText;
}

void Print(const ChangedJob& job, const Uptake& uptake, const Json::Value& jsStatus) {
    const std::string strEffect = EffectText(job, uptake, jsStatus);
    std::cout << ChangeText(job) << (strEffect.empty() ? "" : "; ") << strEffect << ".\n";
    if (job.before && job.after) {
        PrintDifferences(*job.before, *job.after);
    }
}

} // namespace

ExitStatus TellChanges(ServiceView& service, const std::vector<ChangedJob>& vecJobs, const Common& common) {
    service.Refresh();
    const Json::Value jsStatus = service.Status();
    Json::Value jsResult(Json::objectValue);
    jsResult["jobs"] = Json::Value(Json::arrayValue);
    bool bAllTaken = true;
    for (const ChangedJob& job : vecJobs) {
        const Uptake uptake = service.WaitFor(job.id, job.file.Path(), job.after);
        bAllTaken = bAllTaken && uptake.eKind != Uptake::Kind::NotTaken;
        jsResult["jobs"].append(ToJson(job, uptake, jsStatus));
        if (!common.bJson) {
            Print(job, uptake, jsStatus);
        }
    }
    if (common.bJson) {
        PrintJson(jsResult);
    }
    return bAllTaken ? EXIT_DONE : EXIT_WRONG;
}

} // namespace VUKO::VUKOCrond::Ctl
