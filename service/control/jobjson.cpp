#include "service/control/jobjson.h"

#include <cstdio>

#include "service/report.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// Only fields that name the same values again and again take more.
constexpr std::size_t LIST_TEXT_BYTES_MAX = std::size_t{16} * 1024;

Json::Value OptionalInstant(std::int64_t iEpoch, std::int64_t iNone) {
    return iEpoch == iNone ? Json::Value() : Json::Value(static_cast<Json::Int64>(iEpoch));
}

Json::Value LastRun(const Job& job) {
    if (job.uLastRun == 0) {
        return Json::Value();
    }
    Json::Value jsRun(Json::objectValue);
    jsRun["run"] = static_cast<Json::UInt64>(job.uLastRun);
    jsRun["end"] = ToText(job.eLastEnd);
    jsRun["code"] = job.iLastCode;
    jsRun["endedUsec"] = static_cast<Json::Int64>(job.iLastEndUsec);
    jsRun["durationUsec"] = static_cast<Json::Int64>(job.iLastDurationUsec);
    return jsRun;
}

Json::Value LimitToJson(std::uint64_t uLimit) {
    return uLimit == Surroundings::Limit::UNLIMITED ? Json::Value() : Json::Value(static_cast<Json::UInt64>(uLimit));
}

} // namespace

const char* StateOf(const Job& job) {
    if (job.bInvalid) {
        return "invalid";
    }
    if (job.uRunning != 0) {
        return "running";
    }
    if (job.IsPending()) {
        return "pending";
    }
    return job.bEnabled ? "waiting" : "disabled";
}

Json::Value JobToJson(const Job& job) {
    Json::Value jsJob(Json::objectValue);
    jsJob["name"] = job.id.strName;
    jsJob["folder"] = job.id.strFolder;
    jsJob["package"] = job.id.strPackage.empty() ? Json::Value() : Json::Value(job.id.strPackage);
    jsJob["id"] = ToText(job.id);
    jsJob["file"] = job.strFile;
    jsJob["account"] = job.strAccount;
    jsJob["fields"] = job.strFields;
    jsJob["schedule"] = job.strSchedule;
    jsJob["words"] = ScheduleInWords(job);
    jsJob["randomMinute"] = static_cast<bool>(job.bRandomMinute);
    jsJob["state"] = StateOf(job);
    jsJob["enabled"] = static_cast<bool>(job.bEnabled);
    jsJob["assureHours"] = job.iAssureHours;
    jsJob["assureAction"] = job.bAssureRun ? "run" : "wait";
    jsJob["overdue"] = static_cast<bool>(job.bOverdueReported);
    jsJob["runOnPassive"] = static_cast<bool>(job.bRunOnPassive);
    jsJob["startup"] = static_cast<Json::Int64>(job.iStartup);
    jsJob["lastExecution"] = OptionalInstant(job.iLastExecution, Job::NEVER);
    jsJob["last"] = LastRun(job);
    if (job.uRunning != 0) {
        jsJob["running"]["count"] = job.uRunning;
        jsJob["running"]["pid"] = job.pidRunning;
        jsJob["running"]["since"] = static_cast<Json::Int64>(job.iRunningSince);
    }
    return jsJob;
}

Json::Value JobToJsonInList(const Job& job) {
    Json::Value jsJob = JobToJson(job);
    for (const char* const szMember : {"fields", "schedule", "words"}) {
        if (jsJob[szMember].asString().size() > LIST_TEXT_BYTES_MAX) {
            jsJob[szMember] = Json::Value();
        }
    }
    return jsJob;
}

Json::Value JobToJsonWhole(const Job& job) {
    Json::Value jsJob = JobToJson(job);
    jsJob["definition"] = DefinitionFromText(job.strDefinition);
    jsJob["overlap"] = job.bAllowOverlap ? "allow" : "skip";
    jsJob["timeout"] = job.iTimeout;
    return jsJob;
}

Json::Value SurroundingsToJson(const Surroundings& surroundings) {
    Json::Value jsFound(Json::objectValue);
    jsFound["account"] = surroundings.strAccount;
    jsFound["uid"] = surroundings.uid;
    jsFound["gid"] = surroundings.gid;
    jsFound["groups"] = Json::Value(Json::arrayValue);
    for (const gid_t gid : surroundings.vecGroups) {
        jsFound["groups"].append(gid);
    }
    jsFound["environment"] = Json::Value(Json::objectValue);
    for (const std::string& strEntry : surroundings.vecEnvironment) {
        const std::size_t uName = strEntry.find('=');
        jsFound["environment"][strEntry.substr(0, uName)] = strEntry.substr(uName + 1);
    }
    jsFound["directory"] = surroundings.strFolder;
    char szUmask[8];
    std::snprintf(szUmask, sizeof(szUmask), "%04o", static_cast<unsigned>(JOB_UMASK));
    jsFound["umask"] = szUmask;
    jsFound["limits"] = Json::Value(Json::objectValue);
    for (const Surroundings::Limit& limit : surroundings.vecLimits) {
        jsFound["limits"][limit.szName]["soft"] = LimitToJson(limit.uSoft);
        jsFound["limits"][limit.szName]["hard"] = LimitToJson(limit.uHard);
    }
    jsFound["nice"] = surroundings.iNice;
    jsFound["oomScoreAdjust"] = surroundings.iOomScoreAdjust;
    jsFound["input"] = JOB_INPUT;
    jsFound["output"]["kind"] = surroundings.bJournal ? "journal" : "file";
    jsFound["output"]["to"] = surroundings.strOutput;
    return jsFound;
}

Json::Value EndToJson(const RunEnd& end) {
    Json::Value jsEnd(Json::objectValue);
    jsEnd["kind"] = ToText(end.eKind);
    jsEnd["code"] = end.iCode;
    jsEnd["startedUsec"] = static_cast<Json::Int64>(end.iStartedUsec);
    jsEnd["endedUsec"] = static_cast<Json::Int64>(end.iEndedUsec);
    jsEnd["durationUsec"] = static_cast<Json::Int64>(end.iDurationUsec);
    jsEnd["cpuUsec"] = static_cast<Json::Int64>(end.iCpuUsec);
    jsEnd["maxRssKib"] = static_cast<Json::Int64>(end.iMaxRssKib);
    return jsEnd;
}

Json::Value OutcomeToJson(const Outcome& outcome) {
    Json::Value jsOutcome(Json::objectValue);
    jsOutcome["minute"] = static_cast<Json::Int64>(outcome.iMinute);
    jsOutcome["decided"] = static_cast<Json::Int64>(outcome.iDecided);
    jsOutcome["outcome"] = ToText(outcome.eKind);
    if (outcome.eKind == OutcomeKind::Skipped) {
        jsOutcome["reason"] = ToText(outcome.eReason);
    }
    if (!outcome.strLabel.empty()) {
        jsOutcome["label"] = outcome.strLabel;
    }
    if (outcome.uRun != 0) {
        jsOutcome["run"] = static_cast<Json::UInt64>(outcome.uRun);
        jsOutcome["delay"] = outcome.iDelaySec;
        jsOutcome["end"] = EndToJson(outcome.end);
    }
    if (outcome.pidOther != 0) {
        jsOutcome["pid"] = outcome.pidOther;
        jsOutcome["since"] = static_cast<Json::Int64>(outcome.iOtherSince);
    }
    return jsOutcome;
}

} // namespace VUKO::VUKOCrond::Service
