#include "crond/utils.h"

#include "base/syslog_line.h"
#include "crond/cronjob.h"
#include "platform/vukosdk.h"

namespace VUKO::VUKOCrond {

namespace {

constexpr const char* szLogSource = "utils";

constexpr int STATUS_OF_HIBERNATION = 1;
constexpr int HIBERNATING = 2;

bool IsGoodDefinition(const Json::Value& jsDefinition) {
    Json::Value jsJob(Json::objectValue);
    jsJob["config"] = jsDefinition;
    return CronJob(jsJob)._bValid;
}

bool IsIdenticalArray(const Json::Value& jsLeft, const Json::Value& jsRight) {
    if (!jsRight.isArray() || jsLeft.size() != jsRight.size()) {
        return false;
    }
    for (Json::ArrayIndex i = 0; i < jsLeft.size(); ++i) {
        if (!isIdenticalJSON(jsLeft[i], jsRight[i])) {
            return false;
        }
    }
    return true;
}

bool IsIdenticalObject(const Json::Value& jsLeft, const Json::Value& jsRight) {
    if (!jsRight.isObject()) {
        return false;
    }
    for (const std::string& strName : jsLeft.getMemberNames()) {
        if (!isIdenticalJSON(jsLeft[strName], jsRight[strName])) {
            return false;
        }
    }
    return true;
}

} // namespace

bool checkJobFormat(const Json::Value& jsJobs) {
    if (jsJobs.isObject()) {
        return IsGoodDefinition(jsJobs);
    }
    if (!jsJobs.isArray()) {
        return false;
    }
    for (const Json::Value& jsDefinition : jsJobs) {
        if (!IsGoodDefinition(jsDefinition)) {
            return false;
        }
    }
    return true;
}

bool isIdenticalJSON(const Json::Value& jsLeft, const Json::Value& jsRight) {
    if (jsLeft.isArray()) {
        return IsIdenticalArray(jsLeft, jsRight);
    }
    if (jsLeft.isObject()) {
        return IsIdenticalObject(jsLeft, jsRight);
    }
    return jsLeft == jsRight;
}

bool isHibernating() {
    int iStatus = 1;
    if (VUKOEvmgrStatusGet(STATUS_OF_HIBERNATION, &iStatus) == -1) {
        VUKO_LOG(LOG_ERR, 73, "Fail to VUKOEvmgrStatusGet()");
    }
    return iStatus == HIBERNATING;
}

} // namespace VUKO::VUKOCrond
