#include <ctime>
#include <iostream>
#include <memory>
#include <optional>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/nextstarttext.h"
#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string Counted(Json::UInt uCount, const std::string& strWhat) {
    return std::to_string(uCount) + " " + strWhat + (uCount == 1 ? "" : "s");
}

ExitStatus Answered(const Common& common, const Json::Value& jsResult, const std::string& strText) {
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        std::cout << strText << "\n";
    }
    return EXIT_DONE;
}

ExitStatus Reload(const Common& common) {
    const Json::Value jsResult = Client(common.strRoot).Ask("reload");
    const Json::UInt uRefused = jsResult["refused"].asUInt();
    return Answered(common, jsResult,
                    "The definitions were read again: " + Counted(jsResult["jobs"].asUInt(), "job") + ", " +
                        std::to_string(uRefused) + " refused" +
                        (uRefused == 0 ? "." : "; \"vukocronctl status\" tells why."));
}

ExitStatus Reroll(const Common& common, const std::string& strJob) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    Client client(common.strRoot);
    const Json::Value jsStatus = AskStatus(client);
    Json::Value jsResult = client.Ask("reroll", jsMembers);
    const std::time_t tNow = time(nullptr);
    jsResult["next"] = NextStartJson(jsResult, jsStatus, tNow);
    const Json::Value& jsFields = jsResult["fields"]; // null where they are very long
    const bool bRandom = jsFields.isNull() || jsFields.asString().find('~') != std::string::npos;
    return Answered(common, jsResult,
                    Readable(Spelled(jsResult["id"].asString())) + ": " +
                        (bRandom ? "" : "nothing of its schedule is random, ") + jsResult["words"].asString() + " (" +
                        jsResult["schedule"].asString() + "); " + NextStartText(jsResult, jsStatus, tNow) + ".");
}

ExitStatus Role(const Common& common, const std::string& strRole) {
    Json::Value jsMembers(Json::objectValue);
    if (!strRole.empty()) {
        jsMembers["set"] = strRole;
    }
    const Json::Value jsResult = Client(common.strRoot).Ask("role", jsMembers);
    const bool bActive = jsResult["role"] == "active";
    return Answered(common, jsResult,
                    jsResult["role"].asString() +
                        (bActive ? ": this machine starts its jobs"
                                 : ": only jobs with \"run_on_passive\" are started here; \"vukocronctl role "
                                   "active\" makes it active"));
}

/// What the new state means for jobs; nothing when it was only asked for.
std::string TemplateEffect(const std::string& strWhat) {
    if (strWhat == "reroll") {
        return "\nJobs keep the values they have; those that are new, or get a new random field, take these where they "
               "fit.\n\"vukocronctl reroll JOB\" draws a job's anew.";
    }
    return strWhat == "set-delay" ? "\nThis counts from the next minute on." : "";
}

ExitStatus Template(const Common& common, const std::string& strWhat, const std::optional<int>& seconds) {
    Json::Value jsMembers(Json::objectValue);
    if (seconds.has_value() != (strWhat == "set-delay") || seconds.value_or(0) < 0) {
        throw ToolError(EXIT_BAD_USAGE, seconds && strWhat != "set-delay"
                                            ? "template " + strWhat + ": SECONDS are for set-delay"
                                            : "template set-delay: expected a number of seconds");
    }
    if (strWhat == "reroll") {
        jsMembers["reroll"] = true;
    } else if (strWhat == "set-delay") {
        jsMembers["maxDelay"] = *seconds;
    }
    const Json::Value jsResult = Client(common.strRoot).Ask("template", jsMembers);
    std::string strText;
    for (const auto& [szType, szWord] :
         {std::pair("Minute", "minute"), std::pair("hour", "hour"), std::pair("day", "day"),
          std::pair("month", "month"), std::pair("week", "weekday")}) {
        strText += std::string(strText.empty() ? "" : ", ") + szWord + " " +
                   std::to_string(jsResult["values"][szType].asInt());
    }
    return Answered(common, jsResult,
                    "Random fields: " + strText + ". Jobs of a random minute are spread over " +
                        std::to_string(jsResult["maxDelay"].asInt()) + " s." + TemplateEffect(strWhat));
}

ExitStatus Drain(const Common& common, bool bOff) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["on"] = !bOff;
    const Json::Value jsResult = Client(common.strRoot).Ask("drain", jsMembers);
    const std::string strRunning = Counted(jsResult["running"].asUInt(), "job");
    return Answered(common, jsResult,
                    bOff ? "Jobs are started again; " + strRunning + " running."
                         : "No job is started from now on; " + strRunning +
                               " still running. \"vukocronctl drain --off\" starts jobs again.");
}

} // namespace

void AddOneRequestCommands(CLI::App& app, Common& common) {
    AddCommand(app, common, "reload", "Read the definitions again", [&common] { return Reload(common); });

    const auto strJob = std::make_shared<std::string>();
    AddCommand(app, common, "reroll", "Draw the random values of a job anew",
               [strJob, &common] { return Reroll(common, *strJob); })
        .Option("JOB", *strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME")
        .Required();

    const auto strRole = std::make_shared<std::string>();
    AddCommand(app, common, "role", "Show the role of this machine, or set it",
               [strRole, &common] { return Role(common, *strRole); })
        .Option("ROLE", *strRole, "active or passive")
        .OneOf({"active", "passive"});

    const auto strWhat = std::make_shared<std::string>("show");
    const auto seconds = std::make_shared<std::optional<int>>();
    const Command command =
        AddCommand(app, common, "template", "Show the schedule template, draw it anew, or set its delay",
                   [strWhat, seconds, &common] { return Template(common, *strWhat, *seconds); });
    command.Option("WHAT", *strWhat, "show, reroll or set-delay").OneOf({"show", "reroll", "set-delay"});
    command.Option("SECONDS", *seconds, "for set-delay");

    const auto bOff = std::make_shared<bool>(false);
    AddCommand(app, common, "drain", "Start no jobs any more, until the service is started again or --off is given",
               [bOff, &common] { return Drain(common, *bOff); })
        .Flag("--off", *bOff, "Start jobs again");
}

} // namespace VUKO::VUKOCrond::Ctl
