#include <algorithm>
#include <array>
#include <iostream>
#include <map>
#include <memory>

#include "ctl/command.h"
#include "ctl/events.h"
#include "ctl/jobs.h"
#include "ctl/jobview.h"
#include "ctl/pager.h"
#include "ctl/table.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

struct Asked {
    std::string strFrom;
    std::string strTo;
    std::string strZone;
    std::string strEvents;
    std::vector<std::string> vecFiles;
    ClockPolicy ePolicy = ClockPolicy::CatchUp;
    int iMaxDelay = MAX_DELAY_BETWEEN_JOBS;
};

/// When the wall clock showed a minute that a tick looks back at. A minute that it left out has no instant of its own
/// and goes by that of the tick.
std::time_t InstantOf(std::int64_t iMinute, const ClockReading& reading) {
    std::time_t tInstant = reading.tNow - reading.iSecond - (reading.iLocalMinute - iMinute) * 60;
    for (int iTries = 0; iTries < 2; ++iTries) { // a second one, by the offset that held then
        const std::optional<ClockReading> then = ReadingAt(tInstant);
        if (then && then->iLocalMinute == iMinute && tInstant <= reading.tNow) {
            return tInstant;
        }
        tInstant += then ? (iMinute - then->iLocalMinute) * 60 : 0;
    }
    return reading.tNow;
}

/// Collects what a simulation tells.
class Record {
public:
    void Take(const ClockReading& reading, const Decision& decision, const JobTable& table) {
        for (const Start& start : decision.vecStarts) {
            Json::Value jsStart(Json::objectValue);
            jsStart["epoch"] = static_cast<Json::Int64>(reading.tNow);
            jsStart["local"] = LocalText(reading.tNow);
            jsStart["job"] = table.At(start.uJob).id.strName;
            jsStart["reason"] = ToText(start.eReason);
            jsStart["delay"] = start.iDelaySec;
            _jsStarts.append(std::move(jsStart));
            ++_auStartsByHour[static_cast<std::size_t>(reading.iLocalMinute / 60 % 24)];
        }
        for (const Skip& skip : decision.vecSkips) {
            Json::Value jsSkip(Json::objectValue);
            jsSkip["epoch"] = static_cast<Json::Int64>(InstantOf(skip.iMinute, reading));
            jsSkip["job"] = table.At(skip.uJob).id.strName;
            jsSkip["reason"] = ToText(skip.eReason);
            _jsSkips.append(std::move(jsSkip));
        }
    }

    Json::Value ToJson(const std::string& strZone, ClockPolicy ePolicy) const {
        Json::Value jsResult(Json::objectValue);
        jsResult["zone"] = strZone;
        jsResult["policy"] = ToText(ePolicy);
        jsResult["starts"] = _jsStarts;
        jsResult["skips"] = _jsSkips;
        return jsResult;
    }

    void Print(std::ostream& out) const {
        std::multimap<std::int64_t, std::vector<Cell>> mapRows;
        for (const Json::Value& jsStart : _jsStarts) {
            mapRows.insert({jsStart["epoch"].asInt64(),
                            {jsStart["local"].asString(), jsStart["job"].asString(), jsStart["reason"].asString(),
                             jsStart["delay"].asInt() == 0 ? "-" : std::to_string(jsStart["delay"].asInt()) + " s"}});
        }
        for (const Json::Value& jsSkip : _jsSkips) {
            mapRows.insert({jsSkip["epoch"].asInt64(),
                            {LocalText(static_cast<std::time_t>(jsSkip["epoch"].asInt64())), jsSkip["job"].asString(),
                             "skipped: " + jsSkip["reason"].asString(), "-"}});
        }
        Table table({"TIME", "JOB", "OUTCOME", "DELAY"});
        for (const auto& [iEpoch, vecRow] : mapRows) {
            table.Add(vecRow);
        }
        table.Print(out);
        PrintHistogram(out);
    }

private:
    void PrintHistogram(std::ostream& out) const {
        constexpr unsigned BAR_WIDTH = 50;
        const unsigned uMost = *std::max_element(_auStartsByHour.begin(), _auStartsByHour.end());
        out << "\nStarts by hour of the day:\n";
        for (std::size_t uHour = 0; uHour < _auStartsByHour.size(); ++uHour) {
            const unsigned uStarts = _auStartsByHour[uHour];
            out << (uHour < 10 ? "0" : "") << uHour << ":00 "
                << std::string(uMost == 0 ? 0 : uStarts * BAR_WIDTH / uMost, '#') << (uStarts == 0 ? "" : " ")
                << uStarts << "\n";
        }
    }

    Json::Value _jsStarts{Json::arrayValue};
    Json::Value _jsSkips{Json::arrayValue};
    std::array<unsigned, 24> _auStartsByHour = {};
};

JobTable JobsAskedFor(const Asked& asked, const Common& common, std::time_t tFrom) {
    std::vector<Job> vecJobs;
    for (const std::string& strFile : asked.vecFiles) {
        for (Job& job : JobsOfFile(strFile)) {
            job.iStartup = tFrom; // a job of a file is known from the beginning, and has not run yet
            vecJobs.push_back(std::move(job));
        }
    }
    return JobTable(asked.vecFiles.empty() ? JobsOfService(common.strRoot, std::string()) : std::move(vecJobs));
}

ExitStatus Run(const Asked& asked, const Common& common) {
    UseZone(asked.strZone);
    if (asked.vecFiles.empty() && asked.strZone.empty()) {
        Client client(common.strRoot);
        StatusInItsZone(client);
    }
    const std::time_t tFrom = ParseTime(asked.strFrom);
    const std::time_t tTo = ParseTime(asked.strTo);
    if (tTo < tFrom) {
        throw ToolError(EXIT_BAD_USAGE, "--to lies before --from");
    }
    const std::vector<SimEvent> vecEvents =
        asked.strEvents.empty() ? std::vector<SimEvent>() : ReadEvents(asked.strEvents);
    if (!vecEvents.empty() && vecEvents.front().tInstant < tFrom) {
        throw ToolError(EXIT_WRONG, asked.strEvents + ": an event lies before --from");
    }
    Record record;
    Simulator simulator({asked.ePolicy, asked.iMaxDelay}, JobsAskedFor(asked, common, tFrom));
    simulator.Run(tFrom, tTo, vecEvents,
                  [&record](const ClockReading& reading, const Decision& decision, const JobTable& table) {
                      record.Take(reading, decision, table);
                      return true;
                  });
    if (common.bJson) {
        PrintJson(record.ToJson(ZoneName(asked.strZone), asked.ePolicy));
    } else {
        const Pager pager(common);
        record.Print(std::cout);
    }
    return EXIT_DONE;
}

} // namespace

void AddSimulate(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    CLI::App* const pCommand =
        AddCommand(app, common, "simulate", "Show what the service would do, on a virtual clock, starting nothing",
                   [asked, &common] { return Run(*asked, common); });
    pCommand->add_option("--from", asked->strFrom, "First instant: @EPOCH or local YYYY-MM-DDTHH:MM[:SS]")
        ->type_name("TIME")
        ->required();
    pCommand->add_option("--to", asked->strTo, "Last instant")->type_name("TIME")->required();
    pCommand->add_option("--tz", asked->strZone, "Time zone (the system's)")->type_name("ZONE");
    pCommand->add_option("--policy", asked->ePolicy, "literal or catchup (catchup)")
        ->type_name("POLICY")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, ClockPolicy>{{"catchup", ClockPolicy::CatchUp}, {"literal", ClockPolicy::Literal}}));
    pCommand->add_option("--events", asked->strEvents, "What happens to the machine meanwhile")->type_name("FILE");
    pCommand->add_option("--max-delay", asked->iMaxDelay, "Seconds over which jobs of a random minute are spread (300)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber.description(""));
    pCommand->add_option("FILE", asked->vecFiles, "Definition files (the installed jobs)");
}

} // namespace VUKO::VUKOCrond::Ctl
