#include "service/control/requests.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <utility>
#include <vector>

#include "base/syslog_line.h"
#include "service/control/jobjson.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "requests";

constexpr Json::ArrayIndex PAGE_MAX = 100;
constexpr std::int64_t USEC = 1'000'000;
/// Room that a page leaves for what stands around it.
constexpr std::size_t PAGE_BYTES_MAX = Protocol::REPLY_BYTES_MAX - 4096;

constexpr const char* CODE_DENIED = "denied";
constexpr const char* CODE_NOT_FOUND = "not-found";
constexpr const char* CODE_AMBIGUOUS = "ambiguous";
constexpr const char* CODE_REFUSED = "refused";
constexpr const char* CODE_FAILED = "failed";

/// Answers requests, one verb a function.
class Requests {
public:
    Requests(Core& core, std::function<void()> reload) : _core(core), _reload(std::move(reload)) {}

    Json::Value Answer(const Json::Value& jsRequest, const Peer& peer, const Reply& reply);

private:
    struct Asked {
        const Json::Value& jsRequest;
        const Peer& peer;
        const Reply& reply;
    };

    Json::Value Ping(const Asked& asked);
    Json::Value Status(const Asked& asked);
    Json::Value List(const Asked& asked);
    Json::Value Show(const Asked& asked);
    Json::Value History(const Asked& asked);
    Json::Value Refused(const Asked& asked);
    Json::Value Run(const Asked& asked);
    Json::Value Reload(const Asked& asked);
    Json::Value Reroll(const Asked& asked);
    Json::Value Role(const Asked& asked);
    Json::Value Template(const Asked& asked);
    Json::Value Drain(const Asked& asked);

    JobIndex FindJob(const Asked& asked) const;
    static bool MaySee(const Job& job, const Peer& peer) { return peer.MayDoAll() || job.uidAccount == peer.uid; }
    static void RequireRoot(const Asked& asked);
    static std::string Text(const Asked& asked, const char* szMember);
    static bool Flag(const Asked& asked, const char* szMember, bool bDefault);
    static Json::ArrayIndex Number(const Asked& asked, const char* szMember, Json::ArrayIndex uDefault);

    Core& _core;
    std::function<void()> _reload;
    std::int64_t _iStarted = time(nullptr);
};

Json::Value Requests::Answer(const Json::Value& jsRequest, const Peer& peer, const Reply& reply) {
    using Verb = Json::Value (Requests::*)(const Asked&);
    static const std::map<std::string, Verb> mapVerbs = {
        {"ping", &Requests::Ping}, {"status", &Requests::Status},     {"list", &Requests::List},
        {"show", &Requests::Show}, {"history", &Requests::History},   {"refused", &Requests::Refused},
        {"run", &Requests::Run},   {"reload", &Requests::Reload},     {"reroll", &Requests::Reroll},
        {"role", &Requests::Role}, {"template", &Requests::Template}, {"drain", &Requests::Drain}};
    const auto itVerb = mapVerbs.find(jsRequest[Protocol::KEY_VERB].asString());
    if (itVerb == mapVerbs.end()) {
        throw ControlError(Protocol::CODE_BAD_REQUEST,
                           "unknown verb " + Quoted(jsRequest[Protocol::KEY_VERB].asString()));
    }
    return (this->*itVerb->second)({jsRequest, peer, reply});
}

Json::Value Requests::Ping(const Asked&) {
    Json::Value jsResult(Json::objectValue);
    jsResult["service"] = SZK_SERVICE_NAME;
    jsResult["version"] = VUKO_VERSION;
    return jsResult;
}

Json::Value Requests::Status(const Asked& asked) {
    Json::Value jsResult = Ping(asked);
    const std::int64_t iNow = time(nullptr);
    const auto tNow = static_cast<std::time_t>(iNow);
    if (const std::tm* const pLocal = localtime(&tNow); pLocal != nullptr) {
        jsResult["zone"] = pLocal->tm_zone;
        jsResult["offset"] = static_cast<Json::Int64>(pLocal->tm_gmtoff);
    }
    // What local times are reckoned by: an abbreviation does not tell.
    const char* const szZone = std::getenv("TZ");
    jsResult["tz"] = szZone == nullptr ? "" : *szZone == '\0' ? "UTC0" : szZone;
    jsResult["now"] = static_cast<Json::Int64>(iNow);
    jsResult["started"] = static_cast<Json::Int64>(_iStarted);
    jsResult["pid"] = getpid();
    jsResult["policy"] = ToText(_core.Set().ePolicy);
    jsResult["role"] = ToText(_core.RoleOf().RoleAt(iNow * USEC));
    jsResult["hibernating"] = _core.Clock().iSleptSince != 0;
    jsResult["draining"] = _core.IsDraining();
    std::map<std::string_view, unsigned> mapStates;
    for (const Job& job : _core.Jobs().Jobs()) {
        if (MaySee(job, asked.peer)) {
            ++mapStates[StateOf(job)];
        }
    }
    jsResult["jobs"] = Json::Value(Json::objectValue);
    for (const auto& [strState, uCount] : mapStates) {
        jsResult["jobs"][std::string(strState)] = uCount;
    }
    if (asked.peer.MayDoAll()) {
        jsResult["refused"] = static_cast<Json::UInt64>(_core.Refusals().size());
        jsResult["workedUpTo"] = static_cast<Json::Int64>(_core.Clock().iWorkedUpTo);
        jsResult["saved"] = static_cast<Json::Int64>(_core.LastSavedAt());
        for (const auto& [strKind, uCount] : _core.Count().mapStarts) {
            jsResult["starts"][strKind] = static_cast<Json::UInt64>(uCount);
        }
        for (const auto& [strReason, uCount] : _core.Count().mapSkips) {
            jsResult["skips"][strReason] = static_cast<Json::UInt64>(uCount);
        }
    }
    return jsResult;
}

/// One page of a list: "items" from number "from" on, and in "next" where the following page begins, null at the end.
template <typename Items, typename ToJson>
Json::Value Page(const Items& items, Json::ArrayIndex uFrom, Json::ArrayIndex uLimit, const ToJson& toJson) {
    Json::Value jsResult(Json::objectValue);
    Json::Value& jsItems = jsResult["items"] = Json::Value(Json::arrayValue);
    std::size_t uBytes = 0;
    std::size_t uItem = uFrom;
    for (; uItem < items.size() && jsItems.size() < std::clamp(uLimit, 1U, PAGE_MAX); ++uItem) {
        Json::Value jsItem = toJson(items[uItem]);
        if (jsItem.isNull()) {
            continue;
        }
        uBytes += DefinitionToText(jsItem).size() + 1;
        if (uBytes > PAGE_BYTES_MAX && !jsItems.empty()) {
            break;
        }
        jsItems.append(std::move(jsItem));
    }
    jsResult["next"] = uItem < items.size() ? Json::Value(static_cast<Json::UInt64>(uItem)) : Json::Value();
    return jsResult;
}

Json::Value Requests::List(const Asked& asked) {
    const std::vector<Job>& vecJobs = _core.Jobs().Jobs();
    return Page(vecJobs, Number(asked, "from", 0), Number(asked, "limit", PAGE_MAX), [&](const Job& job) {
        const auto uJob = static_cast<JobIndex>(&job - vecJobs.data());
        return MaySee(job, asked.peer) ? JobToJsonInList(_core.Recalled(uJob)) : Json::Value();
    });
}

Json::Value Requests::Show(const Asked& asked) {
    const JobIndex uJob = FindJob(asked);
    Json::Value jsJob = JobToJsonWhole(_core.Recalled(uJob));
    if (Flag(asked, "effective", false)) {
        const std::optional<Surroundings> found = _core.SurroundingsOf(uJob);
        jsJob["effective"] = found ? SurroundingsToJson(*found) : Json::Value();
    }
    return jsJob;
}

Json::Value Requests::History(const Asked& asked) {
    const Job& job = _core.Jobs().At(FindJob(asked));
    const std::vector<Outcome> vecOutcomes = _core.History(job.iKey, StateStore::LEDGER_DEPTH);
    Json::Value jsResult = Page(vecOutcomes, Number(asked, "from", 0), Number(asked, "limit", PAGE_MAX), OutcomeToJson);
    jsResult["job"] = Service::ToText(job.id);
    return jsResult;
}

Json::Value Requests::Refused(const Asked& asked) {
    RequireRoot(asked);
    return Page(_core.Refusals(), Number(asked, "from", 0), Number(asked, "limit", PAGE_MAX),
                [](const Refusal& refusal) {
                    Json::Value jsRefusal(Json::objectValue);
                    jsRefusal["file"] = Escaped(refusal.strFile);
                    jsRefusal["text"] = refusal.strText;
                    return jsRefusal;
                });
}

Json::Value Requests::Run(const Asked& asked) {
    const JobIndex uJob = FindJob(asked);
    const std::optional<ClockReading> reading = ReadClock();
    if (!reading) {
        throw ControlError(CODE_FAILED, "the time cannot be converted to local time");
    }
    const bool bWait = Flag(asked, "wait", false);
    const std::string strJob = ToText(_core.Jobs().At(uJob).id);
    std::function<void(const RunEnd&)> onEnd;
    if (bWait) {
        asked.reply.Defer();
        onEnd = [reply = asked.reply, strJob](const RunEnd& end) {
            Json::Value jsResult(Json::objectValue);
            jsResult["job"] = strJob;
            jsResult["end"] = EndToJson(end);
            reply.Send(jsResult);
        };
    }
    const SkipReason eReason = _core.RunNow(uJob, *reading, std::move(onEnd));
    if (eReason != SkipReason::None) {
        std::string strMessage = std::string("not started: ") + ToText(eReason);
        if (eReason == SkipReason::Overlap) {
            strMessage = "not started: process " + std::to_string(_core.Jobs().At(uJob).pidRunning) + " is still going";
        } else if (eReason == SkipReason::Stopping && _core.IsDraining()) {
            strMessage = "not started: the service is drained, and starts jobs again when that is switched off";
        }
        if (bWait) {
            asked.reply.Fail(CODE_REFUSED, strMessage);
            return Json::Value();
        }
        throw ControlError(CODE_REFUSED, strMessage);
    }
    VUKO_LOG_PLAIN(LOG_NOTICE, 1, "job %s is started on request of uid %u", strJob.c_str(),
                   static_cast<unsigned>(asked.peer.uid));
    Json::Value jsResult(Json::objectValue);
    jsResult["job"] = strJob;
    jsResult["run"] = static_cast<Json::UInt64>(_core.Jobs().At(uJob).uLastRun);
    return jsResult;
}

Json::Value Requests::Reload(const Asked& asked) {
    if (!asked.peer.MayDoAll()) {
        // The folders are watched: whoever may change a definition need not ask.
        throw ControlError(CODE_DENIED, "only root may do that; definitions are read again when they change");
    }
    _reload();
    Json::Value jsResult(Json::objectValue);
    jsResult["jobs"] = static_cast<Json::UInt64>(_core.Jobs().Size());
    jsResult["refused"] = static_cast<Json::UInt64>(_core.Refusals().size());
    return jsResult;
}

Json::Value Requests::Reroll(const Asked& asked) {
    const JobIndex uJob = FindJob(asked);
    _core.RerollJob(uJob);
    return JobToJson(_core.Jobs().At(uJob));
}

Json::Value Requests::Role(const Asked& asked) {
    if (asked.jsRequest.isMember("set")) {
        RequireRoot(asked);
        const std::string strRole = Text(asked, "set");
        if (strRole != ToText(Service::Role::Active) && strRole != ToText(Service::Role::Passive)) {
            throw ControlError(Protocol::CODE_BAD_REQUEST, "\"set\": expected \"active\" or \"passive\"");
        }
        const std::string strReason = _core.RoleOf().Write(
            strRole == ToText(Service::Role::Active) ? Service::Role::Active : Service::Role::Passive);
        if (!strReason.empty()) {
            throw ControlError(CODE_FAILED, strReason);
        }
    }
    Json::Value jsResult(Json::objectValue);
    jsResult["role"] = ToText(_core.RoleOf().RoleAt(std::int64_t{time(nullptr)} * USEC + USEC - 1));
    return jsResult;
}

Json::Value Requests::Template(const Asked& asked) {
    const Json::Value& jsDelay = asked.jsRequest["maxDelay"];
    const bool bSetsDelay = asked.jsRequest.isMember("maxDelay");
    const bool bRerolls = asked.jsRequest.isMember("reroll");
    if (bSetsDelay || bRerolls) {
        RequireRoot(asked);
    }
    if (bSetsDelay && (!jsDelay.isInt() || jsDelay.asInt() < 0)) {
        throw ControlError(Protocol::CODE_BAD_REQUEST, "\"maxDelay\": expected a number of seconds");
    }
    std::string strReason;
    if (bRerolls) {
        strReason = _core.Template().Reroll();
    }
    if (bSetsDelay) {
        strReason = _core.Template().SetMaxDelay(jsDelay.asInt());
    }
    if (!strReason.empty()) {
        throw ControlError(CODE_FAILED, strReason);
    }
    if (bSetsDelay || bRerolls) {
        _core.Save();
    }
    Json::Value jsResult(Json::objectValue);
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        jsResult["values"][strType] = _core.Template().Template().GetGeneratedSchedule(strType);
    }
    jsResult["maxDelay"] = _core.Template().MaxDelay();
    return jsResult;
}

Json::Value Requests::Drain(const Asked& asked) {
    RequireRoot(asked);
    _core.Drain(Flag(asked, "on", true));
    Json::Value jsResult(Json::objectValue);
    jsResult["draining"] = _core.IsDraining();
    jsResult["running"] = static_cast<Json::UInt64>(_core.Going().Going());
    return jsResult;
}

/// By its whole identity, FOLDER/NAME or FOLDER/PACKAGE/NAME, or by its name alone where no other job has it. A job
/// that the asker may not see is not there.
JobIndex Requests::FindJob(const Asked& asked) const {
    const std::string strWanted = Text(asked, "job");
    const JobTable& table = _core.Jobs();
    const JobIndex uWhole = table.IndexOf(IdFromText(strWanted));
    if (uWhole < table.Size() && MaySee(table.At(uWhole), asked.peer)) {
        return uWhole;
    }
    // An identity is told with its odd characters escaped: whoever asks by what was told means that job.
    const bool bMayBeTold = strWanted.find("\\x") != std::string::npos;
    std::vector<JobIndex> vecFound;
    for (JobIndex uJob = 0; uJob < table.Size(); ++uJob) {
        const JobId& id = table.At(uJob).id;
        if ((id.strName == strWanted || (bMayBeTold && ToText(id) == strWanted)) &&
            MaySee(table.At(uJob), asked.peer)) {
            vecFound.push_back(uJob);
        }
    }
    if (vecFound.empty()) {
        throw ControlError(CODE_NOT_FOUND, "there is no job " + Quoted(strWanted));
    }
    if (vecFound.size() > 1) {
        throw ControlError(CODE_AMBIGUOUS, "several jobs are named " + Quoted(strWanted) + ": " +
                                               ToText(table.At(vecFound[0]).id) + ", " +
                                               ToText(table.At(vecFound[1]).id));
    }
    return vecFound.front();
}

void Requests::RequireRoot(const Asked& asked) {
    if (!asked.peer.MayDoAll()) {
        throw ControlError(CODE_DENIED, "only root may do that");
    }
}

std::string Requests::Text(const Asked& asked, const char* szMember) {
    const Json::Value& jsText = asked.jsRequest[szMember];
    if (!jsText.isString()) {
        throw ControlError(Protocol::CODE_BAD_REQUEST, std::string("\"") + szMember + "\": expected a text");
    }
    return jsText.asString();
}

bool Requests::Flag(const Asked& asked, const char* szMember, bool bDefault) {
    const Json::Value& jsFlag = asked.jsRequest[szMember];
    if (jsFlag.isNull()) {
        return bDefault;
    }
    if (!jsFlag.isBool()) {
        throw ControlError(Protocol::CODE_BAD_REQUEST, std::string("\"") + szMember + "\": expected true or false");
    }
    return jsFlag.asBool();
}

Json::ArrayIndex Requests::Number(const Asked& asked, const char* szMember, Json::ArrayIndex uDefault) {
    const Json::Value& jsNumber = asked.jsRequest[szMember];
    if (jsNumber.isNull()) {
        return uDefault;
    }
    if (!jsNumber.isUInt()) {
        throw ControlError(Protocol::CODE_BAD_REQUEST, std::string("\"") + szMember + "\": expected a number");
    }
    return jsNumber.asUInt();
}

} // namespace

ControlServer::Handler MakeRequestHandler(Core& core, std::function<void()> reload) {
    return [requests = std::make_shared<Requests>(core, std::move(reload))](const Json::Value& jsRequest,
                                                                            const Peer& peer, const Reply& reply) {
        return requests->Answer(jsRequest, peer, reply);
    };
}

} // namespace VUKO::VUKOCrond::Service
