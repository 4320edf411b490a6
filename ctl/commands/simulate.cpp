#include <iostream>
#include <map>
#include <memory>
#include <optional>

#include "ctl/command.h"
#include "ctl/events.h"
#include "ctl/histogram.h"
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
    CommandOption maxDelay;
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
            TakeStart(reading.tNow, start, table.At(start.uJob));
        }
        for (const Skip& skip : decision.vecSkips) {
            TakeSkip(InstantOf(skip.iMinute, reading), skip, table.At(skip.uJob));
        }
    }

    void TakeStart(std::time_t tInstant, const Start& start, const Job& job) {
        Json::Value jsStart(Json::objectValue);
        jsStart["epoch"] = static_cast<Json::Int64>(tInstant);
        jsStart["local"] = LocalText(tInstant);
        jsStart["job"] = job.id.strName;
        jsStart["reason"] = ToText(start.eReason);
        jsStart["delay"] = start.iDelaySec;
        const bool bDue = start.eReason == StartReason::Due;
        _mapRows.insert({tInstant,
                         {jsStart["local"].asString(),
                          NameOf(job),
                          {bDue ? Style::Plain : Style::Good, ToText(start.eReason)},
                          start.iDelaySec == 0 ? "-" : std::to_string(start.iDelaySec) + " s"}});
        _jsStarts.append(std::move(jsStart));
        ++_mapStarts[ToText(start.eReason)];
        ++HourOf(tInstant).uStarts;
    }

    void TakeSkip(std::time_t tInstant, const Skip& skip, const Job& job) {
        Json::Value jsSkip(Json::objectValue);
        jsSkip["epoch"] = static_cast<Json::Int64>(tInstant);
        jsSkip["job"] = job.id.strName;
        jsSkip["reason"] = ToText(skip.eReason);
        _jsSkips.append(std::move(jsSkip));
        _mapRows.insert(
            {tInstant,
             {LocalText(tInstant), NameOf(job), {Style::Warn, std::string("skipped: ") + ToText(skip.eReason)}, "-"}});
        ++_mapSkips[ToText(skip.eReason)];
        ++HourOf(tInstant).uSkips;
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
        Table table({"TIME", {"JOB", JOB_LEAST}, "OUTCOME", "DELAY"});
        for (const auto& [iEpoch, vecRow] : _mapRows) {
            table.Add(vecRow);
        }
        table.Print(out);
        out << "\nBy hour of the day:\n";
        PrintHistogram(out, _vecHours);
        out << "\n" << Totals("start", _mapStarts) << "; " << Totals("skip", _mapSkips) << ".\n";
    }

private:
    static constexpr std::size_t JOB_LEAST = 12;
    using Counts = std::map<std::string, std::size_t>;

    /// A job's name alone might be that of several: people are told which one.
    static std::string NameOf(const Job& job) { return job.id.strFolder.empty() ? job.id.strName : ToText(job.id); }

    HourCount& HourOf(std::time_t tInstant) {
        const std::optional<ClockReading> reading = ReadingAt(tInstant);
        return _vecHours[reading ? static_cast<std::size_t>(reading->iLocalMinute / 60 % 24) : 0];
    }

    /// "3 starts: 2 due, 1 made-up"
    static std::string Totals(const std::string& strThing, const Counts& mapCounts) {
        std::size_t uAll = 0;
        std::string strKinds;
        for (const auto& [strKind, uCount] : mapCounts) {
            uAll += uCount;
            strKinds += (strKinds.empty() ? ": " : ", ") + std::to_string(uCount) + " " + strKind;
        }
        return (uAll == 0 ? "no" : std::to_string(uAll)) + " " + strThing + (uAll == 1 ? "" : "s") + strKinds;
    }

    Json::Value _jsStarts{Json::arrayValue};
    Json::Value _jsSkips{Json::arrayValue};
    std::multimap<std::time_t, std::vector<Cell>> _mapRows;
    std::vector<HourCount> _vecHours = std::vector<HourCount>(24);
    Counts _mapStarts;
    Counts _mapSkips;
};

/// @return over how many seconds jobs are spread: as asked for, else as the service does it with its own.
int TakeFromService(const Asked& asked, const std::string& strRoot) {
    Client client(strRoot);
    if (asked.strZone.empty()) {
        StatusInItsZone(client);
    }
    return asked.maxDelay.IsGiven() ? asked.iMaxDelay : client.Ask("template")["maxDelay"].asInt();
}

ExitStatus Run(const Asked& asked, const Common& common) {
    UseZone(asked.strZone);
    const int iMaxDelay = asked.vecFiles.empty() ? TakeFromService(asked, common.strRoot) : asked.iMaxDelay;
    const std::time_t tFrom = ParseTime(asked.strFrom);
    const std::time_t tTo = ParseTime(asked.strTo);
    if (tTo < tFrom) {
        throw ToolError(EXIT_BAD_USAGE, "--to lies before --from");
    }
    const std::vector<SimEvent> vecEvents =
        asked.strEvents.empty() ? std::vector<SimEvent>() : ReadEvents(asked.strEvents, tFrom);
    Record record;
    Simulator simulator({asked.ePolicy, iMaxDelay}, JobTable(JobsToSimulate(asked.vecFiles, common.strRoot, tFrom)));
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
    const Command command =
        AddCommand(app, common, "simulate", "Show what the service would do, on a virtual clock, starting nothing",
                   [asked, &common] { return Run(*asked, common); });
    command.Option("--from", asked->strFrom, "First instant: @EPOCH or local YYYY-MM-DDTHH:MM[:SS]")
        .Type("TIME")
        .Required();
    command.Option("--to", asked->strTo, "Last instant").Type("TIME").Required();
    command.ClockOptions(asked->strZone, asked->ePolicy);
    command.Option("--events", asked->strEvents, "What happens to the machine meanwhile").Type("FILE");
    asked->maxDelay = command.MaxDelayOption(asked->iMaxDelay);
    command.Option("FILE", asked->vecFiles, "Definition files (the installed jobs)");
}

} // namespace VUKO::VUKOCrond::Ctl
