#include "bench/jobs.h"

#include <malloc.h>

#include <stdexcept>

namespace bench {

using VUKO::VUKOCrond::CronJob;

namespace {

constexpr std::size_t DOCUMENT_COUNT = 100;

const char* const CRONTABS[] = {"~ * * * *", "~ ~ * * *",          "~ ~ ~ * *",
                                "~ ~ * * ~", "0,15,30,45 8 * * *", "10~20 3 1 * *"};

} // namespace

Json::Value Document(const std::string& strName, const std::string& strCrontab) {
    Json::Value jsJob;
    Json::Value& jsConf = jsJob["config"];
    jsConf["name"] = strName;
    jsConf["user"] = "root";
    jsConf["period"] = "crontab";
    jsConf["crontab"] = strCrontab;
    jsConf["assure_execute"] = 24;
    jsConf["assure_execute_action"] = "run";
    jsConf["run_on_passive"] = false;
    jsConf["cmd_list"].append("/bin/true");
    jsConf["cmd_list"].append("--quiet");
    return jsJob;
}

CronJob Job(const std::string& strCrontab) {
    CronJob job(Document("bench", strCrontab));
    if (!job._bValid) {
        throw std::runtime_error("no valid job: " + strCrontab);
    }
    GenerateAllFields(job);
    return job;
}

const std::vector<Json::Value>& FleetDocuments() {
    static const std::vector<Json::Value> vecDocuments = [] {
        std::vector<Json::Value> vecNew;
        for (std::size_t i = 0; i < DOCUMENT_COUNT; ++i) {
            vecNew.push_back(Document("job" + std::to_string(i), CRONTABS[i % std::size(CRONTABS)]));
        }
        return vecNew;
    }();
    return vecDocuments;
}

std::vector<CronJob> Fleet(std::size_t uCount) {
    std::vector<CronJob> vecJobs;
    vecJobs.reserve(uCount);
    for (std::size_t i = 0; i < uCount; ++i) {
        vecJobs.emplace_back(FleetDocuments()[i % DOCUMENT_COUNT]);
        GenerateAllFields(vecJobs.back());
    }
    return vecJobs;
}

void GenerateAllFields(CronJob& job) {
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        job.GenerateSchedule(strType, -1);
    }
}

std::size_t AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

} // namespace bench
