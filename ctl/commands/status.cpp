#include <iostream>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/jobview.h"
#include "ctl/pager.h"
#include "ctl/sheet.h"
#include "ctl/text.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// "3 waiting, 1 running", of an object of numbers.
std::string CountsText(const Json::Value& jsCounts) {
    std::string strText;
    for (const std::string& strName : jsCounts.getMemberNames()) {
        strText += (strText.empty() ? "" : ", ") + std::to_string(jsCounts[strName].asUInt64()) + " " + strName;
    }
    return strText;
}

std::string JobsText(const Json::Value& jsJobs) {
    unsigned uAll = 0;
    for (const Json::Value& jsCount : jsJobs) {
        uAll += jsCount.asUInt();
    }
    return std::to_string(uAll) + (uAll == 0 ? "" : " (" + CountsText(jsJobs) + ")");
}

std::string TemplateText(const Json::Value& jsTemplate) {
    std::string strText;
    for (const auto& [szType, szTitle] :
         {std::pair("Minute", "minute"), std::pair("hour", "hour"), std::pair("day", "day"),
          std::pair("month", "month"), std::pair("week", "weekday")}) {
        strText += (strText.empty() ? "" : ", ") + std::string(szTitle) + " " + jsTemplate["values"][szType].asString();
    }
    return strText;
}

std::string InstantText(std::int64_t iInstant, std::int64_t iNow) {
    return ShortTextWithZone(static_cast<std::time_t>(iInstant)) + "; " +
           DurationText(std::max<std::int64_t>(0, iNow - iInstant)) + " ago";
}

/// Whether somebody should look after it: not all jobs that it was given can start.
bool NeedsAttention(const Json::Value& jsStatus) {
    return jsStatus["draining"].asBool() || jsStatus["hibernating"].asBool() || jsStatus["refused"].asUInt() != 0 ||
           jsStatus["jobs"].isMember("invalid");
}

Cell StateText(const Json::Value& jsStatus) {
    if (jsStatus["draining"].asBool()) {
        return {Style::Warn, "draining: no job is started, until the service is started anew or drain --off"};
    }
    if (jsStatus["hibernating"].asBool()) {
        return {Style::Warn, "hibernating: no job is started"};
    }
    return {Style::Good, "running"};
}

void AddRefusals(Sheet& sheet, const Json::Value& jsRefusals) {
    sheet.Add("Refused",
              {jsRefusals.empty() ? Style::Plain : Style::Bad,
               std::to_string(jsRefusals.size()) + (jsRefusals.size() == 1 ? " definition" : " definitions")});
    for (const Json::Value& jsRefusal : jsRefusals) {
        sheet.Continue(jsRefusal["text"].asString());
    }
}

Sheet SheetOf(const Json::Value& jsStatus) {
    const std::int64_t iNow = jsStatus["now"].asInt64();
    Sheet sheet;
    sheet.Add("State", StateText(jsStatus));
    if (jsStatus.isMember("started")) {
        sheet.Add("Since", InstantText(jsStatus["started"].asInt64(), iNow) + "; process " +
                               std::to_string(jsStatus["pid"].asInt()));
    }
    sheet.Add("Role", {jsStatus["role"] == "active" ? Style::Plain : Style::Warn, jsStatus["role"].asString()});
    sheet.Add("Clock", LocalText(static_cast<std::time_t>(iNow)) + ", zone " + jsStatus["zone"].asString() +
                           (jsStatus["tz"].asString().empty() ? "" : " (TZ=" + jsStatus["tz"].asString() + ")") +
                           ", policy " + jsStatus["policy"].asString());
    sheet.Add("Template", TemplateText(jsStatus["template"]));
    sheet.Add("Spread", "random minutes over " + std::to_string(jsStatus["template"]["maxDelay"].asInt()) + " s");
    sheet.Add("Jobs", JobsText(jsStatus["jobs"]));
    if (jsStatus.isMember("starts")) {
        sheet.Add("Starts", CountsText(jsStatus["starts"]));
    }
    if (jsStatus.isMember("skips")) {
        sheet.Add("Skips", CountsText(jsStatus["skips"]));
    }
    if (jsStatus.isMember("saved")) {
        const std::int64_t iSaved = jsStatus["saved"].asInt64();
        sheet.Add("Saved", iSaved == 0 ? "not yet" : InstantText(iSaved, iNow));
    }
    if (jsStatus.isMember("refusals")) {
        AddRefusals(sheet, jsStatus["refusals"]);
    }
    return sheet;
}

ExitStatus Run(const Common& common) {
    Client client(common.strRoot);
    Json::Value jsStatus = StatusInItsZone(client);
    jsStatus["template"] = client.Ask("template");
    if (jsStatus.isMember("refused")) {
        jsStatus["refusals"] = client.AskAll("refused");
    }
    if (common.bJson) {
        PrintJson(jsStatus);
        return EXIT_DONE;
    }
    const Pager pager(common);
    std::cout << Styled(NeedsAttention(jsStatus) ? Style::Warn : Style::Good, SpeaksUtf8() ? "\u25cf" : "*")
              << " vukocrond " << Readable(jsStatus["version"].asString()) << " - job scheduler\n";
    SheetOf(jsStatus).Print(std::cout);
    return EXIT_DONE;
}

} // namespace

void AddStatus(CLI::App& app, Common& common) {
    AddCommand(app, common, "status", "Show the service, its role, its jobs and the refused files",
               [&common] { return Run(common); });
}

} // namespace VUKO::VUKOCrond::Ctl
