#include "crond/cronjob.h"

#include <utility>

#include "base/syslog_line.h"
#include "crond/cronjob/logsource.h"
#include "platform/vukojson.h"

namespace VUKO::VUKOCrond {

namespace {

Json::Value DefaultTemplate() {
    Json::Value jsJob(Json::objectValue);
    Json::Value& jsConf = jsJob["config"];
    jsConf["name"] = "scheduleTemplate";
    jsConf["user"] = "root";
    jsConf["cmd"] = "true";
    jsConf["period"] = "crontab";
    jsConf["crontab"] = "~ ~ ~ ~ ~";
    return jsJob;
}

} // namespace

ScheduleTemplate::ScheduleTemplate() : CronJob(DefaultTemplate()), _iMaxDelay(MAX_DELAY_BETWEEN_JOBS) {
    if (!_bValid) {
        VUKO_LOG(LOG_ERR, 704, "Default scheduled template config format invalid");
        return;
    }
    for (const std::string& strType : GetAllScheduleTypes()) {
        GenerateSchedule(strType);
    }
}

bool ScheduleTemplate::fromFile(const std::string& path) {
    Json::Value jsDocument;
    if (!JSON::fromFile(jsDocument, path)) {
        return false;
    }
    // The record is made for objects; any other document has no "config" either, and is refused the same way.
    CronJob job(jsDocument.isObject() ? jsDocument : Json::Value(Json::objectValue));
    if (!job._bValid) {
        VUKO_LOG(LOG_ERR, 722, "Failed to parse schedule template from [%s]", path.c_str());
        return false;
    }
    CronJob::operator=(std::move(job));
    const Json::Value& jsMaxDelay = jsDocument["maxDelay"];
    if (jsMaxDelay.isInt() && jsMaxDelay.asInt() >= 0) {
        _iMaxDelay = jsMaxDelay.asInt();
    }
    return true;
}

bool ScheduleTemplate::toFile(const std::string& path) const {
    Json::Value jsDocument = _jsJob;
    if (_iMaxDelay != MAX_DELAY_BETWEEN_JOBS) {
        jsDocument["maxDelay"] = _iMaxDelay;
    }
    return JSON::toFile(jsDocument, path);
}

void ScheduleTemplate::GenerateSchedule(const std::string& type) {
    CronJob::GenerateSchedule(type, -1);
}

int ScheduleTemplate::GetGeneratedSchedule(const std::string& type) const {
    const std::vector<int> vecValues = GetGeneratedScheduleByType(type);
    return vecValues.size() == 1 ? vecValues.front() : -1;
}

} // namespace VUKO::VUKOCrond
