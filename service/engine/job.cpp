#include "service/engine/job.h"

#include <json/json.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// The library prints the command into the execution log as it stands in "cmd_str", and uses that for nothing else: a
/// line feed in an argument must not begin a line there.
void KeepCommandOnOneLine(CronJob& record) {
    const std::string strCommand = record._jsJob["cmd_str"].asString();
    if (HoldsControlCharacter(strCommand)) {
        record._jsJob["cmd_str"] = Escaped(strCommand);
    }
}

bool HasRandomMinute(const CronJob& record) {
    const auto itRanges = record._mapRanges.find(SZK_MINUTE);
    if (itRanges == record._mapRanges.end()) {
        return false;
    }
    for (const CronJob::Range& range : itRanges->second) {
        if (range.kind == 1) {
            return true;
        }
    }
    return false;
}

bool Contains(const std::string& strText, const char* szWord) {
    return strText.find(szWord) != std::string::npos;
}

std::string TextMember(const Json::Value& jsDefinition, const char* szKey) {
    const Json::Value* const pValue =
        jsDefinition.isObject() ? jsDefinition.find(szKey, szKey + std::string(szKey).size()) : nullptr;
    return pValue != nullptr && pValue->isString() ? pValue->asString() : std::string();
}

} // namespace

std::string ToText(const JobId& id) {
    std::string strText = id.strFolder + "/";
    if (!id.strPackage.empty()) {
        strText += id.strPackage + "/";
    }
    return Escaped(strText + id.strName);
}

JobId IdFromText(const std::string& strText) {
    JobId id;
    const std::size_t uFolderEnd = strText.find('/');
    if (uFolderEnd == std::string::npos) {
        return id;
    }
    id.strFolder = strText.substr(0, uFolderEnd);
    const std::size_t uPackageEnd = strText.find('/', uFolderEnd + 1);
    if (uPackageEnd == std::string::npos) {
        id.strName = strText.substr(uFolderEnd + 1);
    } else {
        id.strPackage = strText.substr(uFolderEnd + 1, uPackageEnd - uFolderEnd - 1);
        id.strName = strText.substr(uPackageEnd + 1);
        return id.strPackage.empty() ? JobId() : id; // else it would be the job of that name without a package
    }
    return id;
}

std::string AccountNameOf(const Json::Value& jsDefinition) {
    const std::string strUser = TextMember(jsDefinition, "user");
    if (Contains(strUser, "package")) {
        return TextMember(jsDefinition, "package_username");
    }
    return Contains(strUser, "system") || Contains(strUser, "root") ? strUser : std::string();
}

std::int64_t Job::AssurePeriod() const {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(iAssureHours) * 3600U);
}

std::int64_t Job::AssureLimit() const {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(AssureBase()) +
                                     static_cast<std::uint64_t>(AssurePeriod()));
}

CronJob BuildRecord(const Job& job) {
    Json::Value jsDocument(Json::objectValue);
    jsDocument["config"] = DefinitionFromText(job.strDefinition);
    jsDocument["startup"] = static_cast<Json::Int64>(job.iStartup);
    if (job.iLastExecution != Job::NEVER) {
        jsDocument["lastExecution"] = static_cast<Json::Int64>(job.iLastExecution);
    }
    errno = 0; // the library's messages take their form by it
    CronJob record(std::move(jsDocument));
    if (record._bValid) {
        ScheduleFromText(record, job.strSchedule);
        KeepCommandOnOneLine(record);
    }
    return record;
}

void TakeDefinition(Job& job, const Json::Value& jsDefinition, const CronJob& record) {
    TakeDefinition(job, jsDefinition, record, DefinitionToText(jsDefinition));
}

void TakeDefinition(Job& job, const Json::Value& jsDefinition, const CronJob& record, std::string strText) {
    job.strDefinition = std::move(strText);
    job.strFields = FieldsToText(record);
    job.strAccount = AccountNameOf(jsDefinition);
    job.iAssureHours = record._iAssureExecute;
    job.bAssureRun = record._iAssureExecuteAction == 1;
    job.bRunOnPassive = record._bRunOnPassive;
    job.bRandomMinute = HasRandomMinute(record);
    job.bEnabled = jsDefinition.get("enabled", true).asBool();
    job.bAllowOverlap = jsDefinition.get("overlap", "skip").asString() == "allow";
    job.iTimeout = jsDefinition.get("timeout", 0).asInt();
    job.bInvalid = false;
}

std::string DefinitionToText(const Json::Value& jsDefinition) {
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder compact;
        compact["indentation"] = "";
        return compact;
    }();
    return Json::writeString(builder, jsDefinition);
}

Json::Value DefinitionFromText(const std::string& strText) {
    static const Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value jsDefinition;
    std::string strErrors;
    if (!reader->parse(strText.data(), strText.data() + strText.size(), &jsDefinition, &strErrors)) {
        return Json::Value();
    }
    return jsDefinition;
}

} // namespace VUKO::VUKOCrond::Service
