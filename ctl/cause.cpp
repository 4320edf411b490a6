#include "ctl/cause.h"

#include <map>

#include "ctl/jobview.h"
#include "ctl/text.h"
#include "ctl/words.h"
#include "ctl/zone.h"
#include "service/engine/simulator.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::string InstantText(const Json::Value& jsEpoch) {
    return LocalText(static_cast<std::time_t>(jsEpoch.asInt64()));
}

/// The other entry of the ledger that is a start and has the same value there as the one asked about; null: none.
Json::Value StartWithSame(const AskedMinute& asked, const char* szMember) {
    for (const Json::Value& jsOther : asked.jsOutcomes) {
        if (jsOther["outcome"] != "skipped" && jsOther[szMember] == asked.jsOutcome[szMember]) {
            return jsOther;
        }
    }
    return Json::Value();
}

std::string SkipCause(const AskedMinute& asked) {
    const Json::Value& jsOutcome = asked.jsOutcome;
    const std::string strReason = jsOutcome["reason"].asString();
    if (strReason == "clock step" || strReason == "service down") {
        if (const Json::Value jsStart = StartWithSame(asked, "decided"); !jsStart.isNull()) {
            return "that minute was passed over, and the one start at " + InstantText(jsStart["decided"]) +
                   " stands for it, too (" + strReason + ")";
        }
    }
    if (strReason == "overlap" && jsOutcome.isMember("pid")) {
        return "its last run was still going, as process " + std::to_string(jsOutcome["pid"].asInt()) + " since " +
               InstantText(jsOutcome["since"]);
    }
    const std::string strAccount = asked.jsJob["account"].asString();
    static const std::map<std::string, std::string> mapCauses = {
        {"disabled", "it was disabled"},
        {"passive", "this machine had the passive role"},
        {"hibernating", "the machine was hibernating"},
        {"overlap", "its last run was still going"},
        {"clock step", "the clock was set over that minute, and such a job is not made up for"},
        {"service down", "the service was not running, and such a job is not made up for"},
        {"fork failed", "no process could be made for it"},
        {"account unknown", "its account was not there"},
        {"definition invalid", "its definition was refused at that time"},
        {"stopping", "the service was stopping or drained"},
        {"identity refused", "the service may not run programs as its account"}};
    const auto itCause = mapCauses.find(strReason);
    return itCause == mapCauses.end() ? strReason : itCause->second + " (" + strReason + ")";
}

/// Of a skip; a minute that came twice is told with what the clock was ahead of UTC, as there are two of that name.
std::string SkippedSentence(const AskedMinute& asked) {
    const std::string strJob = Spelled(asked.jsJob["id"].asString());
    const Json::Value jsFormer = StartWithSame(asked, "minute");
    if (asked.jsOutcome["reason"] == "clock step" && !jsFormer.isNull()) {
        return strJob + " did not run again at " + InstantText(asked.jsOutcome["decided"]) +
               ": the clock showed that minute once more, and it had run for it at " +
               InstantText(jsFormer["decided"]) + " (clock step).";
    }
    return strJob + " did not run at " + asked.strTime + ": " + SkipCause(asked) + ".";
}

/// Why a minute's start came at a later tick. The ledger has no cause of such a start, but its neighbours may: what was
/// passed over in the same gap and not made up for.
std::string GapCause(const AskedMinute& asked) {
    for (const Json::Value& jsOther : asked.jsOutcomes) {
        const bool bSameTick = jsOther["decided"] == asked.jsOutcome["decided"];
        if (bSameTick && (jsOther["reason"] == "service down" || jsOther["reason"] == "clock step")) {
            return jsOther["reason"] == "service down" ? "the service was not running at its minute"
                                                       : "the clock was set over its minute";
        }
    }
    const auto reading = Service::ReadingAt(static_cast<std::time_t>(asked.jsOutcome["decided"].asInt64()));
    if (reading) {
        const std::time_t tMinute =
            reading->tNow - reading->iSecond - (reading->iLocalMinute - asked.iLocalMinute) * 60;
        const auto then = Service::ReadingAt(tMinute);
        if (then && then->iLocalMinute != asked.iLocalMinute) {
            return "the clock left its minute out";
        }
    }
    return "its minute was passed over: the service was not running, the machine slept, or the clock was set";
}

std::string StartCause(const AskedMinute& asked) {
    const Json::Value& jsOutcome = asked.jsOutcome;
    if (jsOutcome["label"] == "manual") {
        return "because somebody asked for it";
    }
    if (jsOutcome["label"] == "assure") {
        return "to keep its guarantee of a run within " + std::to_string(asked.jsJob["assureHours"].asInt()) + " h";
    }
    if (jsOutcome["outcome"] == "made-up") {
        return "made up for because " + GapCause(asked);
    }
    if (jsOutcome["delay"].asInt() > 0) {
        return "put off by " + std::to_string(jsOutcome["delay"].asInt()) +
               " s so that jobs of a random minute do not start all at once";
    }
    return "on time by its schedule";
}

std::string RanSentence(const AskedMinute& asked) {
    const Json::Value& jsOutcome = asked.jsOutcome;
    const std::string strLabel = jsOutcome.isMember("label") ? " (" + jsOutcome["label"].asString() + ")" : "";
    const bool bStarted = jsOutcome["end"]["kind"] != "not-started";
    return Spelled(asked.jsJob["id"].asString()) + (bStarted ? " ran for " : " was to run for ") + asked.strTime +
           strLabel + ", " + (bStarted ? "started" : "decided") + " at " + InstantText(jsOutcome["decided"]) + ", " +
           StartCause(asked) + ": " + EndText(jsOutcome["end"], "kind") + ".";
}

/// Of a minute that the ledger should hold and does not.
std::string MissingCause(const AskedMinute& asked) {
    constexpr Json::ArrayIndex LEDGER_DEPTH = 100;
    const auto tStartup = static_cast<std::time_t>(asked.jsJob["startup"].asInt64());
    if (asked.tInstant < tStartup) {
        return "the service did not know the job then: it does since " + LocalText(tStartup);
    }
    if (asked.jsOutcomes.size() >= LEDGER_DEPTH &&
        asked.jsOutcomes[asked.jsOutcomes.size() - 1]["minute"].asInt64() > asked.iLocalMinute) {
        return "its ledger goes no further back than " +
               InstantText(asked.jsOutcomes[asked.jsOutcomes.size() - 1]["decided"]);
    }
    return "its ledger holds nothing of that minute: it had other values or another definition then, or the clock "
           "showed that minute before the service was at work";
}

std::string NotDueSentence(const AskedMinute& asked) {
    const std::optional<std::time_t> next = NextStartOf(asked.jsJob, asked.ePolicy, asked.tInstant);
    const bool bAhead = asked.tInstant > asked.tNow;
    return Spelled(asked.jsJob["id"].asString()) + (bAhead ? " is not due at " : " did not run at ") + asked.strTime +
           ": its schedule, " + asked.jsJob["words"].asString() + ", does not hold that minute" +
           (next ? "; the next start after it " + std::string(*next > asked.tNow ? "is " : "was due ") +
                       LocalText(*next).substr(0, 16)
                 : "") +
           ".";
}

std::string WhyNothing(const AskedMinute& asked) {
    const std::string strJob = Spelled(asked.jsJob["id"].asString());
    if (asked.jsJob["state"] == "invalid") {
        return strJob + (asked.tInstant > asked.tNow ? " will not run at " : " did not run at ") + asked.strTime +
               ": its definition is refused, see vukocronctl status.";
    }
    if (!asked.bMatches) {
        return NotDueSentence(asked);
    }
    if (asked.tInstant > asked.tNow) {
        const bool bGoesOn = asked.jsJob["enabled"].asBool();
        return strJob + (bGoesOn ? " will be due at " : " would be due at ") + asked.strTime + ", which lies ahead" +
               (bGoesOn ? "." : ", and is disabled.");
    }
    if (asked.tNow - asked.tInstant < 60) {
        return strJob + " is due in this minute, " + asked.strTime + ", and has not been decided on yet.";
    }
    return strJob + " did not run at " + asked.strTime + ", though its schedule, " + asked.jsJob["words"].asString() +
           ", holds that minute: " + MissingCause(asked) + ".";
}

} // namespace

std::string CauseSentence(const AskedMinute& asked) {
    if (asked.jsOutcome.isNull()) {
        return WhyNothing(asked);
    }
    if (asked.jsOutcome["outcome"] == "skipped") {
        return SkippedSentence(asked);
    }
    return RanSentence(asked);
}

} // namespace VUKO::VUKOCrond::Ctl
