#include "crond/cronjob.h"

#include <ctime>

#include "base/syslog_line.h"
#include "crond/cronjob/logsource.h"

namespace VUKO::VUKOCrond {

bool CronJob::IsTypeReady(const Json::Value& schedule, const std::string& type, int value) const {
    if (!schedule.isObject()) {
        return false;
    }
    const Json::Value& jsValues = schedule[type];
    const Json::ArrayIndex uSize = jsValues.size();
    for (Json::ArrayIndex i = 0; i < uSize; ++i) {
        const int iValue = jsValues[i].asInt();
        if (iValue == value || iValue == -1) {
            return true;
        }
    }
    return false;
}

bool CronJob::IsOnScheduled() const {
    const time_t tNow = time(nullptr);
    const struct tm* const pLocal = localtime(&tNow);
    if (pLocal == nullptr) {
        VUKO_LOG(LOG_ERR, 420, "Failed to get localtime");
        return false;
    }
    const struct tm tmLocal = *pLocal; // localtime's storage is shared by the whole process
    const Json::Value& jsSchedule = _jsJob["schedule"];
    return IsTypeReady(jsSchedule, SZK_MINUTE, tmLocal.tm_min) && IsTypeReady(jsSchedule, SZK_HOUR, tmLocal.tm_hour) &&
           IsTypeReady(jsSchedule, SZK_DAY, tmLocal.tm_mday) &&
           IsTypeReady(jsSchedule, SZK_MONTH, tmLocal.tm_mon + 1) && IsTypeReady(jsSchedule, SZK_WEEK, tmLocal.tm_wday);
}

bool CronJob::SetReadyIfScheduled() {
    if (!IsOnScheduled()) {
        return false;
    }
    _jsJob["expireTime"] = static_cast<Json::Int64>(time(nullptr));
    _strReadyCrontab = ToCurrentCrontabString();
    return true;
}

bool CronJob::IsExpiredAssure() const {
    if (_iAssureExecute == 0) {
        return false;
    }
    const char* const szBase = _jsJob.isMember("lastExecution") ? "lastExecution" : "startup";
    const std::int64_t iBase = _jsJob[szBase].asInt64();
    // The seconds are 32 bits wide, as the header says, and wrap above 596523 hours. Both sums are made unsigned, where
    // a wrap is defined.
    const auto iPeriod = static_cast<std::int32_t>(static_cast<std::uint32_t>(_iAssureExecute) * 3600U);
    const auto iLimit = static_cast<std::int64_t>(static_cast<std::uint64_t>(iBase) +
                                                  static_cast<std::uint64_t>(static_cast<std::int64_t>(iPeriod)));
    return time(nullptr) > iLimit;
}

} // namespace VUKO::VUKOCrond
