#include <iostream>
#include <memory>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/table.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

void Line(const char* szName, const std::string& strValue) {
    std::cout << std::string(14 - std::min<std::size_t>(13, std::string(szName).size()), ' ') << szName << ": "
              << strValue << "\n";
}

std::string InstantText(const Json::Value& jsEpoch) {
    return jsEpoch.isNull() ? "never" : LocalText(static_cast<std::time_t>(jsEpoch.asInt64()));
}

void Print(const Json::Value& jsJob) {
    std::cout << jsJob["id"].asString() << " - " << jsJob["state"].asString() << "\n";
    Line("File", jsJob["file"].asString());
    Line("Account", jsJob["account"].asString());
    Line("Fields", jsJob["fields"].asString());
    Line("Values", jsJob["schedule"].asString() + " (" + jsJob["words"].asString() + ")");
    Line("Overlap", jsJob["overlap"].asString());
    Line("Timeout", jsJob["timeout"].asInt() == 0 ? "none" : std::to_string(jsJob["timeout"].asInt()) + " s");
    Line("Passive", jsJob["runOnPassive"].asBool() ? "runs" : "does not run");
    Line("Guarantee", jsJob["assureHours"].asInt() == 0
                          ? "none"
                          : "within " + std::to_string(jsJob["assureHours"].asInt()) + " h, " +
                                jsJob["assureAction"].asString() + (jsJob["overdue"].asBool() ? ", overdue" : ""));
    Line("Known since", InstantText(jsJob["startup"]));
    Line("Last start", InstantText(jsJob["lastExecution"]));
    if (!jsJob["last"].isNull()) {
        Line("Last end",
             EndText(jsJob["last"], "end") + " after " + RunTimeText(jsJob["last"]["durationUsec"].asInt64()));
    }
    if (jsJob.isMember("running")) {
        Line("Running", "process " + std::to_string(jsJob["running"]["pid"].asInt()) + " since " +
                            InstantText(jsJob["running"]["since"]));
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::cout << Json::writeString(builder, jsJob["definition"]) << "\n";
}

ExitStatus Run(const std::string& strJob, const Common& common) {
    UseZone(std::string());
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    const Json::Value jsJob = Client(common.strRoot).Ask("show", jsMembers);
    if (common.bJson) {
        PrintJson(jsJob);
    } else {
        Print(jsJob);
    }
    return EXIT_DONE;
}

} // namespace

void AddShow(CLI::App& app, Common& common) {
    const auto strJob = std::make_shared<std::string>();
    AddCommand(app, common, "show", "Show everything about a job", [strJob, &common] { return Run(*strJob, common); })
        ->add_option("JOB", *strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME")
        ->required();
}

} // namespace VUKO::VUKOCrond::Ctl
