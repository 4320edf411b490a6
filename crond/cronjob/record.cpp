#include "crond/cronjob.h"

#include <ctime>
#include <utility>

#include "base/syslog_line.h"
#include "crond/cronjob/logsource.h"

namespace VUKO::VUKOCrond {

namespace {

/// A value of a kind that the JSON library cannot convert is a bad definition like any other, so its exception ends
/// here: a caller who builds a record out of a stranger's document needs no handler of its own.
bool ParseOrRefuse(CronJob& job) {
    const int iErrno = errno;
    try {
        return job.Parse();
    } catch (const Json::Exception&) {
        errno = iErrno; // raising the exception may have touched it, and the message's form depends on it
        return false;
    }
}

} // namespace

CronJob::CronJob(Json::Value jsJob)
    : _bValid(false), _iAssureExecute(0), _iAssureExecuteAction(0), _bRunOnPassive(false), _jsJob(std::move(jsJob)) {
    if (!InitDefaultConfig()) {
        VUKO_LOG(LOG_ERR, 162, "crontab format error");
        return;
    }
    if (!ParseOrRefuse(*this)) {
        VUKO_LOG(LOG_ERR, 166, "parse error");
        return;
    }
    _bValid = true;
}

CronJob::~CronJob() = default;

bool CronJob::InitDefaultConfig() {
    Json::Value& jsConf = _jsJob["config"];
    if (VUKO_FAILED(179, !_jsJob.isMember("config") || !jsConf.isObject())) {
        return false;
    }
    if (VUKO_FAILED(180, !jsConf.isMember("period") || !jsConf["period"].isString() ||
                             jsConf["period"].asString().empty())) {
        return false;
    }
    if (VUKO_FAILED(181, !jsConf.isMember("user") || !jsConf["user"].isString())) {
        return false;
    }
    if (VUKO_FAILED(182, !jsConf.isMember("name") || !jsConf["name"].isString())) {
        return false;
    }
    if (VUKO_FAILED(184, (!jsConf.isMember("cmd") || !jsConf["cmd"].isString()) &&
                             (!jsConf.isMember("cmd_list") || !jsConf["cmd_list"].isArray()))) {
        return false;
    }
    if (VUKO_FAILED(185, "package" == jsConf["user"].asString() && !jsConf.isMember("package_username"))) {
        return false;
    }
    if (jsConf["period"].asString().find("crontab") != std::string::npos &&
        VUKO_FAILED(188, !jsConf.isMember("crontab") || !jsConf["crontab"].isString())) {
        return false;
    }
    const time_t tNow = time(nullptr);
    if (!_jsJob.isMember("startup")) {
        _jsJob["startup"] = static_cast<Json::Int64>(tNow);
    }
    if (!jsConf.isMember("assure_execute")) {
        jsConf["assure_execute"] = 0;
    }
    if (!jsConf.isMember("assure_execute_action")) {
        jsConf["assure_execute_action"] = "wait";
    }
    if (!jsConf.isMember("run_on_passive")) {
        jsConf["run_on_passive"] = false;
    }
    return true;
}

} // namespace VUKO::VUKOCrond
