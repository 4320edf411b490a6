#include <memory>

#include "ctl/changereport.h"
#include "ctl/command.h"
#include "ctl/filechanges.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

ExitStatus Run(const std::vector<std::string>& vecNames, bool bEnable, const Common& common) {
    const DefinedJobs jobs;
    FileChanges changes;
    std::vector<ChangedJob> vecChanged;
    for (const Found& found : jobs.FindToChange(vecNames)) {
        if (!found.definition) {
            throw ToolError(EXIT_WRONG, "the service refuses " + jobs.WhyRefused(found.file) + ": \"vukocronctl edit " +
                                            ToText(found.id) + "\" repairs it");
        }
        ChangedJob job{"unchanged", found.id, found.file, found.definition, found.definition};
        if (found.definition->get("enabled", true).asBool() != bEnable) {
            job.szChange = bEnable ? "enabled" : "disabled";
            (*job.after)["enabled"] = bEnable;
            changes.Replace(found, *job.after);
        }
        vecChanged.push_back(job);
    }
    changes.Commit();
    ServiceView service(common.strRoot);
    return TellChanges(service, vecChanged, common);
}

void Add(CLI::App& app, Common& common, const char* szName, const char* szHelp, bool bEnable) {
    const auto vecNames = std::make_shared<std::vector<std::string>>();
    AddCommand(app, common, szName, szHelp, [vecNames, bEnable, &common] { return Run(*vecNames, bEnable, common); })
        .Option("JOB", *vecNames, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME")
        .Required();
}

} // namespace

void AddEnableCommands(CLI::App& app, Common& common) {
    Add(app, common, "enable", "Let the schedule start jobs", true);
    Add(app, common, "disable", "Keep the schedule from starting jobs; they stay known", false);
}

} // namespace VUKO::VUKOCrond::Ctl
