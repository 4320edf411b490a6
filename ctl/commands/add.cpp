#include <algorithm>
#include <iostream>
#include <limits>
#include <memory>

#include "crond/configmanager.h"
#include "crond/cronjob.h"
#include "ctl/changereport.h"
#include "ctl/command.h"
#include "ctl/filechanges.h"
#include "ctl/newdefinition.h"
#include "ctl/proposal.h"
#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Asked {
    std::string strFile;
    std::string strPackage;
    bool bPkg = false;
    bool bReplace = false;
    bool bPeriod = false; ///< of four flags; which one, the option knows
    NewDefinition wanted;
    std::vector<CommandOption> vecTimes; ///< options of which one is wanted
    std::vector<CommandOption> vecWords; ///< options that say what a file says itself
};

[[noreturn]] void BadUsage(const std::string& strMessage) {
    throw ToolError(EXIT_BAD_USAGE, "add: " + strMessage);
}

bool IsGiven(const CommandOption& option) {
    return option.IsGiven();
}

void RequireUsage(const Asked& asked, const Common& common) {
    const auto itWord = std::find_if(asked.vecWords.begin(), asked.vecWords.end(), IsGiven);
    const bool bWords = itWord != asked.vecWords.end() || !common.vecCommand.empty();
    if (!asked.strFile.empty() && bWords) {
        BadUsage(Readable(asked.strFile) + " is taken for a file, which says all itself: no " +
                 (itWord != asked.vecWords.end() ? itWord->Name() : std::string("command")) +
                 " with it (a job is named by --name, its command stands behind --)");
    }
    if (!asked.strFile.empty()) {
        return;
    }
    if (!bWords) {
        BadUsage("name a file, - for standard input, or say the job: --name NAME --daily -- COMMAND");
    }
    if (asked.wanted.strName.empty()) {
        BadUsage("say the job's --name");
    }
    if (std::count_if(asked.vecTimes.begin(), asked.vecTimes.end(), IsGiven) != 1) {
        BadUsage("say when, by one of --crontab \"M H D M W\", --hourly, --daily, --weekly, --monthly");
    }
    if (common.vecCommand.empty()) {
        BadUsage("say the command after --");
    }
}

Proposal ProposalOfWords(const Asked& asked, const Common& common, const Place& place) {
    NewDefinition wanted = asked.wanted;
    wanted.vecCommand = common.vecCommand;
    const CommandOption time = *std::find_if(asked.vecTimes.begin(), asked.vecTimes.end(), IsGiven);
    wanted.strPeriod = time.Name().substr(2); // the option's name is the period's
    if (wanted.strUser.empty()) {
        wanted.strUser = place.IsOfPackageAccount() ? "package" : "root";
    }
    if (wanted.iAssureHours != 0 && wanted.strAssureAction.empty()) {
        wanted.strAssureAction = "run"; // whoever asks for it wants more than a message
    }
    Proposal proposal{wanted.strName};
    proposal.vecDefinitions.push_back(ToDefinition(wanted));
    return proposal;
}

/// In a package's folder its account is the only one that there can be.
void FillAccount(Json::Value& jsDefinition, const Place& place) {
    if (!jsDefinition.isObject() || !place.IsOfPackageAccount()) {
        return;
    }
    if (!jsDefinition.isMember("user")) {
        jsDefinition["user"] = "package";
    }
    if (const uid_t uidOwner = OwnerOf(place); uidOwner != 0) {
        ConfigManager::ReplacePkgUserName(jsDefinition, AccountName(uidOwner));
    }
}

ChangedJob Stage(FileChanges& changes, const DefinedJobs& jobs, const Json::Value& jsDefinition, const Place& place,
                 bool bReplace) {
    const std::string strName = jsDefinition["name"].asString();
    const Service::JobId id = place.IdOf(strName);
    const std::optional<Found> found = jobs.Find(id);
    if (found && !bReplace) {
        throw ToolError(EXIT_WRONG, ToText(id) + " is there already, in " + found->file.Path() +
                                        ": nothing is stored; --replace puts this one in its place, and " +
                                        "\"vukocronctl edit\" changes it");
    }
    ChangedJob job{"added", id, {place, strName}, std::nullopt, jsDefinition};
    if (found) {
        job.szChange = "replaced";
        job.file = found->file;
        job.before = found->definition;
        changes.Replace(*found, jsDefinition);
    } else {
        changes.Add(job.file, jsDefinition);
    }
    return job;
}

ExitStatus Run(const Asked& asked, const Common& common) {
    RequireUsage(asked, common);
    const Place place = asked.bPkg ? Place{SZK_CRON_FOLDER_PKG, std::string()} : PlaceForNew(asked.strPackage);
    RequireWritable(place, "this folder");
    Proposal proposal = asked.strFile.empty() ? ProposalOfWords(asked, common, place) : ReadProposal(asked.strFile);
    for (Json::Value& jsDefinition : proposal.vecDefinitions) {
        FillAccount(jsDefinition, place);
    }
    if (!IsGood(proposal, place)) {
        throw ToolError(proposal.bDenied ? EXIT_DENIED : EXIT_WRONG, "nothing is stored");
    }
    const DefinedJobs jobs;
    FileChanges changes;
    std::vector<ChangedJob> vecChanged;
    for (const Json::Value& jsDefinition : proposal.vecDefinitions) {
        vecChanged.push_back(Stage(changes, jobs, jsDefinition, place, asked.bReplace));
    }
    changes.Commit();
    ServiceView service(common.strRoot);
    return TellChanges(service, vecChanged, common);
}

/// What only a definition in words needs; a file says it itself.
void AddWords(const Command& command, Asked& asked) {
    NewDefinition& wanted = asked.wanted;
    asked.vecTimes = {
        command.Option("--crontab", wanted.strCrontab, "Five fields, in one argument").Type("\"M H D M W\"")};
    for (const char* const szPeriod : {"--hourly", "--daily", "--weekly", "--monthly"}) {
        asked.vecTimes.push_back(
            command.Flag(szPeriod, asked.bPeriod, "At random times of that period, which are kept"));
    }
    std::vector<CommandOption>& vecWords = asked.vecWords;
    vecWords = asked.vecTimes;
    const auto text = [&](const char* szName, std::string& strValue, const char* szType, const char* szHelp) {
        vecWords.push_back(command.Option(szName, strValue, szHelp).Type(szType));
        return vecWords.back();
    };
    const auto number = [&](const char* szName, int& iValue, const char* szType, const char* szHelp) {
        vecWords.push_back(
            command.Option(szName, iValue, szHelp).Type(szType).Within(0, std::numeric_limits<int>::max()));
    };
    text("--name", wanted.strName, "NAME", "The job's name");
    text("--user", wanted.strUser, "CLASS", "root, system or package (root; in a package's folder: package)")
        .OneOf({"root", "system", "package"});
    text("--package-username", wanted.strPackageUser, "ACCOUNT", "Account of a package's job (the folder's owner)");
    number("--assure", wanted.iAssureHours, "HOURS", "Start it when it has not run for so long");
    text("--assure-action", wanted.strAssureAction, "ACTION", "run, or wait: only tell of it (run)")
        .OneOf({"run", "wait"});
    number("--timeout", wanted.iTimeout, "SECONDS", "End it after so long (never)");
    text("--overlap", wanted.strOverlap, "WHAT", "skip or allow: a start while its last run goes on (skip)")
        .OneOf({"skip", "allow"});
    text("--description", wanted.strDescription, "TEXT", "For people");
    vecWords.push_back(command.Flag("--run-on-passive", wanted.bRunOnPassive, "Also where the role is passive"));
    vecWords.push_back(command.Flag("--disabled", wanted.bDisabled, "Known, but not started by its schedule"));
}

} // namespace

void AddAdd(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command = AddCommand(app, common, "add", "Add jobs from a file or from words",
                                       [asked, &common] { return Run(*asked, common); });
    command.Option("FILE", asked->strFile,
                   "Definition file, - for standard input; without one: options, and -- COMMAND ARGS...");
    const CommandOption package =
        command.Option("--package", asked->strPackage, "Into the folder of a package with an account of its own")
            .Type("PACKAGE");
    command.Flag("--pkg", asked->bPkg, "Into the folder of packages that run as root").Excludes(package);
    command.Flag("--replace", asked->bReplace, "Put it in the place of the job of that name");
    AddWords(command, *asked);
}

} // namespace VUKO::VUKOCrond::Ctl
