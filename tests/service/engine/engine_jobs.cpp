#include "tests/service/engine/engine_jobs.h"

#include <ctime>
#include <stdexcept>

using namespace VUKO::VUKOCrond::Service;

namespace engine_test {

Json::Value Definition(const std::string& strName, const std::string& strCrontab) {
    Json::Value jsDefinition;
    jsDefinition["name"] = strName;
    jsDefinition["user"] = "root";
    jsDefinition["period"] = "crontab";
    jsDefinition["crontab"] = strCrontab;
    jsDefinition["cmd"] = "/bin/true";
    return jsDefinition;
}

CronJob RecordOf(const Json::Value& jsDefinition, const std::vector<int>& vecPreferred) {
    Json::Value jsDocument;
    jsDocument["config"] = jsDefinition;
    CronJob record(jsDocument);
    if (!record._bValid) {
        throw std::invalid_argument("no job: " + jsDefinition["crontab"].asString());
    }
    std::size_t uField = 0;
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        record.GenerateSchedule(strType, uField < vecPreferred.size() ? vecPreferred[uField] : -1);
        ++uField;
    }
    return record;
}

Job JobOf(const CronJob& record, std::int64_t iStartup) {
    Job job;
    TakeDefinition(job, record._jsJob["config"], record);
    job.id.strFolder = "pkg";
    job.id.strName = record._jsJob["config"]["name"].asString();
    job.strSchedule = ScheduleToText(record);
    job.schedule = Schedule(job.strSchedule);
    job.iStartup = iStartup;
    return job;
}

Job JobOf(const std::string& strName, const std::string& strCrontab) {
    return JobOf(RecordOf(Definition(strName, strCrontab)));
}

JobTable TableOf(std::vector<Job> vecJobs) {
    return JobTable(std::move(vecJobs));
}

std::int64_t LocalMinute(int iYear, int iMonth, int iDay, int iHour, int iMinute) {
    std::tm tmWall = {};
    tmWall.tm_year = iYear - 1900;
    tmWall.tm_mon = iMonth - 1;
    tmWall.tm_mday = iDay;
    tmWall.tm_hour = iHour;
    tmWall.tm_min = iMinute;
    return timegm(&tmWall) / 60;
}

} // namespace engine_test
