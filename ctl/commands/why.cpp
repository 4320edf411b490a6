#include <ctime>
#include <iostream>
#include <memory>

#include "ctl/cause.h"
#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/jobview.h"
#include "ctl/text.h"
#include "ctl/zone.h"
#include "service/engine/schedule.h"
#include "service/engine/simulator.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

struct Asked {
    std::string strJob;
    std::string strAt;
};

/// The entry of the ledger for a minute of the wall clock: the one decided closest to the instant, where the minute
/// came twice. Where there is none, that of a start which came in that minute for another one. Null when there is none.
Json::Value OutcomeAt(const Json::Value& jsOutcomes, std::int64_t iLocalMinute, std::time_t tInstant) {
    Json::Value jsFound;
    for (const Json::Value& jsOutcome : jsOutcomes) {
        const auto distance = [tInstant](const Json::Value& jsOne) {
            return std::abs(jsOne["decided"].asInt64() - static_cast<std::int64_t>(tInstant));
        };
        if (jsOutcome["minute"].asInt64() == iLocalMinute &&
            (jsFound.isNull() || distance(jsOutcome) < distance(jsFound))) {
            jsFound = jsOutcome;
        }
    }
    const auto beganThen = [iLocalMinute](const Json::Value& jsOutcome) {
        const auto began =
            ReadingAt(static_cast<std::time_t>(jsOutcome["decided"].asInt64() + jsOutcome.get("delay", 0).asInt64()));
        return jsOutcome["outcome"] != "skipped" && began && began->iLocalMinute == iLocalMinute;
    };
    for (const Json::Value& jsOutcome : jsOutcomes) {
        if (jsFound.isNull() && beganThen(jsOutcome)) {
            jsFound = jsOutcome;
        }
    }
    return jsFound;
}

AskedMinute MinuteAskedFor(const Asked& asked, Client& client) {
    AskedMinute minute;
    const Json::Value jsStatus = StatusInItsZone(client);
    minute.tNow = NowOf(jsStatus);
    minute.ePolicy = PolicyOf(jsStatus);
    minute.jsJob = client.Ask("show", Naming(asked.strJob));
    minute.jsOutcomes = client.AskAll("history", Naming(asked.strJob));
    // Without a time: of the last minute of which there is something to tell.
    const bool bLast = asked.strAt.empty() && !minute.jsOutcomes.empty();
    minute.tInstant = bLast                 ? static_cast<std::time_t>(minute.jsOutcomes[0]["decided"].asInt64())
                      : asked.strAt.empty() ? minute.tNow
                                            : ParseTime(asked.strAt);
    const std::optional<ClockReading> reading = ReadingAt(minute.tInstant);
    if (!reading) {
        throw ToolError(EXIT_BAD_USAGE, "that time has no local time");
    }
    minute.iLocalMinute = asked.strAt.empty() ? reading->iLocalMinute : ParseWallMinute(asked.strAt);
    minute.jsOutcome =
        bLast ? minute.jsOutcomes[0] : OutcomeAt(minute.jsOutcomes, minute.iLocalMinute, minute.tInstant);
    if (!minute.jsOutcome.isNull()) {
        minute.iLocalMinute = minute.jsOutcome["minute"].asInt64();
    }
    minute.bMatches = Schedule(minute.jsJob["schedule"].asString()).Matches(WallMinuteOf(minute.iLocalMinute));
    minute.strTime = WallText(minute.iLocalMinute);
    return minute;
}

ExitStatus Run(const Asked& asked, const Common& common) {
    Client client(common.strRoot);
    const AskedMinute minute = MinuteAskedFor(asked, client);
    Json::Value jsResult(Json::objectValue);
    jsResult["job"] = minute.jsJob["id"];
    jsResult["at"] = minute.strTime;
    jsResult["matches"] = minute.bMatches;
    jsResult["outcome"] = minute.jsOutcome;
    jsResult["text"] = CauseSentence(minute);
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        std::cout << Readable(jsResult["text"].asString()) << "\n";
    }
    return EXIT_DONE;
}

} // namespace

void AddWhy(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command = AddCommand(app, common, "why", "Tell why a job ran or did not run at a minute",
                                       [asked, &common] { return Run(*asked, common); });
    command.Option("JOB", asked->strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME").Required();
    command.Option("--at", asked->strAt, "Minute: @EPOCH or local YYYY-MM-DDTHH:MM (the last one told of)")
        .Type("TIME");
}

} // namespace VUKO::VUKOCrond::Ctl
