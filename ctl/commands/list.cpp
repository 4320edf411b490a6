#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <iostream>
#include <memory>

#include "crond/cronjob.h"
#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/jobview.h"
#include "ctl/pager.h"
#include "ctl/table.h"
#include "ctl/text.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Asked {
    std::vector<std::string> vecPatterns;
    std::vector<std::string> vecStates;
    bool bFull = false;

    bool IsForAll() const { return vecPatterns.empty() && vecStates.empty(); }
};

/// A terminal that has room for every column.
constexpr std::size_t WIDE = 130;

bool IsAskedFor(const Asked& asked, const Json::Value& jsJob) {
    const auto matches = [&jsJob](const std::string& strPattern) {
        return fnmatch(strPattern.c_str(), jsJob["id"].asCString(), 0) == 0 ||
               fnmatch(strPattern.c_str(), Spelled(jsJob["id"].asString()).c_str(), 0) == 0 ||
               fnmatch(strPattern.c_str(), jsJob["name"].asCString(), 0) == 0;
    };
    const auto stands = [&jsJob](const std::string& strState) {
        return jsJob["state"] == strState || (strState == "failed" && HasFailed(jsJob["last"], "end"));
    };
    return (asked.vecPatterns.empty() || std::any_of(asked.vecPatterns.begin(), asked.vecPatterns.end(), matches)) &&
           (asked.vecStates.empty() || std::any_of(asked.vecStates.begin(), asked.vecStates.end(), stands));
}

std::optional<std::time_t> NextOf(const Json::Value& jsJob, Client& client, Service::ClockPolicy ePolicy,
                                  std::time_t tNow) {
    const bool bTold = !jsJob["schedule"].isNull(); // else too long for a list
    return bTold ? NextStartOf(jsJob, ePolicy, tNow)
                 : NextStartOf(client.Ask("show", Naming(jsJob["id"].asString())), ePolicy, tNow);
}

/// The jobs that are asked for, with "next" (null: none comes), in the order of the service.
std::vector<Json::Value> JobsAskedFor(const Asked& asked, Client& client, Service::ClockPolicy ePolicy,
                                      std::time_t tNow) {
    std::vector<Json::Value> vecJobs;
    for (Json::Value& jsJob : client.AskAll("list")) {
        if (IsAskedFor(asked, jsJob)) {
            const std::optional<std::time_t> next = NextOf(jsJob, client, ePolicy, tNow);
            jsJob["next"] = next ? Json::Value(static_cast<Json::Int64>(*next)) : Json::Value();
            vecJobs.push_back(std::move(jsJob));
        }
    }
    return vecJobs;
}

/// Those that start soonest first, those that never do at the end.
bool StartsBefore(const Json::Value& jsLeft, const Json::Value& jsRight) {
    const auto key = [](const Json::Value& jsJob) {
        return std::pair(jsJob["next"].isNull(), jsJob["next"].isNull() ? 0 : jsJob["next"].asInt64());
    };
    return key(jsLeft) < key(jsRight);
}

std::string Ago(const Json::Value& jsEpoch, std::time_t tNow) {
    const std::int64_t iAgo = std::max<std::int64_t>(0, tNow - jsEpoch.asInt64());
    return (iAgo < 60 ? DurationText(iAgo) : DurationText(iAgo / 60 * 60)) + " ago";
}

struct Times {
    std::string strNext = "-";
    std::string strLeft = "-";
    std::string strLast = "never";
    std::string strAgo = "never";
};

Times TimesOf(const Json::Value& jsJob, std::time_t tNow) {
    Times times;
    if (!jsJob["next"].isNull()) {
        const auto tNext = static_cast<std::time_t>(jsJob["next"].asInt64());
        times.strNext = ShortText(tNext);
        times.strLeft = "in " + DurationText(tNext - tNow);
    }
    if (!jsJob["lastExecution"].isNull()) {
        times.strLast = ShortText(static_cast<std::time_t>(jsJob["lastExecution"].asInt64()));
        times.strAgo = Ago(jsJob["lastExecution"], tNow);
    }
    return times;
}

Table WideTable(const std::vector<Json::Value>& vecJobs, std::time_t tNow) {
    Table table({{"JOB", 24, Align::Left, Cut::Middle},
                 {"ACCOUNT", 8},
                 "STATE",
                 "NEXT",
                 "LEFT",
                 "LAST",
                 "PASSED",
                 {"RESULT", 10},
                 {"SCHEDULE", 12}});
    for (const Json::Value& jsJob : vecJobs) {
        const Times times = TimesOf(jsJob, tNow);
        table.Add({Spelled(jsJob["id"].asString()), jsJob["account"].asString(), StateCell(jsJob), times.strNext,
                   times.strLeft, times.strLast, times.strAgo == "never" ? "-" : times.strAgo,
                   EndCell(jsJob["last"], "end"), jsJob["words"].asString()});
    }
    return table;
}

Table NarrowTable(const std::vector<Json::Value>& vecJobs, std::time_t tNow) {
    Table table({{"JOB", 20, Align::Left, Cut::Middle}, "STATE", "NEXT", "LEFT", {"LAST", 10}});
    for (const Json::Value& jsJob : vecJobs) {
        const Times times = TimesOf(jsJob, tNow);
        Cell last = EndCell(jsJob["last"], "end");
        last.strText = times.strAgo + (jsJob["last"].isNull() ? "" : ", " + last.strText);
        table.Add({Spelled(jsJob["id"].asString()), StateCell(jsJob), times.strNext, times.strLeft, last});
    }
    return table;
}

/// What to do about a list that is empty.
std::string EmptyText(const Asked& asked) {
    if (!asked.IsForAll()) {
        return "No job fits. Without names and --state, list shows all that there are.";
    }
    if (geteuid() == 0) {
        return std::string("There are no jobs. Put a definition into ") + SZF_CRON_FOLDER_PKG +
               ", see vukocrond(8); vukocronctl status tells what was refused.";
    }
    return "No job runs as your account, and others are root's to see. Put a definition into your package's folder "
           "below " +
           std::string(SZF_CRON_FOLDER_PKG_NONROOT) + ", see vukocrond(8).";
}

/// A line of one's own below the table: no wider than the terminal, as a pager stays open for one that is.
void PrintBelow(Style eStyle, const std::string& strText) {
    for (const std::string& strPiece : Wrapped(strText, TerminalWidth() == 0 ? SIZE_MAX : TerminalWidth())) {
        std::cout << Styled(eStyle, strPiece) << "\n";
    }
}

void Print(const Asked& asked, std::vector<Json::Value> vecJobs, const Json::Value& jsStatus) {
    if (vecJobs.empty()) {
        PrintBelow(Style::Plain, EmptyText(asked));
        return;
    }
    const std::time_t tNow = NowOf(jsStatus);
    std::stable_sort(vecJobs.begin(), vecJobs.end(), StartsBefore);
    const bool bWide = asked.bFull || TerminalWidth() == 0 || TerminalWidth() >= WIDE;
    const Table table = bWide ? WideTable(vecJobs, tNow) : NarrowTable(vecJobs, tNow);
    table.Print(std::cout, asked.bFull);
    std::cout << "\n";
    PrintBelow(Style::Plain, std::to_string(vecJobs.size()) + (vecJobs.size() == 1 ? " job" : " jobs") + " listed." +
                                 (bWide ? "" : " Accounts and schedules: vukocronctl list --full"));
    if (const std::string strNote = StandstillText(jsStatus["role"] == "passive", jsStatus["draining"].asBool());
        !strNote.empty()) {
        PrintBelow(Style::Warn, strNote);
    }
}

ExitStatus Run(const Asked& asked, const Common& common) {
    Client client(common.strRoot);
    const Json::Value jsStatus = StatusInItsZone(client);
    const std::time_t tNow = NowOf(jsStatus);
    const Service::ClockPolicy ePolicy = PolicyOf(jsStatus);
    const std::vector<Json::Value> vecJobs = JobsAskedFor(asked, client, ePolicy, tNow);
    if (common.bJson) {
        Json::Value jsResult(Json::objectValue);
        jsResult["jobs"] = Json::Value(Json::arrayValue);
        for (const Json::Value& jsJob : vecJobs) {
            jsResult["jobs"].append(jsJob);
        }
        PrintJson(jsResult);
        return EXIT_DONE;
    }
    const Pager pager(common);
    Print(asked, vecJobs, jsStatus);
    return EXIT_DONE;
}

} // namespace

void AddList(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command = AddCommand(app, common, "list", "Show the jobs, when they start next and how they ended",
                                       [asked, &common] { return Run(*asked, common); });
    command.Option("JOB", asked->vecPatterns, "Only jobs whose identity or name is that, or fits it (* ? [])");
    command.Option("--state", asked->vecStates, "Only jobs in one of these states; failed: at their last run")
        .Type("STATE,...")
        .SplitAt(',')
        .OneOf({"waiting", "running", "pending", "disabled", "invalid", "failed"});
    command.Flag("-l,--full", asked->bFull, "Show every column, and cut nothing");
}

} // namespace VUKO::VUKOCrond::Ctl
