#include <algorithm>
#include <iostream>
#include <memory>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/jobview.h"
#include "ctl/pager.h"
#include "ctl/sparkline.h"
#include "ctl/table.h"
#include "ctl/text.h"
#include "ctl/words.h"
#include "ctl/zone.h"
#include "service/engine/simulator.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Asked {
    std::string strJob;
    std::string strSince;
    std::string strUntil;
    std::size_t uLines = 0; ///< 0: all
};

/// An outcome and the job that it is of.
struct Entry {
    std::string strJob;
    Json::Value jsOutcome;

    std::int64_t Decided() const { return jsOutcome["decided"].asInt64(); }
};

/// The ledger of a job, named by its identity, newest first, as far as it is asked for. Times are of the zone that is
/// in use.
Json::Value HistoryOf(Client& client, const std::string& strJob, const Asked& asked) {
    Json::Value jsHistory(Json::objectValue);
    jsHistory["outcomes"] = Json::Value(Json::arrayValue);
    const std::int64_t iSince = asked.strSince.empty() ? INT64_MIN : ParseTime(asked.strSince);
    const std::int64_t iUntil = asked.strUntil.empty() ? INT64_MAX : ParseTime(asked.strUntil);
    for (const Json::Value& jsOutcome : client.AskAll("history", Naming(strJob))) {
        const std::int64_t iDecided = jsOutcome["decided"].asInt64();
        const bool bHasRoom = asked.uLines == 0 || jsHistory["outcomes"].size() < asked.uLines;
        if (bHasRoom && iSince <= iDecided && iDecided <= iUntil) {
            jsHistory["outcomes"].append(jsOutcome);
        }
    }
    jsHistory["job"] = strJob;
    return jsHistory;
}

/// Only of a program that ran, and whose end was seen, there is something to tell.
bool HasFigures(const Json::Value& jsEnd) {
    return jsEnd.isObject() && (jsEnd["kind"] == "exited" || jsEnd["kind"] == "signaled");
}

/// Whether an outcome was decided in another minute than that which was due, as after a time that was passed over.
bool IsLate(const Entry& entry) {
    const auto reading = Service::ReadingAt(static_cast<std::time_t>(entry.Decided()));
    return reading && reading->iLocalMinute != entry.jsOutcome["minute"].asInt64();
}

/// The due minute, with its date where that is another than that of the decision.
std::string DueText(const Entry& entry) {
    const std::string strDue = WallText(entry.jsOutcome["minute"].asInt64());
    constexpr std::size_t DATE_LENGTH = 10;
    const bool bSameDay =
        ShortText(static_cast<std::time_t>(entry.Decided())).compare(0, DATE_LENGTH, strDue, 0, DATE_LENGTH) == 0;
    return bSameDay ? strDue.substr(DATE_LENGTH + 1)
                    : strDue.substr(0, DATE_LENGTH) + " " + strDue.substr(DATE_LENGTH + 1);
}

Cell OutcomeCell(const Json::Value& jsOutcome) {
    return {jsOutcome["outcome"] == "skipped" ? Style::Warn : Style::Plain, OutcomeText(jsOutcome)};
}

/// A terminal that has room for the figures of the jobs' processors, too.
constexpr std::size_t WIDE = 100;

/// The columns that are not always there.
struct Extra {
    bool bJob = false;
    bool bDue = false;
    bool bCpu = false;
};

/// Times are not cut: where due minutes are told as well, the others give more.
std::vector<Column> ColumnsFor(const Extra& extra) {
    std::vector<Column> vecColumns = {"TIME"};
    if (extra.bDue) {
        vecColumns.emplace_back("DUE");
    }
    if (extra.bJob) {
        vecColumns.emplace_back("JOB", extra.bDue ? 8 : 16, Align::Left, Cut::Middle);
    }
    vecColumns.emplace_back("OUTCOME", extra.bDue ? 4 : 12);
    vecColumns.emplace_back("END", extra.bDue ? 6 : 8);
    vecColumns.emplace_back("DURATION", Column::KEPT, Align::Right);
    if (extra.bCpu) {
        vecColumns.emplace_back("CPU", Column::KEPT, Align::Right);
    }
    vecColumns.emplace_back("MEMORY", Column::KEPT, Align::Right);
    return vecColumns;
}

std::vector<Cell> RowOf(const Entry& entry, const Extra& extra) {
    const Json::Value& jsEnd = entry.jsOutcome["end"];
    const bool bEnded = HasFigures(jsEnd);
    std::vector<Cell> vecRow = {ShortTextWithSeconds(static_cast<std::time_t>(entry.Decided()))};
    if (extra.bDue) {
        vecRow.emplace_back(DueText(entry));
    }
    if (extra.bJob) {
        vecRow.emplace_back(Spelled(entry.strJob));
    }
    vecRow.push_back(OutcomeCell(entry.jsOutcome));
    vecRow.push_back(EndCell(jsEnd, "kind"));
    vecRow.emplace_back(bEnded ? RunTimeText(jsEnd["durationUsec"].asInt64()) : "-");
    if (extra.bCpu) {
        vecRow.emplace_back(bEnded ? RunTimeText(jsEnd["cpuUsec"].asInt64()) : "-");
    }
    vecRow.emplace_back(bEnded ? MemoryText(jsEnd["maxRssKib"].asInt64()) : "-");
    return vecRow;
}

Table TableOf(const std::vector<Entry>& vecEntries, bool bOfAll) {
    Extra extra;
    extra.bJob = bOfAll;
    extra.bDue = std::any_of(vecEntries.begin(), vecEntries.end(), IsLate);
    extra.bCpu = !bOfAll || TerminalWidth() == 0 || TerminalWidth() >= WIDE;
    Table table(ColumnsFor(extra));
    for (const Entry& entry : vecEntries) {
        table.Add(RowOf(entry, extra));
    }
    return table;
}

/// The durations of a job's runs as a row of bars, oldest first, as many as have room.
void PrintDurations(const Json::Value& jsHistory) {
    constexpr std::size_t INDENT = 2;
    const std::size_t uRoom = TerminalWidth() == 0 ? 100 : std::max<std::size_t>(TerminalWidth(), 3) - INDENT;
    std::vector<Bar> vecBars;
    std::int64_t iMost = 0;
    for (const Json::Value& jsOutcome : jsHistory["outcomes"]) {
        const Json::Value& jsEnd = jsOutcome["end"];
        if (HasFigures(jsEnd) && vecBars.size() < uRoom) {
            vecBars.push_back({jsEnd["durationUsec"].asInt64(), HasFailed(jsEnd, "kind")});
            iMost = std::max(iMost, vecBars.back().iValue);
        }
    }
    if (vecBars.size() < 2) {
        return; // nothing to compare
    }
    std::reverse(vecBars.begin(), vecBars.end());
    const bool bFailed = std::any_of(vecBars.begin(), vecBars.end(), [](const Bar& bar) { return bar.bBad; });
    std::cout << "\nDurations of the last " << vecBars.size() << " runs, oldest first, up to " << RunTimeText(iMost)
              << (!bFailed      ? ""
                  : HasColour() ? "; failed: coloured"
                                : "; failed: !")
              << "\n"
              << std::string(INDENT, ' ') << Sparkline(vecBars, INDENT) << "\n";
}

std::vector<Entry> EntriesOf(const Json::Value& jsHistories, std::size_t uLines) {
    std::vector<Entry> vecEntries;
    for (const Json::Value& jsHistory : jsHistories) {
        for (const Json::Value& jsOutcome : jsHistory["outcomes"]) {
            vecEntries.push_back({jsHistory["job"].asString(), jsOutcome});
        }
    }
    std::stable_sort(vecEntries.begin(), vecEntries.end(),
                     [](const Entry& left, const Entry& right) { return left.Decided() > right.Decided(); });
    if (uLines != 0 && vecEntries.size() > uLines) {
        vecEntries.resize(uLines);
    }
    return vecEntries;
}

void Print(const Json::Value& jsHistories, const Asked& asked) {
    const std::vector<Entry> vecEntries = EntriesOf(jsHistories, asked.uLines);
    if (vecEntries.empty()) {
        std::cout << "The ledger holds nothing of that.\n";
        return;
    }
    TableOf(vecEntries, asked.strJob.empty()).Print(std::cout);
    if (!asked.strJob.empty()) {
        PrintDurations(jsHistories[0]);
    }
}

ExitStatus Run(const Asked& asked, const Common& common) {
    Client client(common.strRoot);
    StatusInItsZone(client);
    Json::Value jsResult(Json::objectValue);
    jsResult["jobs"] = Json::Value(Json::arrayValue);
    if (!asked.strJob.empty()) {
        const std::string strId = client.Ask("show", Naming(asked.strJob))["id"].asString();
        jsResult["jobs"].append(HistoryOf(client, strId, asked));
    } else {
        for (const Json::Value& jsJob : client.AskAll("list")) {
            jsResult["jobs"].append(HistoryOf(client, jsJob["id"].asString(), asked));
        }
    }
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        const Pager pager(common);
        Print(jsResult["jobs"], asked);
    }
    return EXIT_DONE;
}

} // namespace

void AddHistory(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command =
        AddCommand(app, common, "history", "Show what became of the due minutes of a job, or of all, newest first",
                   [asked, &common] { return Run(*asked, common); });
    command.Option("JOB", asked->strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME");
    command.Option("-n,--lines", asked->uLines, "At most so many, the newest").Type("N").Positive();
    command.Option("--since", asked->strSince, "Decided then or later: @EPOCH or local YYYY-MM-DDTHH:MM[:SS]")
        .Type("TIME");
    command.Option("--until", asked->strUntil, "Decided then or earlier").Type("TIME");
}

} // namespace VUKO::VUKOCrond::Ctl
