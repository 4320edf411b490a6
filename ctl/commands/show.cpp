#include <iostream>
#include <memory>
#include <sstream>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/jobview.h"
#include "ctl/nextstarttext.h"
#include "ctl/pager.h"
#include "ctl/sheet.h"
#include "ctl/surroundings.h"
#include "ctl/text.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Asked {
    std::vector<std::string> vecJobs;
    bool bEffective = false;
};

std::string InstantText(const Json::Value& jsEpoch) {
    return jsEpoch.isNull() ? "never" : ShortTextWithZone(static_cast<std::time_t>(jsEpoch.asInt64()));
}

std::string PassedText(const Json::Value& jsEpoch, std::time_t tNow) {
    return jsEpoch.isNull() ? "never"
                            : InstantText(jsEpoch) + "; " +
                                  DurationText(std::max<std::int64_t>(0, tNow - jsEpoch.asInt64())) + " ago";
}

std::string NextText(const Json::Value& jsJob, const Json::Value& jsStatus) {
    if (!jsJob["next"].isNull()) {
        return InstantText(jsJob["next"]) + "; in " + DurationText(jsJob["next"].asInt64() - NowOf(jsStatus)) +
               ObstacleText(jsJob, jsStatus);
    }
    return jsJob["state"] == "invalid"  ? "none: its definition is refused, see vukocronctl status"
           : !jsJob["enabled"].asBool() ? "none: it is disabled"
                                        : "none within the next years";
}

std::string GuaranteeText(const Json::Value& jsJob) {
    return jsJob["assureHours"].asInt() == 0
               ? "none"
               : "within " + std::to_string(jsJob["assureHours"].asInt()) + " h, " + jsJob["assureAction"].asString() +
                     (jsJob["overdue"].asBool() ? ", overdue" : "");
}

void AddRuns(Sheet& sheet, const Json::Value& jsJob, const Json::Value& jsStatus) {
    const std::time_t tNow = NowOf(jsStatus);
    sheet.Add("Next start", NextText(jsJob, jsStatus));
    sheet.Add("Last start", PassedText(jsJob["lastExecution"], tNow));
    if (!jsJob["last"].isNull() && jsJob["last"]["end"] != "running") {
        Cell end = EndCell(jsJob["last"], "end");
        if (jsJob["last"]["end"] == "exited" || jsJob["last"]["end"] == "signaled") {
            end.strText += " after " + RunTimeText(jsJob["last"]["durationUsec"].asInt64());
        }
        sheet.Add("Last end", end);
    }
    if (jsJob.isMember("running")) {
        sheet.Add("Running", {Style::Good, "process " + std::to_string(jsJob["running"]["pid"].asInt()) + " since " +
                                               PassedText(jsJob["running"]["since"], tNow)});
    }
    sheet.Add("Known since", InstantText(jsJob["startup"]));
}

/// The definition as it was read; nothing of one that is refused now.
void AddDefinition(Sheet& sheet, const Json::Value& jsDefinition) {
    if (!jsDefinition.isObject()) {
        return;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    std::istringstream definition(Json::writeString(builder, jsDefinition));
    for (std::string strLine; std::getline(definition, strLine);) {
        strLine.find('{') == 0 ? sheet.Add("Definition", strLine) : sheet.Continue(strLine);
    }
}

Sheet SheetOf(const Json::Value& jsJob, const Json::Value& jsStatus) {
    const bool bOverdue = jsJob["overdue"].asBool();
    Sheet sheet;
    sheet.Add("File", jsJob["file"].asString());
    sheet.Add("Account", jsJob["account"] == "" ? "not known" : jsJob["account"].asString());
    sheet.Add("Fields", jsJob["fields"].asString());
    sheet.Add("Values", jsJob["schedule"].asString() + " (" + jsJob["words"].asString() + ")");
    AddRuns(sheet, jsJob, jsStatus);
    sheet.Add("Overlap", jsJob["overlap"].asString());
    sheet.Add("Timeout", jsJob["timeout"].asInt() == 0 ? "none" : std::to_string(jsJob["timeout"].asInt()) + " s");
    sheet.Add("Passive", jsJob["runOnPassive"].asBool() ? "runs" : "does not run");
    sheet.Add("Guarantee", {bOverdue ? Style::Warn : Style::Plain, GuaranteeText(jsJob)});
    if (jsJob.isMember("effective")) {
        AddSurroundings(sheet, jsJob["effective"], jsJob["account"].asString());
    }
    AddDefinition(sheet, jsJob["definition"]);
    return sheet;
}

Json::Value JobAskedFor(Client& client, const std::string& strJob, bool bEffective, Service::ClockPolicy ePolicy,
                        std::time_t tNow) {
    Json::Value jsMembers = Naming(strJob);
    if (bEffective) {
        jsMembers["effective"] = true;
    }
    Json::Value jsJob = client.Ask("show", jsMembers);
    const std::optional<std::time_t> next = NextStartOf(jsJob, ePolicy, tNow);
    jsJob["next"] = next ? Json::Value(static_cast<Json::Int64>(*next)) : Json::Value();
    return jsJob;
}

ExitStatus Run(const Asked& asked, const Common& common) {
    Client client(common.strRoot);
    const Json::Value jsStatus = StatusInItsZone(client);
    const std::time_t tNow = NowOf(jsStatus);
    const Service::ClockPolicy ePolicy = PolicyOf(jsStatus);
    std::vector<Json::Value> vecShown;
    for (const std::string& strJob : asked.vecJobs) {
        vecShown.push_back(JobAskedFor(client, strJob, asked.bEffective, ePolicy, tNow));
    }
    if (common.bJson) {
        Json::Value jsAll(Json::objectValue);
        for (const Json::Value& jsJob : vecShown) {
            jsAll["jobs"].append(jsJob);
        }
        PrintJson(vecShown.size() == 1 ? vecShown.front() : jsAll);
        return EXIT_DONE;
    }
    const Pager pager(common);
    for (std::size_t u = 0; u < vecShown.size(); ++u) {
        const Cell state = StateCell(vecShown[u]);
        std::cout << (u == 0 ? "" : "\n") << Styled(Style::Strong, Readable(Spelled(vecShown[u]["id"].asString())))
                  << " - " << Styled(state.eStyle, state.strText) << "\n";
        SheetOf(vecShown[u], jsStatus).Print(std::cout);
    }
    return EXIT_DONE;
}

} // namespace

void AddShow(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command =
        AddCommand(app, common, "show", "Show everything about jobs", [asked, &common] { return Run(*asked, common); });
    command.Option("JOB", asked->vecJobs, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME").Required();
    command.Flag("--effective", asked->bEffective,
                 "Show its account, groups, directory, environment and limits, too, were it started now");
}

} // namespace VUKO::VUKOCrond::Ctl
