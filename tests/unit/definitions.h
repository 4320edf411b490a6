#pragma once

#include <json/json.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "crond/cronjob.h"

namespace unit {

using VUKO::VUKOCrond::CronJob;

/// The least that makes a valid job.
inline Json::Value Definition() {
    Json::Value jsConf(Json::objectValue);
    jsConf["name"] = "backup";
    jsConf["user"] = "root";
    jsConf["period"] = "daily";
    jsConf["cmd"] = "/bin/true";
    return jsConf;
}

inline Json::Value With(const std::string& strKey, Json::Value jsValue, Json::Value jsConf = Definition()) {
    jsConf[strKey] = std::move(jsValue);
    return jsConf;
}

inline Json::Value Without(const std::string& strKey, Json::Value jsConf = Definition()) {
    jsConf.removeMember(strKey);
    return jsConf;
}

/// A definition of the crontab kind.
inline Json::Value Crontab(const std::string& strFields) {
    return With("crontab", strFields, With("period", "crontab"));
}

/// The job document around a definition.
inline Json::Value Document(Json::Value jsConf) {
    Json::Value jsJob(Json::objectValue);
    jsJob["config"] = std::move(jsConf);
    return jsJob;
}

/// A document written as JSON text.
inline Json::Value FromText(const std::string& strText) {
    Json::Value jsValue;
    std::string strErrors;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(strText.data(), strText.data() + strText.size(), &jsValue, &strErrors)) {
        throw std::invalid_argument(strErrors);
    }
    return jsValue;
}

/// A valid job whose schedule is the given object, as if it had been generated.
inline CronJob JobWithSchedule(Json::Value jsSchedule) {
    CronJob job(Document(Definition()));
    job._jsJob["schedule"] = std::move(jsSchedule);
    return job;
}

/// A valid job that has parsed no field yet.
inline CronJob JobWithoutRanges() {
    CronJob job(Document(Definition()));
    job._mapRanges.clear();
    return job;
}

/// Items as "kind:from..to", joined by blanks.
inline std::string Text(const std::vector<CronJob::Range>& vecRanges) {
    std::string strText;
    for (const CronJob::Range& range : vecRanges) {
        strText += (strText.empty() ? "" : " ") + std::to_string(range.kind) + ":" + std::to_string(range.from) + ".." +
                   std::to_string(range.to);
    }
    return strText;
}

/// The items of one field, "none" when the field has no entry.
inline std::string RangesOf(const CronJob& job, const std::string& strType) {
    const auto it = job._mapRanges.find(strType);
    return it == job._mapRanges.end() ? "none" : Text(it->second);
}

/// The items of all fields, in the order of a crontab, separated by "|".
inline std::string AllRanges(const CronJob& job) {
    std::string strText;
    for (const char* const szType : {"Minute", "hour", "day", "month", "week"}) {
        strText += (strText.empty() ? "" : "|") + RangesOf(job, szType);
    }
    return strText;
}

} // namespace unit
