#include <charconv>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/jobs.h"
#include "ctl/jobview.h"
#include "ctl/pager.h"
#include "ctl/terminal.h"
#include "ctl/text.h"
#include "ctl/textfile.h"
#include "ctl/timeline/chart.h"
#include "ctl/timeline/document.h"
#include "ctl/timeline/svg.h"
#include "ctl/timeline/timeline.h"
#include "ctl/timeline/wording.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using namespace Service;

constexpr int HOURS_MAX = 7 * 24;
constexpr std::size_t WIDTH_WITHOUT_TERMINAL = 80;
constexpr std::size_t WIDTH_MIN = 40;

struct Asked {
    int iHours = 24;
    std::string strFrom;
    std::string strZone;
    std::optional<std::string> strSvg;
    std::vector<std::string> vecDurations;
    std::vector<std::string> vecFiles;
    ClockPolicy ePolicy = ClockPolicy::CatchUp;
    CommandOption policy; ///< tells whether it was given
    int iMaxDelay = MAX_DELAY_BETWEEN_JOBS;
    CommandOption maxDelay;
};

/// "JOB=SECONDS"; a job's name may hold the sign as well.
void SetDuration(const std::string& strText, std::vector<Job>& vecJobs) {
    const std::size_t uSign = strText.rfind('=');
    const char* const pEnd = strText.data() + strText.size();
    std::int32_t iSeconds = -1;
    const char* const pBegin = strText.data() + (uSign == std::string::npos ? strText.size() : uSign + 1);
    const auto [pRead, eError] = std::from_chars(pBegin, pEnd, iSeconds);
    if (eError != std::errc() || pRead != pEnd || iSeconds < 0) {
        throw ToolError(EXIT_BAD_USAGE, "--duration: \"" + strText + "\": expected JOB=SECONDS");
    }
    bool bFound = false;
    for (Job& job : vecJobs) {
        const std::string strJob = strText.substr(0, uSign);
        const std::string strId = job.id.strFolder.empty() ? std::string() : ToText(job.id);
        if (job.id.strName == strJob || (!strId.empty() && (strId == strJob || Spelled(strId) == strJob))) {
            job.eLastEnd = EndKind::Exited;
            job.iLastDurationUsec = std::int64_t{iSeconds} * 1'000'000;
            bFound = true;
        }
    }
    if (!bFound) {
        throw ToolError(EXIT_WRONG, "--duration: there is no job \"" + strText.substr(0, uSign) + "\"");
    }
}

/// Of the installed jobs, it is shown what this service would do, by its own clock where no zone was asked for.
void TakeFromService(TimelineSpan& span, const Asked& asked, const std::string& strRoot) {
    Client client(strRoot);
    const Json::Value jsStatus = asked.strZone.empty() ? StatusInItsZone(client) : client.Ask("status");
    span.bPassive = jsStatus["role"] == "passive";
    span.bDraining = jsStatus["draining"].asBool();
    if (!asked.policy.IsGiven()) {
        span.ePolicy = ClockPolicyOf(jsStatus["policy"].asString()).value_or(span.ePolicy);
    }
    if (!asked.maxDelay.IsGiven()) {
        span.iMaxDelay = client.Ask("template")["maxDelay"].asInt();
    }
}

Timeline TimelineAskedFor(const Asked& asked, const Common& common) {
    TimelineSpan span;
    span.ePolicy = asked.ePolicy;
    span.iMaxDelay = asked.iMaxDelay;
    if (asked.vecFiles.empty()) {
        TakeFromService(span, asked, common.strRoot);
    }
    span.tFrom = asked.strFrom.empty() ? time(nullptr) : ParseTime(asked.strFrom);
    span.tTo = span.tFrom + std::time_t{asked.iHours} * 3600;
    std::vector<Job> vecJobs = JobsToSimulate(asked.vecFiles, common.strRoot, span.tFrom);
    for (const std::string& strDuration : asked.vecDurations) {
        SetDuration(strDuration, vecJobs);
    }
    return MakeTimeline(span, std::move(vecJobs));
}

ExitStatus Run(const Asked& asked, const Common& common) {
    if (common.bJson && asked.strSvg == "-") {
        throw ToolError(EXIT_BAD_USAGE, "--json and --svg - both want standard output: name a file");
    }
    UseZone(asked.strZone);
    const Timeline timeline = TimelineAskedFor(asked, common);
    const std::string strZone = ZoneName(asked.strZone);
    if (asked.strSvg) {
        WriteTextFile(*asked.strSvg, TimelineSvg(timeline, strZone));
        if (!common.bJson && asked.strSvg != "-") {
            std::cout << "Written to " << *asked.strSvg << ": " << SummaryOf(timeline, strZone) << "\n";
        }
    }
    if (common.bJson) {
        PrintTimelineJson(std::cout, timeline, strZone);
    } else if (!asked.strSvg) {
        const Pager pager(common);
        const std::size_t uTerminal = TerminalWidth();
        const std::size_t uWidth = uTerminal == 0 ? WIDTH_WITHOUT_TERMINAL : std::max(uTerminal, WIDTH_MIN);
        PrintChart(std::cout, timeline, {uWidth, SpeaksUtf8(), strZone});
    }
    return EXIT_DONE;
}

} // namespace

void AddTimeline(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command = AddCommand(app, common, "timeline", "Draw when everything runs, and what meets",
                                       [asked, &common] { return Run(*asked, common); });
    command.Option("--hours", asked->iHours, "Length of the time that is shown (24)").Type("N").Within(1, HOURS_MAX);
    command.Option("--from", asked->strFrom, "First instant: @EPOCH or local YYYY-MM-DDTHH:MM[:SS] (now)").Type("TIME");
    asked->policy = command.ClockOptions(asked->strZone, asked->ePolicy);
    asked->maxDelay = command.MaxDelayOption(asked->iMaxDelay);
    command.Option("--svg", asked->strSvg, "Draw it as SVG into FILE, - for standard output").Type("FILE");
    command.Option("--duration", asked->vecDurations, "Seconds of a run, instead of its last one's")
        .Type("JOB=SECONDS")
        .OneValueEach();
    command.Option("FILE", asked->vecFiles, "Definition files (the installed jobs)");
}

} // namespace VUKO::VUKOCrond::Ctl
