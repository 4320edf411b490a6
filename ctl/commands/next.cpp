#include <ctime>
#include <iostream>
#include <limits>
#include <map>
#include <memory>

#include "ctl/command.h"
#include "ctl/jobs.h"
#include "ctl/jobview.h"
#include "ctl/nextstarts.h"
#include "ctl/pager.h"
#include "ctl/table.h"
#include "ctl/text.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

struct Asked {
    std::string strJob;
    std::string strCrontab;
    std::string strFile;
    std::string strFrom;
    std::string strZone;
    std::size_t uCount = 1;
    ClockPolicy ePolicy = ClockPolicy::CatchUp;
};

std::vector<Job> JobsAskedFor(const Asked& asked, const Common& common) {
    if (!asked.strCrontab.empty()) {
        return {JobOfCrontab(asked.strCrontab)};
    }
    if (!asked.strFile.empty()) {
        return JobsOfFile(asked.strFile);
    }
    return JobsOfService(common.strRoot, asked.strJob);
}

Json::Value ToJson(const Job& job, const std::vector<NextStart>& vecStarts) {
    Json::Value jsJob(Json::objectValue);
    jsJob["name"] = job.id.strName;
    jsJob["crontab"] = CrontabOf(job);
    jsJob["next"] = Json::Value(Json::arrayValue);
    for (const NextStart& start : vecStarts) {
        Json::Value jsStart(Json::objectValue);
        jsStart["epoch"] = static_cast<Json::Int64>(start.tInstant);
        jsStart["local"] = LocalText(start.tInstant);
        jsStart["reason"] = ToText(start.eReason);
        jsJob["next"].append(jsStart);
    }
    return jsJob;
}

/// The starts of all jobs in the order of time, those that never start at the end.
class Rows {
public:
    void Take(const Job& job, const std::vector<NextStart>& vecStarts) {
        const std::string strName =
            (job.id.strFolder.empty() ? job.id.strName : Spelled(ToText(job.id))) + (job.bEnabled ? "" : " (disabled)");
        for (const NextStart& start : vecStarts) {
            _mapRows.insert({start.tInstant, {LocalText(start.tInstant), ToText(start.eReason), strName}});
        }
        if (vecStarts.empty()) {
            _mapRows.insert({std::numeric_limits<std::time_t>::max(), {"never", "-", strName}});
        }
    }
    void Print(std::ostream& out) const {
        if (_mapRows.empty()) {
            out << "There is no job to start; vukocronctl list tells more.\n";
            return;
        }
        Table table({"START", "REASON", "JOB"});
        for (const auto& [tInstant, vecRow] : _mapRows) {
            table.Add(vecRow);
        }
        table.Print(out);
    }

private:
    std::multimap<std::time_t, std::vector<Cell>> _mapRows;
};

ExitStatus Run(const Asked& asked, const Common& common) {
    UseZone(asked.strZone);
    const bool bInstalled = asked.strCrontab.empty() && asked.strFile.empty();
    if (bInstalled && asked.strZone.empty()) {
        Client client(common.strRoot);
        StatusInItsZone(client);
    }
    const std::time_t tFrom = asked.strFrom.empty() ? time(nullptr) : ParseTime(asked.strFrom);
    Json::Value jsResult(Json::objectValue);
    jsResult["zone"] = ZoneName(asked.strZone);
    jsResult["policy"] = ToText(asked.ePolicy);
    jsResult["jobs"] = Json::Value(Json::arrayValue);
    Rows rows;
    for (const Job& job : JobsAskedFor(asked, common)) {
        const std::vector<NextStart> vecStarts = FindNextStarts(job, asked.ePolicy, tFrom, asked.uCount);
        jsResult["jobs"].append(ToJson(job, vecStarts));
        rows.Take(job, vecStarts);
    }
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        const Pager pager(common);
        rows.Print(std::cout);
    }
    return EXIT_DONE;
}

} // namespace

void AddNext(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command =
        AddCommand(app, common, "next", "Show when jobs start next", [asked, &common] { return Run(*asked, common); });
    const CommandOption job = command.Option("JOB", asked->strJob, "Installed job; without one, all of them");
    const CommandOption crontab =
        command.Option("--crontab", asked->strCrontab, "Five fields, in one argument").Type("\"M H D M W\"");
    const CommandOption file =
        command.Option("--file", asked->strFile, "Definition file, - for standard input").Type("FILE");
    job.Excludes(crontab).Excludes(file);
    crontab.Excludes(file);
    command.Option("-n", asked->uCount, "How many starts of each job (1)").Type("N").Within(1, 100000);
    command.Option("--from", asked->strFrom, "Starts after TIME: @EPOCH or local YYYY-MM-DDTHH:MM[:SS] (now)")
        .Type("TIME");
    command.ClockOptions(asked->strZone, asked->ePolicy);
}

} // namespace VUKO::VUKOCrond::Ctl
