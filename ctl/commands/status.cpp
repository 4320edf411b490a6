#include <iostream>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string JobsText(const Json::Value& jsJobs) {
    std::string strText;
    unsigned uAll = 0;
    for (const std::string& strState : jsJobs.getMemberNames()) {
        uAll += jsJobs[strState].asUInt();
        strText += (strText.empty() ? "" : ", ") + std::to_string(jsJobs[strState].asUInt()) + " " + strState;
    }
    return std::to_string(uAll) + (strText.empty() ? "" : " (" + strText + ")");
}

std::string TemplateText(const Json::Value& jsTemplate) {
    std::string strText;
    for (const char* const szType : {"Minute", "hour", "day", "month", "week"}) {
        strText += (strText.empty() ? "" : " ") + std::to_string(jsTemplate["values"][szType].asInt());
    }
    return strText + ", spread over " + std::to_string(jsTemplate["maxDelay"].asInt()) + " s";
}

ExitStatus Run(const Common& common) {
    UseZone(std::string());
    Client client(common.strRoot);
    Json::Value jsStatus = client.Ask("status");
    jsStatus["template"] = client.Ask("template");
    if (jsStatus.isMember("refused")) {
        jsStatus["refusals"] = client.AskAll("refused");
    }
    if (common.bJson) {
        PrintJson(jsStatus);
        return EXIT_DONE;
    }
    std::cout << "vukocrond " << jsStatus["version"].asString() << (jsStatus["draining"].asBool() ? ", draining" : "")
              << (jsStatus["hibernating"].asBool() ? ", hibernating" : "") << "\n"
              << "     Role: " << jsStatus["role"].asString() << "\n"
              << "    Clock: " << LocalText(static_cast<std::time_t>(jsStatus["now"].asInt64()))
              << ", zone of the service " << jsStatus["zone"].asString() << ", policy " << jsStatus["policy"].asString()
              << "\n"
              << "     Jobs: " << JobsText(jsStatus["jobs"]) << "\n"
              << " Template: " << TemplateText(jsStatus["template"]) << "\n";
    if (jsStatus.isMember("refusals")) {
        std::cout << "  Refused: " << jsStatus["refusals"].size() << "\n";
        for (const Json::Value& jsRefusal : jsStatus["refusals"]) {
            std::cout << "           " << jsRefusal["text"].asString() << "\n";
        }
    }
    return EXIT_DONE;
}

} // namespace

void AddStatus(CLI::App& app, Common& common) {
    AddCommand(app, common, "status", "Show the service, its role, its jobs and the refused files",
               [&common] { return Run(common); });
}

} // namespace VUKO::VUKOCrond::Ctl
