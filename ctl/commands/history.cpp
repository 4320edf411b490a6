#include <iostream>
#include <memory>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/pager.h"
#include "ctl/table.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

Json::Value HistoryOf(Client& client, const std::string& strJob) {
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = strJob;
    Json::Value jsHistory(Json::objectValue);
    jsHistory["outcomes"] = client.AskAll("history", jsMembers);
    jsHistory["job"] = client.Ask("show", jsMembers)["id"];
    return jsHistory;
}

void AddRows(Table& table, const Json::Value& jsHistory) {
    for (const Json::Value& jsOutcome : jsHistory["outcomes"]) {
        const Json::Value& jsEnd = jsOutcome["end"];
        const bool bEnded = jsEnd.isObject() && jsEnd["kind"] != "running" && jsEnd["kind"] != "lost";
        table.Add({LocalText(static_cast<std::time_t>(jsOutcome["decided"].asInt64())), jsHistory["job"].asString(),
                   OutcomeText(jsOutcome), jsEnd.isObject() ? EndText(jsEnd, "kind") : "-",
                   bEnded ? RunTimeText(jsEnd["durationUsec"].asInt64()) : "-",
                   bEnded ? RunTimeText(jsEnd["cpuUsec"].asInt64()) : "-",
                   bEnded ? MemoryText(jsEnd["maxRssKib"].asInt64()) : "-"});
    }
}

ExitStatus Run(const std::string& strJob, const Common& common) {
    UseZone(std::string());
    Client client(common.strRoot);
    Json::Value jsResult(Json::objectValue);
    jsResult["jobs"] = Json::Value(Json::arrayValue);
    Table table({"TIME", "JOB", "OUTCOME", "END", "DURATION", "CPU", "MEMORY"});
    std::vector<std::string> vecJobs = {strJob};
    if (strJob.empty()) {
        vecJobs.clear();
        for (const Json::Value& jsJob : client.AskAll("list")) {
            vecJobs.push_back(jsJob["id"].asString());
        }
    }
    for (const std::string& strOne : vecJobs) {
        const Json::Value jsHistory = HistoryOf(client, strOne);
        AddRows(table, jsHistory);
        jsResult["jobs"].append(jsHistory);
    }
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        const Pager pager(common);
        table.Print(std::cout);
    }
    return EXIT_DONE;
}

} // namespace

void AddHistory(CLI::App& app, Common& common) {
    const auto strJob = std::make_shared<std::string>();
    AddCommand(app, common, "history", "Show what became of the due minutes of a job, or of all, newest first",
               [strJob, &common] { return Run(*strJob, common); })
        ->add_option("JOB", *strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME");
}

} // namespace VUKO::VUKOCrond::Ctl
