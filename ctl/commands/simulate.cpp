#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "ctl/command.h"
#include "ctl/events.h"
#include "ctl/histogram.h"
#include "ctl/jobs.h"
#include "ctl/jobview.h"
#include "ctl/jsonstream.h"
#include "ctl/pager.h"
#include "ctl/table.h"
#include "ctl/text.h"
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

/// What a simulation tells in one line. A year of a few jobs makes millions of them.
struct Event {
    std::time_t tInstant;
    JobIndex uJob;
    int iDelaySec;
    std::variant<StartReason, SkipReason> reason;

    bool IsStart() const { return std::holds_alternative<StartReason>(reason); }
    const char* Reason() const {
        return std::visit([](const auto eReason) { return ToText(eReason); }, reason);
    }
};

/// Collects what a simulation tells.
class Record {
public:
    /// @param table  the jobs, whose order stays; it has to outlive this.
    explicit Record(const JobTable& table) : _table(table) {}

    void Take(const ClockReading& reading, const Decision& decision) {
        for (const Start& start : decision.vecStarts) {
            _vecStarts.push_back({reading.tNow, start.uJob, start.iDelaySec, start.eReason});
        }
        for (const Skip& skip : decision.vecSkips) {
            _vecSkips.push_back({InstantOf(skip.iMinute, reading), skip.uJob, 0, skip.eReason});
        }
    }

    void PrintJson(std::ostream& out, const std::string& strZone, ClockPolicy ePolicy) const {
        const auto make = [this](const Event& event) { return ToJson(event); };
        out << "{\n";
        PrintJsonMember(out, "zone", strZone);
        PrintJsonMember(out, "policy", ToText(ePolicy));
        PrintJsonArray(out, "starts", _vecStarts, make);
        out << ",\n";
        PrintJsonArray(out, "skips", _vecSkips, make);
        out << "\n}\n";
    }

    void Print(std::ostream& out) const {
        std::vector<Event> vecEvents = _vecStarts;
        vecEvents.insert(vecEvents.end(), _vecSkips.begin(), _vecSkips.end());
        std::stable_sort(vecEvents.begin(), vecEvents.end(),
                         [](const Event& a, const Event& b) { return a.tInstant < b.tInstant; });
        Table table({"TIME", {"JOB", JOB_LEAST}, "OUTCOME", "DELAY"});
        std::vector<HourCount> vecHours(24);
        for (const Event& event : vecEvents) {
            table.Add(RowOf(event));
            ++(event.IsStart() ? HourOf(event, vecHours).uStarts : HourOf(event, vecHours).uSkips);
        }
        table.Print(out);
        out << "\nBy hour of the day:\n";
        PrintHistogram(out, vecHours);
        out << "\n" << Totals("start", _vecStarts) << "; " << Totals("skip", _vecSkips) << ".\n";
    }

private:
    static constexpr std::size_t JOB_LEAST = 12;

    Json::Value ToJson(const Event& event) const {
        Json::Value jsEvent(Json::objectValue);
        jsEvent["epoch"] = static_cast<Json::Int64>(event.tInstant);
        jsEvent["job"] = _table.At(event.uJob).id.strName;
        jsEvent["reason"] = event.Reason();
        if (event.IsStart()) {
            jsEvent["local"] = LocalText(event.tInstant);
            jsEvent["delay"] = event.iDelaySec;
        }
        return jsEvent;
    }

    std::vector<Cell> RowOf(const Event& event) const {
        const bool bDue = event.IsStart() && std::get<StartReason>(event.reason) == StartReason::Due;
        const Style eStyle = bDue ? Style::Plain : event.IsStart() ? Style::Good : Style::Warn;
        return {LocalText(event.tInstant), NameOf(_table.At(event.uJob)),
                Cell{eStyle, (event.IsStart() ? "" : "skipped: ") + std::string(event.Reason())},
                event.iDelaySec == 0 ? "-" : std::to_string(event.iDelaySec) + " s"};
    }

    /// A job's name alone might be that of several: people are told which one.
    static std::string NameOf(const Job& job) {
        return job.id.strFolder.empty() ? job.id.strName : Spelled(ToText(job.id));
    }

    static HourCount& HourOf(const Event& event, std::vector<HourCount>& vecHours) {
        const std::optional<ClockReading> reading = ReadingAt(event.tInstant);
        return vecHours[reading ? static_cast<std::size_t>(WallMinuteOf(reading->iLocalMinute).iHour) : 0];
    }

    /// "3 starts: 2 due, 1 made-up"
    static std::string Totals(const std::string& strThing, const std::vector<Event>& vecEvents) {
        std::map<std::string, std::size_t> mapCounts;
        for (const Event& event : vecEvents) {
            ++mapCounts[event.Reason()];
        }
        std::string strKinds;
        for (const auto& [strKind, uCount] : mapCounts) {
            strKinds += (strKinds.empty() ? ": " : ", ") + std::to_string(uCount) + " " + strKind;
        }
        const std::size_t uAll = vecEvents.size();
        return (uAll == 0 ? "no" : std::to_string(uAll)) + " " + strThing + (uAll == 1 ? "" : "s") + strKinds;
    }

    const JobTable& _table;
    std::vector<Event> _vecStarts;
    std::vector<Event> _vecSkips;
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
    Simulator simulator({asked.ePolicy, iMaxDelay}, JobTable(JobsToSimulate(asked.vecFiles, common.strRoot, tFrom)));
    Record record(simulator.Jobs());
    simulator.Run(tFrom, tTo, vecEvents,
                  [&record](const ClockReading& reading, const Decision& decision, const JobTable&) {
                      record.Take(reading, decision);
                      return true;
                  });
    if (common.bJson) {
        record.PrintJson(std::cout, ZoneName(asked.strZone), asked.ePolicy);
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
