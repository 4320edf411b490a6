#include <memory>

#include "ctl/changereport.h"
#include "ctl/command.h"
#include "ctl/filechanges.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

ExitStatus Run(const std::vector<std::string>& vecNames, const Common& common) {
    const DefinedJobs jobs;
    ServiceView service(common.strRoot);
    FileChanges changes;
    std::vector<ChangedJob> vecChanged;
    for (const Found& found : jobs.FindToChange(vecNames)) {
        for (const Found& one : jobs.FindAll(found.id)) { // else the next one would take the place of the first
            changes.Remove(one);
        }
        ChangedJob job{"removed", found.id, found.file, found.definition, std::nullopt};
        const Json::Value jsRunning = service.Show(found.id)["running"];
        job.strNote = jsRunning.isNull() ? "" : "its process " + jsRunning["pid"].asString() + " goes on";
        vecChanged.push_back(job);
    }
    changes.Commit();
    return TellChanges(service, vecChanged, common);
}

} // namespace

void AddRemove(CLI::App& app, Common& common) {
    const auto vecNames = std::make_shared<std::vector<std::string>>();
    AddCommand(app, common, "remove", "Take jobs away", [vecNames, &common] { return Run(*vecNames, common); })
        .Option("JOB", *vecNames, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME")
        .Required();
}

} // namespace VUKO::VUKOCrond::Ctl
