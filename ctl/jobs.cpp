#include "ctl/jobs.h"

#include <ctime>
#include <map>
#include <utility>

#include "ctl/client.h"
#include "ctl/document.h"
#include "ctl/fields.h"
#include "ctl/toolerror.h"
#include "service/definitions/definitionpolicy.h"
#include "service/definitions/definitionreason.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::Job;

Job Built(const Json::Value& jsDefinition, const std::string& strSchedule) {
    Json::Value jsDocument(Json::objectValue);
    jsDocument["config"] = jsDefinition;
    CronJob record(jsDocument);
    if (!record._bValid) {
        throw ToolError(EXIT_WRONG, "the library refuses the definition");
    }
    if (strSchedule.empty()) {
        for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
            record.GenerateSchedule(strType, -1);
        }
    }
    Job job;
    job.id.strName = jsDefinition["name"].asString();
    job.iStartup = time(nullptr);
    Service::TakeDefinition(job, jsDefinition, record);
    job.strSchedule = strSchedule.empty() ? Service::ScheduleToText(record) : strSchedule;
    job.schedule = Service::Schedule(job.strSchedule);
    return job;
}

/// What the service has against it. What it is called and whose it is has no say in when it starts, so that definitions
/// may be looked at of which that is still to be settled.
std::string WhyRefusedWherever(Json::Value jsDefinition) {
    jsDefinition["name"] = "job";
    jsDefinition["user"] = "root";
    jsDefinition.removeMember("package_username");
    return Service::WhyRefused(jsDefinition, Service::DefinitionOrigin());
}

/// By the parts, as the identity itself is told with letters beyond ASCII escaped.
Service::JobId IdOf(const Json::Value& jsJob) {
    return {jsJob["folder"].asString(), jsJob["package"].isNull() ? std::string() : jsJob["package"].asString(),
            jsJob["name"].asString()};
}

/// The one of the list alone: of very many jobs, one by one cannot be asked about.
Job JobOfListing(Client& client, const Json::Value& jsJob) {
    Job job;
    job.id = IdOf(jsJob);
    if (jsJob["schedule"].isNull()) { // too long for the list
        Json::Value jsMembers(Json::objectValue);
        jsMembers["job"] = jsJob["id"];
        job.strSchedule = client.Ask("show", jsMembers)["schedule"].asString();
    } else {
        job.strSchedule = jsJob["schedule"].asString();
    }
    job.schedule = Service::Schedule(job.strSchedule);
    job.iStartup = jsJob["startup"].asInt64();
    job.iLastExecution = jsJob["lastExecution"].isNull() ? Job::NEVER : jsJob["lastExecution"].asInt64();
    job.iAssureHours = jsJob["assureHours"].asInt();
    job.bAssureRun = jsJob["assureAction"] == "run";
    job.bOverdueReported = jsJob["overdue"].asBool();
    job.bRunOnPassive = jsJob["runOnPassive"].asBool();
    job.bRandomMinute = jsJob["randomMinute"].asBool();
    job.bEnabled = jsJob["enabled"].asBool();
    job.bInvalid = jsJob["state"] == "invalid";
    const Json::Value& jsLast = jsJob["last"];
    for (const Service::EndKind eKind : {Service::EndKind::Exited, Service::EndKind::Signaled}) {
        if (jsLast.isObject() && jsLast["end"] == Service::ToText(eKind)) {
            job.eLastEnd = eKind;
            job.iLastDurationUsec = jsLast["durationUsec"].asInt64();
        }
    }
    return job;
}

} // namespace

Job JobOfDefinition(const Json::Value& jsDefinition, const std::string& strWhere) {
    std::string strReason = Service::WhyInvalid(jsDefinition);
    if (strReason.empty()) {
        strReason = WhyRefusedWherever(jsDefinition);
    }
    if (!strReason.empty()) {
        throw ToolError(EXIT_WRONG, strWhere + ": " + strReason);
    }
    return Built(jsDefinition, std::string());
}

Job JobOfCrontab(const std::string& strCrontab) {
    return JobOfDefinition(DefinitionOfCrontab(strCrontab), "\"" + strCrontab + "\"");
}

std::vector<Job> JobsOfFile(const std::string& strFile) {
    const Document document = ReadDocument(strFile);
    if (!document.strReason.empty()) {
        throw ToolError(document.bDenied ? EXIT_DENIED : EXIT_WRONG, strFile + ": " + document.strReason);
    }
    const Json::Value& jsDocument = document.jsValue;
    std::vector<Job> vecJobs;
    if (jsDocument.isObject()) {
        vecJobs.push_back(JobOfDefinition(jsDocument, strFile));
        return vecJobs;
    }
    if (!jsDocument.isArray()) {
        throw ToolError(EXIT_WRONG, strFile + ": expected an object or an array of objects");
    }
    for (Json::ArrayIndex i = 0; i < jsDocument.size(); ++i) {
        vecJobs.push_back(JobOfDefinition(jsDocument[i], strFile + ": definition " + std::to_string(i + 1)));
    }
    return vecJobs;
}

std::vector<Job> JobsOfService(const std::string& strRoot, const std::string& strJob) {
    Client client(strRoot);
    Json::Value jsShown(Json::arrayValue);
    if (!strJob.empty()) {
        Json::Value jsMembers(Json::objectValue);
        jsMembers["job"] = strJob;
        jsShown.append(client.Ask("show", jsMembers));
    } else {
        jsShown = client.AskAll("list", Json::Value(Json::objectValue));
    }
    std::vector<Job> vecJobs;
    for (const Json::Value& jsJob : jsShown) {
        Json::Value jsMembers(Json::objectValue);
        jsMembers["job"] = jsJob["id"];
        const Json::Value jsWhole = jsJob.isMember("definition") ? jsJob : client.Ask("show", jsMembers);
        if (jsWhole["state"] == "invalid") { // there is no definition of it now
            if (strJob.empty()) {
                continue;
            }
            throw ToolError(EXIT_WRONG, strJob + ": its definition is refused, see vukocronctl status");
        }
        Job job = Built(jsWhole["definition"], jsWhole["schedule"].asString());
        job.id = IdOf(jsJob);
        job.bEnabled = jsWhole["enabled"].asBool();
        job.iStartup = jsWhole["startup"].asInt64();
        job.iLastExecution = jsWhole["lastExecution"].isNull() ? Job::NEVER : jsWhole["lastExecution"].asInt64();
        job.bOverdueReported = jsWhole["overdue"].asBool();
        vecJobs.push_back(std::move(job));
    }
    return vecJobs;
}

std::vector<Job> JobsToSimulate(const std::vector<std::string>& vecFiles, const std::string& strRoot,
                                std::time_t tFrom) {
    std::vector<Job> vecJobs;
    if (vecFiles.empty()) {
        Client client(strRoot);
        for (const Json::Value& jsJob : client.AskAll("list")) {
            vecJobs.push_back(JobOfListing(client, jsJob));
        }
    }
    for (const std::string& strFile : vecFiles) {
        for (Job& job : JobsOfFile(strFile)) {
            job.iStartup = tFrom;
            vecJobs.push_back(std::move(job));
        }
    }
    return vecJobs;
}

std::string CrontabOf(const Job& job) {
    const Json::Value jsDefinition = Service::DefinitionFromText(job.strDefinition);
    static const std::map<char, const char*> mapPeriods = {
        {'d', "~ ~ * * *"}, {'h', "~ * * * *"}, {'m', "~ ~ ~ * *"}, {'w', "~ ~ * * ~"}};
    const std::string strPeriod = jsDefinition["period"].asString();
    const char cKind = strPeriod.empty() ? 'c' : static_cast<char>(strPeriod.front() | 0x20);
    const auto itPeriod = mapPeriods.find(cKind);
    return itPeriod != mapPeriods.end() ? itPeriod->second : jsDefinition["crontab"].asString();
}

} // namespace VUKO::VUKOCrond::Ctl
