#include <ctime>
#include <iostream>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/nextstarts.h"
#include "ctl/pager.h"
#include "ctl/table.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

/// As much of a job as its next start by schedule needs.
Job Scheduled(const Json::Value& jsJob) {
    Job job;
    job.strSchedule = jsJob["schedule"].asString();
    job.schedule = Schedule(job.strSchedule);
    return job;
}

std::string LastText(const Json::Value& jsJob, std::time_t tNow) {
    if (jsJob["lastExecution"].isNull()) {
        return "never";
    }
    const std::int64_t iAgo = std::max<std::int64_t>(0, tNow - jsJob["lastExecution"].asInt64());
    return DurationText(iAgo) + " ago" + (jsJob["last"].isNull() ? "" : ", " + EndText(jsJob["last"], "end"));
}

ExitStatus Run(const Common& common) {
    UseZone(std::string());
    Client client(common.strRoot);
    const std::time_t tNow = time(nullptr);
    const ClockPolicy ePolicy = ClockPolicyOf(client.Ask("status")["policy"].asString()).value_or(ClockPolicy::CatchUp);
    Json::Value jsJobs = client.AskAll("list");
    Table table({"JOB", "ACCOUNT", "STATE", "NEXT", "LEFT", "LAST", "SCHEDULE"});
    for (Json::Value& jsJob : jsJobs) {
        const bool bGoesOn = jsJob["enabled"].asBool() && jsJob["state"] != "invalid";
        const std::vector<NextStart> vecNext =
            bGoesOn ? FindNextStarts(Scheduled(jsJob), ePolicy, tNow, 1) : std::vector<NextStart>();
        jsJob["next"] =
            vecNext.empty() ? Json::Value() : Json::Value(static_cast<Json::Int64>(vecNext.front().tInstant));
        table.Add({jsJob["id"].asString(), jsJob["account"].asString(), jsJob["state"].asString(),
                   vecNext.empty() ? "-" : LocalText(vecNext.front().tInstant),
                   vecNext.empty() ? "-" : DurationText(vecNext.front().tInstant - tNow), LastText(jsJob, tNow),
                   jsJob["words"].asString()});
    }
    if (common.bJson) {
        Json::Value jsResult(Json::objectValue);
        jsResult["jobs"] = jsJobs;
        PrintJson(jsResult);
    } else {
        const Pager pager(common);
        table.Print(std::cout);
        std::cout << "\n" << jsJobs.size() << (jsJobs.size() == 1 ? " job" : " jobs") << " listed.\n";
    }
    return EXIT_DONE;
}

} // namespace

void AddList(CLI::App& app, Common& common) {
    AddCommand(app, common, "list", "Show the jobs, when they start next and how they ended",
               [&common] { return Run(common); });
}

} // namespace VUKO::VUKOCrond::Ctl
