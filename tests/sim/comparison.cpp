#include "tests/sim/comparison.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>

#include "service/engine/simulator.h"
#include "tests/service/engine/engine_jobs.h"

using namespace VUKO::VUKOCrond::Service;

namespace sim {

namespace {

SimEvent::Kind KindOf(const std::string& strWhat) {
    static const std::map<std::string, SimEvent::Kind> mapKinds = {{"clock", SimEvent::Kind::Clock},
                                                                   {"down", SimEvent::Kind::Down},
                                                                   {"hibernate", SimEvent::Kind::Hibernate},
                                                                   {"passive", SimEvent::Kind::Passive},
                                                                   {"active", SimEvent::Kind::Active}};
    return mapKinds.at(strWhat);
}

/// In the order of the model's jobs: sorted by name, as the table has them.
JobTable TableOf(const std::vector<CronJob>& vecRecords) {
    std::vector<Job> vecJobs;
    for (const CronJob& record : vecRecords) {
        vecJobs.push_back(engine_test::JobOf(record, record._jsJob["startup"].asInt64()));
    }
    return JobTable(std::move(vecJobs));
}

std::string ToLine(const char* szWho, const ModelOutcome& outcome) {
    std::tm tmLocal = *localtime(&outcome.tTick);
    char szTime[40];
    std::strftime(szTime, sizeof(szTime), "%Y-%m-%dT%H:%M:%S%z", &tmLocal);
    const std::time_t tMinute = outcome.iMinute * 60;
    tmLocal = *gmtime(&tMinute);
    char szMinute[40];
    std::strftime(szMinute, sizeof(szMinute), "%m-%d %H:%M", &tmLocal);
    return std::string(szWho) + ": " + std::to_string(outcome.tTick) + " (" + szTime + ") " + outcome.strJob + " " +
           outcome.strWhat + " for " + szMinute + "\n";
}

} // namespace

bool IsLong() {
    const char* const szLong = std::getenv("VUKO_LONG");
    return szLong != nullptr && std::string(szLong) == "1";
}

std::uint64_t SeedOfThisRun(std::uint64_t uDefault) {
    const char* const szSeed = std::getenv("VUKO_SEED");
    return szSeed != nullptr ? std::strtoull(szSeed, nullptr, 10) : uDefault;
}

std::vector<ModelOutcome> Simulate(const Stretch& stretch, const std::vector<CronJob>& vecRecords) {
    std::vector<SimEvent> vecEvents;
    for (const ModelEvent& event : stretch.vecEvents) {
        vecEvents.push_back({event.tInstant, KindOf(event.strWhat), event.iSeconds});
    }
    std::vector<ModelOutcome> vecOutcomes;
    Simulator simulator({stretch.bLiteral ? ClockPolicy::Literal : ClockPolicy::CatchUp, 0}, TableOf(vecRecords));
    const auto told = [&](const ClockReading& reading, const Decision& decision, const JobTable& table) {
        const auto tell = [&](JobIndex uJob, std::int64_t iMinute, const char* szWhat) {
            vecOutcomes.push_back({reading.tNow, table.At(uJob).id.strName, iMinute, szWhat});
        };
        for (const Start& start : decision.vecStarts) {
            tell(start.uJob, start.iMinute, ToText(start.eReason));
        }
        for (const Skip& skip : decision.vecSkips) {
            tell(skip.uJob, skip.iMinute, ToText(skip.eReason));
        }
        for (const JobIndex uJob : decision.vecOverdue) {
            tell(uJob, reading.iLocalMinute, "overdue");
        }
        return true;
    };
    simulator.Run(stretch.tFrom, stretch.tTo, vecEvents, told);
    std::sort(vecOutcomes.begin(), vecOutcomes.end());
    return vecOutcomes;
}

std::string Differences(const Stretch& stretch, const std::vector<CronJob>& vecRecords, std::size_t& uOutcomes) {
    constexpr std::size_t MAX_SHOWN = 6;
    const std::vector<ModelOutcome> vecModel =
        NaiveModel(stretch.bLiteral, vecRecords).Run(stretch.tFrom, stretch.tTo, stretch.vecEvents);
    const std::vector<ModelOutcome> vecService = Simulate(stretch, vecRecords);
    uOutcomes += vecModel.size();
    std::vector<ModelOutcome> vecOnlyModel;
    std::vector<ModelOutcome> vecOnlyService;
    std::set_difference(vecModel.begin(), vecModel.end(), vecService.begin(), vecService.end(),
                        std::back_inserter(vecOnlyModel));
    std::set_difference(vecService.begin(), vecService.end(), vecModel.begin(), vecModel.end(),
                        std::back_inserter(vecOnlyService));
    std::string strLines;
    for (std::size_t u = 0; u < std::min(MAX_SHOWN, vecOnlyModel.size()); ++u) {
        strLines += ToLine("model only", vecOnlyModel[u]);
    }
    for (std::size_t u = 0; u < std::min(MAX_SHOWN, vecOnlyService.size()); ++u) {
        strLines += ToLine("service only", vecOnlyService[u]);
    }
    return strLines;
}

} // namespace sim
