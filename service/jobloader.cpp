#include "service/jobloader.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>
#include <utility>

#include "crond/utils.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// A definition with every optional member written out.
Json::Value WithDefaults(Json::Value jsDefinition) {
    const std::pair<const char*, Json::Value> aDefaults[] = {
        {"assure_execute", 0},     {"assure_execute_action", "wait"},
        {"run_on_passive", false}, {"enabled", true},
        {"overlap", "skip"},       {"timeout", 0},
        {"description", ""}};
    for (const auto& [szMember, jsDefault] : aDefaults) {
        if (!jsDefinition.isMember(szMember)) {
            jsDefinition[szMember] = jsDefault;
        }
    }
    return jsDefinition;
}

/// The comparison looks at what its left side holds, so it is asked both ways: a member that was taken out is a change
/// unless it said what is so by default.
bool SaysTheSame(const std::string& strFormer, const Definition& definition) {
    if (strFormer == definition.strText) {
        return true;
    }
    const Json::Value jsFormer = DefinitionFromText(strFormer);
    return isIdenticalJSON(definition.jsDefinition, WithDefaults(jsFormer)) &&
           isIdenticalJSON(jsFormer, WithDefaults(definition.jsDefinition));
}

/// The one place where a job gets the values of its random fields. A field that reads as before keeps what was drawn
/// for it, so that an edit of something else does not move the job.
void DrawSchedule(Job& job, CronJob& record, const ScheduleTemplate& scheduleTemplate) {
    const std::vector<std::string> vecFormer = SplitFields(job.strFields);
    const std::vector<std::string> vecFields = SplitFields(FieldsToText(record));
    std::optional<CronJob> former;
    if (vecFormer.size() == vecFields.size()) {
        former = record;
        if (!ScheduleFromText(*former, job.strSchedule)) {
            former.reset();
        }
    }
    const std::vector<std::string>& vecTypes = CronJob::GetAllScheduleTypes();
    for (std::size_t uField = 0; uField < vecTypes.size(); ++uField) {
        const std::string& strType = vecTypes[uField];
        if (former && vecFormer[uField] == vecFields[uField]) {
            record._jsJob["schedule"][strType] = former->_jsJob["schedule"][strType];
        } else {
            record.GenerateSchedule(strType, scheduleTemplate.GetGeneratedSchedule(strType));
        }
    }
    job.strSchedule = ScheduleToText(record);
    job.schedule = Schedule(job.strSchedule);
}

Job FromStored(const StoredJob& stored) {
    Job job;
    job.id = stored.id;
    job.iKey = stored.iKey;
    job.strFile = stored.strFile;
    job.strFields = stored.strFields;
    job.strSchedule = stored.strSchedule;
    job.schedule = Schedule(stored.strSchedule);
    job.iStartup = stored.iStartup;
    job.iLastExecution = stored.iLastExecution;
    job.bOverdueReported = stored.bOverdueReported;
    return job;
}

/// A known job of which nothing is valid now but that it was there.
Job Invalid(const Job& known) {
    Job job = FromStored(ToStored(known));
    job.bInvalid = true;
    job.uRunning = known.uRunning;
    job.pidRunning = known.pidRunning;
    job.iRunningSince = known.iRunningSince;
    job.uPendingRun = known.uPendingRun;
    job.iPendingMinute = known.iPendingMinute;
    job.iPendingTicks = known.iPendingTicks;
    job.uLastRun = known.uLastRun;
    job.eLastEnd = known.eLastEnd;
    job.iLastCode = known.iLastCode;
    job.iLastEndUsec = known.iLastEndUsec;
    job.iLastDurationUsec = known.iLastDurationUsec;
    job.iLastSuccessUsec = known.iLastSuccessUsec;
    return job;
}

/// Collects what one loading comes to. The steps share it.
class Loader {
public:
    Loader(const JobTable& former, const KnownJobs& mapKnown, const ScheduleTemplate& scheduleTemplate,
           std::int64_t iNow)
        : _former(former), _mapKnown(mapKnown), _template(scheduleTemplate), _iNow(iNow) {}

    LoadResult Take(DefinitionScan scan);

private:
    void TakeDefinition(Definition& definition);
    bool Build(Job& job, const Definition& definition);
    void TakeInvalid();
    void TakeGone();

    const JobTable& _former;
    const KnownJobs& _mapKnown;
    const ScheduleTemplate& _template;
    const std::int64_t _iNow;
    LoadResult _result;
    std::map<JobId, const Definition*> _mapTaken;
};

LoadResult Loader::Take(DefinitionScan scan) {
    _result.report.vecRefusals = std::move(scan.vecRefusals);
    _result.vecJobs.reserve(scan.vecDefinitions.size());
    for (Definition& definition : scan.vecDefinitions) {
        TakeDefinition(definition);
    }
    _result.report.uJobs = _result.vecJobs.size();
    TakeInvalid();
    TakeGone();
    return std::move(_result);
}

void Loader::TakeDefinition(Definition& definition) {
    const auto [itFirst, bIsFirst] = _mapTaken.emplace(definition.id, &definition);
    if (!bIsFirst) {
        _result.report.vecRefusals.push_back(
            {definition.strFile, definition.strWhere + ": field \"name\": " + Quoted(definition.id.strName) +
                                     " is defined in " + Escaped(itFirst->second->strFile) + " already"});
        return;
    }
    const Job* const pFormer = _former.Find(definition.id);
    if (pFormer != nullptr && !pFormer->bInvalid && SaysTheSame(pFormer->strDefinition, definition)) {
        Job job = *pFormer;
        if (job.strFile != definition.strFile) {
            _result.vecToStore.push_back(job.id);
        }
        job.strFile = definition.strFile;
        job.strDefinition = definition.strText; // it may be worded otherwise
        _result.vecJobs.push_back(std::move(job));
        ++_result.report.uKept;
        return;
    }
    const auto itKnown = _mapKnown.find(definition.id);
    Job job = pFormer != nullptr ? *pFormer : itKnown != _mapKnown.end() ? FromStored(itKnown->second) : Job();
    const bool bIsNew = pFormer == nullptr && itKnown == _mapKnown.end();
    job.id = definition.id;
    job.strFile = definition.strFile;
    if (bIsNew) {
        job.iStartup = _iNow;
    }
    if (!Build(job, definition)) {
        _result.report.vecRefusals.push_back({definition.strFile, definition.strWhere + ": the library refuses it"});
        _mapTaken.erase(itFirst);
        return;
    }
    const bool bWasThere = pFormer == nullptr && itKnown != _mapKnown.end() && itKnown->second.iGoneSince == 0;
    ++(bWasThere                                 ? _result.report.uKept // in a former life of the service
       : pFormer == nullptr || pFormer->bInvalid ? _result.report.uNew
                                                 : _result.report.uChanged);
    _result.vecToStore.push_back(job.id);
    _result.vecJobs.push_back(std::move(job));
}

bool Loader::Build(Job& job, const Definition& definition) {
    Json::Value jsDocument(Json::objectValue);
    jsDocument["config"] = definition.jsDefinition;
    jsDocument["startup"] = static_cast<Json::Int64>(job.iStartup);
    errno = 0; // the library's messages take their form by it
    CronJob record(std::move(jsDocument));
    if (!record._bValid) {
        return false;
    }
    DrawSchedule(job, record, _template);
    Service::TakeDefinition(job, definition.jsDefinition, record, definition.strText);
    return true;
}

void Loader::TakeInvalid() {
    std::set<std::string> setRefused;
    for (const Refusal& refusal : _result.report.vecRefusals) {
        setRefused.insert(refusal.strFile);
    }
    const auto isInvalid = [&](const JobId& id, const std::string& strFile) {
        return setRefused.contains(strFile) && !_mapTaken.contains(id);
    };
    for (const Job& job : _former.Jobs()) {
        if (isInvalid(job.id, job.strFile)) {
            _result.vecJobs.push_back(Invalid(job));
        }
    }
    for (const auto& [id, stored] : _mapKnown) {
        if (stored.iGoneSince == 0 && isInvalid(id, stored.strFile) && _former.Find(id) == nullptr) {
            _result.vecJobs.push_back(Invalid(FromStored(stored)));
        }
    }
    _result.report.uInvalid = _result.vecJobs.size() - _result.report.uJobs;
}

/// Also those that are known from a former life and were not found in this one.
void Loader::TakeGone() {
    std::set<JobId> setThere;
    for (const Job& job : _result.vecJobs) {
        setThere.insert(job.id);
    }
    const auto takeGone = [&](StoredJob stored) {
        stored.iGoneSince = _iNow;
        _result.vecGone.push_back(std::move(stored));
        ++_result.report.uGone;
    };
    for (const Job& job : _former.Jobs()) {
        if (!setThere.contains(job.id)) {
            takeGone(ToStored(job));
        }
    }
    for (const auto& [id, stored] : _mapKnown) {
        if (stored.iGoneSince == 0 && !setThere.contains(id) && _former.Find(id) == nullptr) {
            takeGone(stored);
        }
    }
}

} // namespace

LoadResult LoadJobs(DefinitionScan scan, const JobTable& former, const KnownJobs& mapKnown,
                    const ScheduleTemplate& scheduleTemplate, std::int64_t iNow) {
    return Loader(former, mapKnown, scheduleTemplate, iNow).Take(std::move(scan));
}

StoredJob ToStored(const Job& job) {
    StoredJob stored;
    stored.iKey = job.iKey;
    stored.id = job.id;
    stored.strFile = job.strFile;
    stored.strFields = job.strFields;
    stored.strSchedule = job.strSchedule;
    stored.iStartup = job.iStartup;
    stored.iLastExecution = job.iLastExecution;
    stored.bOverdueReported = job.bOverdueReported;
    return stored;
}

std::string Rerolled(const Job& job) {
    CronJob record = BuildRecord(job);
    if (!record._bValid) {
        return job.strSchedule;
    }
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        record.GenerateSchedule(strType, -1);
    }
    return ScheduleToText(record);
}

} // namespace VUKO::VUKOCrond::Service
