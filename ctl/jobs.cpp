#include "ctl/jobs.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

#include "ctl/client.h"
#include "ctl/toolerror.h"
#include "platform/vukojson.h"
#include "service/definitions/definitionreason.h"
#include "service/definitions/jsonfault.h"

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

/// Standard input may be a pipe, and the reader wants a file: it is given a copy in memory.
std::string FileOfStandardInput() {
    const int iFd = memfd_create("standard-input", MFD_CLOEXEC); // lives as long as the tool does
    std::vector<char> vecBuffer(64 * 1024);
    for (ssize_t iRead = 0; iFd >= 0 && (iRead = read(STDIN_FILENO, vecBuffer.data(), vecBuffer.size())) != 0;) {
        if (iRead < 0 || write(iFd, vecBuffer.data(), static_cast<std::size_t>(iRead)) != iRead) {
            throw ToolError(EXIT_WRONG, std::string("standard input cannot be read: ") + strerror(errno));
        }
    }
    return "/proc/self/fd/" + std::to_string(iFd);
}

} // namespace

Job JobOfDefinition(const Json::Value& jsDefinition, const std::string& strWhere) {
    const std::string strReason = Service::WhyInvalid(jsDefinition);
    if (!strReason.empty()) {
        throw ToolError(EXIT_WRONG, strWhere + ": " + strReason);
    }
    return Built(jsDefinition, std::string());
}

Job JobOfCrontab(const std::string& strCrontab) {
    Json::Value jsDefinition(Json::objectValue);
    jsDefinition["name"] = "crontab";
    jsDefinition["user"] = "root";
    jsDefinition["period"] = "crontab";
    jsDefinition["crontab"] = strCrontab;
    jsDefinition["cmd"] = "/bin/true";
    return JobOfDefinition(jsDefinition, "\"" + strCrontab + "\"");
}

std::string ReadDocument(const std::string& strFile, Json::Value& jsDocument) {
    const std::string strPath = strFile == "-" ? FileOfStandardInput() : strFile;
    errno = 0;
    if (JSON::fromFile(jsDocument, strPath)) {
        return std::string();
    }
    return errno == EBADMSG ? "is not JSON: " + Service::WhyFileIsNotJson(strPath)
                            : std::string("cannot be read: ") + strerror(errno);
}

std::vector<Job> JobsOfFile(const std::string& strFile) {
    Json::Value jsDocument;
    if (const std::string strReason = ReadDocument(strFile, jsDocument); !strReason.empty()) {
        throw ToolError(EXIT_WRONG, strFile + ": " + strReason);
    }
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
        if (jsWhole["state"] == "invalid") {
            continue; // there is no definition of it now
        }
        Job job = Built(jsWhole["definition"], jsWhole["schedule"].asString());
        job.id = Service::IdFromText(jsJob["id"].asString());
        job.iStartup = jsWhole["startup"].asInt64();
        job.iLastExecution = jsWhole["lastExecution"].isNull() ? Job::NEVER : jsWhole["lastExecution"].asInt64();
        job.bOverdueReported = jsWhole["overdue"].asBool();
        vecJobs.push_back(std::move(job));
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
