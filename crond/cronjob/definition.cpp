#include "crond/cronjob.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <cctype>

#include "base/syslog_line.h"
#include "crond/cronjob/logsource.h"
#include "platform/vukoutils.h"

namespace VUKO::VUKOCrond {

namespace {

constexpr std::size_t FIELD_COUNT = 5;

/// The five-field text of a period. Its first letter alone tells the kind: "daily", "D" and "dinner" mean the same.
/// @return false when the letter is none of the known ones.
bool SchedulePeriod(const Json::Value& jsConf, std::string& strPeriod) {
    const std::string strKind = jsConf["period"].asString();
    switch (tolower(static_cast<unsigned char>(strKind[0]))) {
    case 'c':
        strPeriod = jsConf["crontab"].asString();
        return true;
    case 'd':
        strPeriod = "~ ~ * * *";
        return true;
    case 'h':
        strPeriod = "~ * * * *";
        return true;
    case 'm':
        strPeriod = "~ ~ ~ * *";
        return true;
    case 'w':
        strPeriod = "~ ~ * * ~";
        return true;
    default:
        return false;
    }
}

/// Fills "cmd_list" and "cmd_str" from an argument vector. The text ends in a blank, which is part of
/// the log line's form.
void TakeArgumentVector(const Json::Value& jsConfList, Json::Value& jsJob) {
    jsJob["cmd_list"] = jsConfList;
    std::string strCmd;
    for (const Json::Value& jsArgument : jsConfList) {
        strCmd += jsArgument.asString();
        strCmd += ' ';
    }
    jsJob["cmd_str"] = strCmd;
}

/// Fills "cmd_list" and "cmd_str" from one text. No quotes and no runs of blanks: what looks like a shell's line is
/// none, and an empty piece is an argument.
void TakeCommandText(const std::string& strCmd, Json::Value& jsJob) {
    jsJob["cmd_str"] = strCmd;
    std::vector<std::string> vecPieces;
    boost::algorithm::split(vecPieces, strCmd, boost::algorithm::is_any_of(" "), boost::algorithm::token_compress_off);
    Json::Value jsList(Json::arrayValue);
    for (const std::string& strPiece : vecPieces) {
        jsList.append(strPiece);
    }
    jsJob["cmd_list"] = jsList;
}

} // namespace

bool CronJob::Parse() {
    const Json::Value& jsConf = _jsJob["config"];
    std::string strPeriod;
    if (!SchedulePeriod(jsConf, strPeriod)) {
        VUKO_LOG(LOG_ERR, 265, "error period");
        return false;
    }
    std::vector<std::string> vecFields;
    VUKOUtils::StringExplode(vecFields, strPeriod, " ");
    if (vecFields.size() != FIELD_COUNT) {
        return false;
    }
    const char* const aTypes[FIELD_COUNT] = {SZK_MINUTE, SZK_HOUR, SZK_DAY, SZK_MONTH, SZK_WEEK};
    for (std::size_t i = 0; i < FIELD_COUNT; ++i) {
        if (!ParsePeriodByType(aTypes[i], vecFields[i])) {
            return false;
        }
    }
    _iAssureExecute = jsConf["assure_execute"].asInt();
    const Json::Value& jsAction = jsConf["assure_execute_action"];
    if (jsAction.isString() && jsAction.asString() == "run") {
        _iAssureExecuteAction = 1;
    }
    _bRunOnPassive = jsConf["run_on_passive"].asBool();
    if (jsConf.isMember("cmd_list")) {
        TakeArgumentVector(jsConf["cmd_list"], _jsJob);
    } else {
        TakeCommandText(jsConf["cmd"].asString(), _jsJob);
    }
    return !VUKO_FAILED(301, 0 == _jsJob["cmd_list"].size());
}

} // namespace VUKO::VUKOCrond
