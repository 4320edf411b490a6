#include <iostream>
#include <memory>

#include "ctl/client.h"
#include "ctl/command.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

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
    return Answered(common, jsResult,
                    std::to_string(jsResult["jobs"].asUInt()) + " jobs, " +
                        std::to_string(jsResult["refused"].asUInt()) + " refused");
}

ExitStatus Reroll(const Common& common, const std::string& strJob) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    const Json::Value jsResult = Client(common.strRoot).Ask("reroll", jsMembers);
    return Answered(common, jsResult,
                    jsResult["id"].asString() + ": " + jsResult["schedule"].asString() + " (" +
                        jsResult["words"].asString() + ")");
}

ExitStatus Role(const Common& common, const std::string& strRole) {
    Json::Value jsMembers(Json::objectValue);
    if (!strRole.empty()) {
        jsMembers["set"] = strRole;
    }
    const Json::Value jsResult = Client(common.strRoot).Ask("role", jsMembers);
    return Answered(common, jsResult, jsResult["role"].asString());
}

ExitStatus Template(const Common& common, const std::string& strWhat, int iSeconds) {
    Json::Value jsMembers(Json::objectValue);
    if (strWhat == "reroll") {
        jsMembers["reroll"] = true;
    } else if (strWhat == "set-delay") {
        if (iSeconds < 0) {
            throw ToolError(EXIT_BAD_USAGE, "template set-delay: expected a number of seconds");
        }
        jsMembers["maxDelay"] = iSeconds;
    }
    const Json::Value jsResult = Client(common.strRoot).Ask("template", jsMembers);
    std::string strText;
    for (const char* const szType : {"Minute", "hour", "day", "month", "week"}) {
        strText += (strText.empty() ? "" : " ") + std::to_string(jsResult["values"][szType].asInt());
    }
    return Answered(common, jsResult, strText + ", spread over " + std::to_string(jsResult["maxDelay"].asInt()) + " s");
}

ExitStatus Drain(const Common& common, bool bOff) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["on"] = !bOff;
    const Json::Value jsResult = Client(common.strRoot).Ask("drain", jsMembers);
    return Answered(common, jsResult,
                    std::string(bOff ? "Jobs are started again, " : "No job is started from now on, ") +
                        std::to_string(jsResult["running"].asUInt()) + " running");
}

} // namespace

void AddOneRequestCommands(CLI::App& app, Common& common) {
    AddCommand(app, common, "reload", "Read the definitions again", [&common] { return Reload(common); });

    const auto strJob = std::make_shared<std::string>();
    AddCommand(app, common, "reroll", "Draw the random values of a job anew",
               [strJob, &common] { return Reroll(common, *strJob); })
        ->add_option("JOB", *strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME")
        ->required();

    const auto strRole = std::make_shared<std::string>();
    AddCommand(app, common, "role", "Show the role of this machine, or set it",
               [strRole, &common] { return Role(common, *strRole); })
        ->add_option("ROLE", *strRole, "active or passive")
        ->check(CLI::IsMember({"active", "passive"}).description(""));

    const auto strWhat = std::make_shared<std::string>("show");
    const auto iSeconds = std::make_shared<int>(-1);
    CLI::App* const pTemplate =
        AddCommand(app, common, "template", "Show the schedule template, draw it anew, or set its delay",
                   [strWhat, iSeconds, &common] { return Template(common, *strWhat, *iSeconds); });
    pTemplate->add_option("WHAT", *strWhat, "show, reroll or set-delay")
        ->check(CLI::IsMember({"show", "reroll", "set-delay"}).description(""));
    pTemplate->add_option("SECONDS", *iSeconds, "for set-delay");

    const auto bOff = std::make_shared<bool>(false);
    AddCommand(app, common, "drain", "Start no jobs any more, until the service is started again or --off is given",
               [bOff, &common] { return Drain(common, *bOff); })
        ->add_flag("--off", *bOff, "Start jobs again");
}

} // namespace VUKO::VUKOCrond::Ctl
