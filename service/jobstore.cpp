#include "service/jobstore.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

bool SameRanges(const CronJob& left, const CronJob& right, const std::string& strType) {
    const auto itLeft = left._mapRanges.find(strType);
    const auto itRight = right._mapRanges.find(strType);
    if (itLeft == left._mapRanges.end() || itRight == right._mapRanges.end()) {
        return false;
    }
    return std::equal(itLeft->second.begin(), itLeft->second.end(), itRight->second.begin(), itRight->second.end(),
                      [](const CronJob::Range& a, const CronJob::Range& b) {
                          return a.kind == b.kind && a.from == b.from && a.to == b.to;
                      });
}

/// The one place where a job gets the values of its random fields. A field that reads as before keeps what was drawn
/// for it, so that an edit of something else does not move the job.
void DrawSchedule(CronJob& job, const CronJob* pFormer) {
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        if (pFormer != nullptr && SameRanges(job, *pFormer, strType)) {
            job._jsJob["schedule"][strType] = pFormer->_jsJob["schedule"][strType];
        } else {
            job.GenerateSchedule(strType, -1);
        }
    }
}

/// The library prints the command into the execution log as it stands in "cmd_str", and uses that for nothing else: a
/// line feed in an argument must not begin a line there.
void KeepCommandOnOneLine(CronJob& job) {
    const std::string strCommand = job._jsJob["cmd_str"].asString();
    if (HoldsControlCharacter(strCommand)) {
        job._jsJob["cmd_str"] = Escaped(strCommand);
    }
}

/// @return nothing when the library refuses the definition after all.
std::optional<CronJob> BuildJob(const Definition& definition, const CronJob* pFormer) {
    Json::Value jsDocument(Json::objectValue);
    jsDocument["config"] = definition.jsDefinition;
    if (pFormer != nullptr) {
        for (const char* const szStamp : {"startup", "lastExecution"}) {
            if (pFormer->_jsJob.isMember(szStamp)) {
                jsDocument[szStamp] = pFormer->_jsJob[szStamp];
            }
        }
    }
    errno = 0; // the library's messages take their form by it
    CronJob job(std::move(jsDocument));
    if (!job._bValid) {
        return std::nullopt;
    }
    DrawSchedule(job, pFormer);
    KeepCommandOnOneLine(job);
    return job;
}

} // namespace

std::string ToText(const JobId& id) {
    std::string strText = id.strFolder + "/";
    if (!id.strPackage.empty()) {
        strText += id.strPackage + "/";
    }
    return Escaped(strText + id.strName);
}

LoadReport JobStore::Load(DefinitionScan scan) {
    LoadReport report;
    for (Refusal& refusal : scan.vecRefusals) {
        report.vecRefusals.push_back(std::move(refusal.strText));
    }
    JobMap mapBuilt;
    std::vector<Definition*> vecKept;
    std::map<JobId, const Definition*> mapFirst;
    for (Definition& definition : scan.vecDefinitions) {
        const auto [itFirst, bIsFirst] = mapFirst.emplace(definition.id, &definition);
        if (!bIsFirst) {
            report.vecRefusals.push_back(definition.strWhere + ": field \"name\": " + Quoted(definition.id.strName) +
                                         " is defined in " + Escaped(itFirst->second->strFile) + " already");
            continue;
        }
        const auto itFormer = _mapJobs.find(definition.id);
        const bool bKnown = itFormer != _mapJobs.end();
        if (bKnown && itFormer->second.jsDefinition == definition.jsDefinition) {
            vecKept.push_back(&definition);
            continue;
        }
        std::optional<CronJob> job = BuildJob(definition, bKnown ? &itFormer->second.job : nullptr);
        if (!job) {
            report.vecRefusals.push_back(definition.strWhere + ": the library refuses it");
            continue;
        }
        ++(bKnown ? report.uChanged : report.uNew);
        mapBuilt.emplace(definition.id, ScheduledJob{definition.strFile, definition.jsDefinition, std::move(*job), ""});
    }
    // Only from here on the jobs change, and nothing can fail half-way: what is kept moves over as it is.
    for (Definition* const pDefinition : vecKept) {
        auto node = _mapJobs.extract(pDefinition->id);
        node.mapped().strFile.swap(pDefinition->strFile);
        mapBuilt.insert(std::move(node));
    }
    report.uKept = vecKept.size();
    report.uGone = _mapJobs.size() - report.uChanged;
    _mapJobs.swap(mapBuilt);
    report.uJobs = _mapJobs.size();
    return report;
}

} // namespace VUKO::VUKOCrond::Service
