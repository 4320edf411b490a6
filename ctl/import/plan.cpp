#include "ctl/import/plan.h"

#include <set>

#include "ctl/filechanges.h"
#include "ctl/import/croncommand.h"
#include "platform/vukojson.h"
#include "service/definitions/definitionpolicy.h"
#include "service/definitions/definitionreason.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using State = PlannedJob::State;

/// The service reads no larger file; indentation is what the file has more than this text.
constexpr std::size_t FILE_BYTES_MAX = std::size_t{256} * 1024 - 4096;

/// What makes a job the same one, whatever it is called and wherever it was imported from.
Json::Value Essence(Json::Value jsDefinition) {
    for (const char* const szMember : {"name", "description", "enabled"}) {
        jsDefinition.removeMember(szMember);
    }
    return jsDefinition;
}

std::string WhyNot(const Json::Value& jsDefinition, const Service::DefinitionOrigin& origin) {
    std::string strReason = Service::WhyInvalid(jsDefinition);
    strReason = strReason.empty() ? Service::WhyRefused(jsDefinition, origin) : strReason;
    if (strReason.empty() && JSON::toString(jsDefinition).size() > FILE_BYTES_MAX) {
        strReason = "the definition is larger than what the service reads of a file";
    }
    return strReason;
}

class Planner {
public:
    explicit Planner(const ImportOptions& options) : _options(options), _origin(OriginOf(options.place)) {}

    PlannedItem Take(ImportItem item) const;
    void FindExisting(PlannedItem& planned);
    void Name(PlannedItem& planned);

private:
    std::string NameOf(const ImportItem& item, int iNumber) const {
        return SafeName(_options.strPrefix + item.strName) + (iNumber == 1 ? "" : "-" + std::to_string(iNumber));
    }
    std::optional<Found> Find(const std::string& strName) const { return _jobs.Find(_options.place.IdOf(strName)); }

    const ImportOptions& _options;
    Service::DefinitionOrigin _origin;
    DefinedJobs _jobs;
    std::set<std::string> _setTaken;
};

PlannedItem Planner::Take(ImportItem item) const {
    PlannedItem planned;
    for (const Json::Value& jsDefinition : item.vecDefinitions) {
        PlannedJob job;
        job.jsDefinition = jsDefinition;
        job.jsDefinition["name"] = NameOf(item, 1);
        if (_options.bDisabled) {
            job.jsDefinition["enabled"] = false;
        }
        if (const std::string strReason = WhyNot(job.jsDefinition, _origin); !strReason.empty()) {
            item.Refuse(strReason);
            planned.vecJobs.clear();
            break;
        }
        planned.vecJobs.push_back(job);
    }
    planned.item = std::move(item);
    return planned;
}

void Planner::FindExisting(PlannedItem& planned) {
    for (PlannedJob& job : planned.vecJobs) {
        for (int i = 1;; ++i) {
            const std::string strName = NameOf(planned.item, i);
            const std::optional<Found> found = Find(strName);
            if (!found) {
                break;
            }
            if (found->definition && Essence(*found->definition) == Essence(job.jsDefinition) &&
                _setTaken.insert(strName).second) {
                job.eState = State::Existing;
                job.jsDefinition = *found->definition;
                job.found = found;
                break;
            }
        }
    }
}

void Planner::Name(PlannedItem& planned) {
    for (PlannedJob& job : planned.vecJobs) {
        if (job.eState == State::Existing) {
            continue;
        }
        int iNumber = 1;
        while (!_setTaken.insert(NameOf(planned.item, iNumber)).second) {
            ++iNumber;
        }
        const std::string strName = NameOf(planned.item, iNumber);
        job.jsDefinition["name"] = strName;
        job.found = Find(strName);
        if (job.found) {
            job.eState = _options.bReplace ? State::Replacing : State::Conflict;
        }
    }
}

} // namespace

std::vector<PlannedItem> PlanImport(std::vector<ImportItem> vecItems, const ImportOptions& options) {
    Planner planner(options);
    std::vector<PlannedItem> vecPlanned;
    for (ImportItem& item : vecItems) {
        vecPlanned.push_back(planner.Take(std::move(item)));
    }
    for (PlannedItem& planned : vecPlanned) { // all of these first: their names are not to be had any more
        planner.FindExisting(planned);
    }
    for (PlannedItem& planned : vecPlanned) {
        planner.Name(planned);
    }
    return vecPlanned;
}

void StorePlan(const std::vector<PlannedItem>& vecItems, const Place& place) {
    FileChanges changes;
    for (const PlannedItem& planned : vecItems) {
        for (const PlannedJob& job : planned.vecJobs) {
            if (job.eState == State::Replacing) {
                changes.Replace(*job.found, job.jsDefinition);
            } else if (job.eState == State::New) {
                changes.Add({place, job.Name()}, job.jsDefinition);
            }
        }
    }
    changes.Commit();
}

} // namespace VUKO::VUKOCrond::Ctl
