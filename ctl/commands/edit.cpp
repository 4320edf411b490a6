#include <unistd.h>

#include <iostream>
#include <memory>

#include "crond/cronjob.h"
#include "ctl/changereport.h"
#include "ctl/command.h"
#include "ctl/draft.h"
#include "ctl/filechanges.h"
#include "ctl/proposal.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string Indented(const Json::Value& jsValue) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, jsValue) + "\n";
}

/// Why the draft is of another job; empty when it is not.
std::string WhyAnotherJob(const Proposal& proposal, const Found& found) {
    if (proposal.bArray) {
        return "expected an object, found an array";
    }
    const std::string strName = proposal.vecDefinitions.front()["name"].asString();
    if (strName == found.id.strName) {
        return std::string();
    }
    return "field \"name\": expected \"" + found.id.strName + "\", found \"" + strName +
           "\": a job's random values and history go by its name; add a job of the new name and remove this one";
}

/// Judges the draft, and tells what there is to say of it. A file that was refused as a whole may hold anything.
bool MayBeStored(const Draft& draft, const Found& found, Proposal& proposal) {
    proposal = ReadProposal(draft.Path());
    proposal.strWhere = found.id.strName;
    if (!IsGood(proposal, PlaceOf(found.id))) {
        return false;
    }
    const std::string strReason = found.definition ? WhyAnotherJob(proposal, found) : std::string();
    if (!strReason.empty()) {
        std::cerr << found.id.strName << ": error: " << strReason << "\n";
    }
    return strReason.empty();
}

bool IsToBeEditedAgain() {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        return false;
    }
    std::cerr << "Edit again? [Y/n] " << std::flush;
    std::string strAnswer;
    return std::getline(std::cin, strAnswer) && (strAnswer.empty() || strAnswer[0] == 'y' || strAnswer[0] == 'Y');
}

/// Leaves the draft to the user, who has to know what to do with it.
std::string KeepDraft(Draft& draft, const Found& found) {
    const std::string strOption = found.id.strFolder == SZK_CRON_FOLDER_PKG ? "--pkg "
                                  : found.id.strPackage.empty()             ? ""
                                                                            : "--package " + found.id.strPackage + " ";
    return "the draft is " + draft.Keep() + " (once mended, \"vukocronctl add --replace " + strOption +
           "FILE\" stores it)";
}

/// @return whether there is something new to be stored.
bool Edit(Draft& draft, const Found& found, Proposal& proposal) {
    for (;;) {
        draft.Edit();
        if (MayBeStored(draft, found, proposal)) {
            return !found.definition || proposal.vecDefinitions.front() != *found.definition;
        }
        if (!IsToBeEditedAgain()) {
            throw ToolError(EXIT_WRONG, "nothing is stored; " + KeepDraft(draft, found));
        }
    }
}

ExitStatus NothingChanged(const Common& common) {
    std::cerr << "Nothing is changed.\n";
    if (common.bJson) {
        Json::Value jsResult(Json::objectValue);
        jsResult["jobs"] = Json::Value(Json::arrayValue);
        PrintJson(jsResult);
    }
    return EXIT_DONE;
}

Json::Value DocumentOf(const Proposal& proposal) {
    if (!proposal.bArray) {
        return proposal.vecDefinitions.front();
    }
    Json::Value jsDocument(Json::arrayValue);
    for (const Json::Value& jsDefinition : proposal.vecDefinitions) {
        jsDocument.append(jsDefinition);
    }
    return jsDocument;
}

void Store(FileChanges& changes, Draft& draft, const Found& found, const Proposal& proposal) {
    try {
        if (found.definition) {
            changes.Replace(found, proposal.vecDefinitions.front());
        } else {
            changes.Rewrite(found.file, DocumentOf(proposal));
        }
        changes.Commit();
    } catch (const ToolError& error) {
        throw ToolError(error.Status(), error.what() + ("; " + KeepDraft(draft, found)));
    }
}

ExitStatus Run(const std::string& strJob, const Common& common) {
    const Found found = DefinedJobs().Find(strJob);
    RequireWritable(PlaceOf(found.id), ToText(found.id));
    FileChanges changes;
    changes.Watch(found.file);
    Draft draft(found.id.strName, found.definition ? Indented(*found.definition) : ReadText(found.file));
    Proposal proposal;
    if (!Edit(draft, found, proposal)) {
        return NothingChanged(common);
    }
    Store(changes, draft, found, proposal);
    std::vector<ChangedJob> vecJobs;
    for (const Json::Value& jsDefinition : proposal.vecDefinitions) {
        const Service::JobId id = PlaceOf(found.id).IdOf(jsDefinition["name"].asString());
        vecJobs.push_back({"changed", id, found.file, found.definition, jsDefinition});
    }
    ServiceView service(common.strRoot);
    return TellChanges(service, vecJobs, common);
}

} // namespace

void AddEdit(CLI::App& app, Common& common) {
    const auto strJob = std::make_shared<std::string>();
    AddCommand(app, common, "edit", "Change a job's definition in an editor",
               [strJob, &common] { return Run(*strJob, common); })
        .Option("JOB", *strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME")
        .Required();
}

} // namespace VUKO::VUKOCrond::Ctl
