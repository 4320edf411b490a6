#include <ctime>
#include <iostream>
#include <memory>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/words.h"
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
/// came twice. Null when there is none.
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
    return jsFound;
}

std::string Sentence(const Json::Value& jsJob, const Json::Value& jsOutcome, const std::string& strTime,
                     bool bMatches) {
    const std::string strJob = jsJob["id"].asString();
    if (jsOutcome.isNull()) {
        if (!bMatches) {
            return strJob + " did not run at " + strTime + ": its schedule, " + jsJob["words"].asString() +
                   ", does not hold that minute.";
        }
        return strJob + " was due at " + strTime +
               ", but the ledger holds nothing of that minute: it lies ahead, is "
               "older than the last 100 entries, or was before the service knew the job.";
    }
    if (jsOutcome["outcome"] == "skipped") {
        return strJob + " did not run at " + strTime + ": " + OutcomeText(jsOutcome) + ".";
    }
    const std::string strLabel = jsOutcome.isMember("label") ? " (" + jsOutcome["label"].asString() + ")" : "";
    return strJob + " ran for " + strTime + strLabel + ", " + jsOutcome["outcome"].asString() + " at " +
           LocalText(static_cast<std::time_t>(jsOutcome["decided"].asInt64())) +
           (jsOutcome["delay"].asInt() > 0 ? " with a delay of " + std::to_string(jsOutcome["delay"].asInt()) + " s"
                                           : "") +
           ": " + EndText(jsOutcome["end"], "kind") + ".";
}

ExitStatus Run(const Asked& asked, const Common& common) {
    UseZone(std::string());
    Client client(common.strRoot);
    Json::Value jsMembers(Json::objectValue);
    jsMembers["job"] = asked.strJob;
    const Json::Value jsJob = client.Ask("show", jsMembers);
    const Json::Value jsOutcomes = client.AskAll("history", jsMembers);
    // Without a time: of the last minute of which there is something to tell.
    const bool bLast = asked.strAt.empty() && !jsOutcomes.empty();
    const std::time_t tAt = bLast                 ? static_cast<std::time_t>(jsOutcomes[0]["decided"].asInt64())
                            : asked.strAt.empty() ? time(nullptr)
                                                  : ParseTime(asked.strAt);
    const std::optional<ClockReading> reading = ReadingAt(tAt);
    if (!reading) {
        throw ToolError(EXIT_BAD_USAGE, "that time has no local time");
    }
    const std::int64_t iMinute = bLast ? jsOutcomes[0]["minute"].asInt64() : reading->iLocalMinute;
    const Json::Value jsOutcome = bLast ? jsOutcomes[0] : OutcomeAt(jsOutcomes, iMinute, tAt);
    const bool bMatches = Schedule(jsJob["schedule"].asString()).Matches(WallMinuteOf(iMinute));
    const std::string strTime =
        LocalText(tAt - reading->iSecond - (reading->iLocalMinute - iMinute) * 60).substr(0, 16);
    Json::Value jsResult(Json::objectValue);
    jsResult["job"] = jsJob["id"];
    jsResult["at"] = strTime;
    jsResult["matches"] = bMatches;
    jsResult["outcome"] = jsOutcome;
    jsResult["text"] = Sentence(jsJob, jsOutcome, strTime, bMatches);
    if (common.bJson) {
        PrintJson(jsResult);
    } else {
        std::cout << jsResult["text"].asString() << "\n";
    }
    return EXIT_DONE;
}

} // namespace

void AddWhy(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    CLI::App* const pCommand = AddCommand(app, common, "why", "Tell why a job ran or did not run at a minute",
                                          [asked, &common] { return Run(*asked, common); });
    pCommand->add_option("JOB", asked->strJob, "Its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME")->required();
    pCommand->add_option("--at", asked->strAt, "Minute: @EPOCH or local YYYY-MM-DDTHH:MM (the last one told of)")
        ->type_name("TIME");
}

} // namespace VUKO::VUKOCrond::Ctl
