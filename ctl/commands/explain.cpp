#include <ctime>
#include <iostream>
#include <memory>

#include "ctl/command.h"
#include "ctl/fields.h"
#include "ctl/jobs.h"
#include "ctl/meaning.h"
#include "ctl/nextstarts.h"
#include "ctl/reviewtext.h"
#include "ctl/toolerror.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::size_t SHOWN_STARTS = 3;

const std::string& OnlyOne(const std::vector<std::string>& vecArguments) {
    if (vecArguments.size() != 1) {
        throw ToolError(EXIT_BAD_USAGE, "expected five fields in one argument, found " +
                                            std::to_string(vecArguments.size()) +
                                            " arguments: put quotes around the fields");
    }
    return vecArguments.front();
}

ExitStatus Run(const std::string& strCrontab, const Common& common) {
    UseZone(std::string());
    const Review review = ReviewCrontab(strCrontab);
    const bool bValid = review.vecErrors.empty();
    Json::Value jsResult(Json::objectValue);
    jsResult["crontab"] = strCrontab;
    jsResult["valid"] = bValid;
    jsResult["meaning"] = MeaningOf(strCrontab);
    const SourceText source(strCrontab);
    PutReview(jsResult, review, source);
    jsResult["next"] = Json::Value(Json::arrayValue);
    if (bValid) {
        for (const NextStart& start :
             FindNextStarts(JobOfCrontab(strCrontab), Service::ClockPolicy::CatchUp, time(nullptr), SHOWN_STARTS)) {
            Json::Value jsStart(Json::objectValue);
            jsStart["epoch"] = static_cast<Json::Int64>(start.tInstant);
            jsStart["local"] = LocalText(start.tInstant);
            jsStart["reason"] = ToText(start.eReason);
            jsResult["next"].append(jsStart);
        }
    }
    if (common.bJson) {
        PrintJson(jsResult);
        return bValid ? EXIT_DONE : EXIT_WRONG;
    }
    std::cout << "Meaning: " << (bValid ? MeaningOf(strCrontab) : "none, it is refused") << "\n";
    PrintReview(std::cout, std::string(), review, source);
    // Random values are drawn for each answer, which must not be taken for what a service drew and keeps.
    const bool bDrawn = IsRandom(RangesOf(strCrontab).value_or(FieldRanges()));
    for (const Json::Value& jsStart : jsResult["next"]) {
        std::cout << (bDrawn ? "Next, as drawn now: " : "Next: ") << jsStart["local"].asString() << "\n";
    }
    if (bValid && jsResult["next"].empty()) {
        std::cout << "Next: not within " << LOOK_AHEAD_YEARS << " years\n";
    }
    return bValid ? EXIT_DONE : EXIT_WRONG;
}

} // namespace

void AddExplain(CLI::App& app, Common& common) {
    // Several are taken, so that whoever forgot the quotes is told of them and not of what the shell made of a "*".
    const auto vecArguments = std::make_shared<std::vector<std::string>>();
    AddCommand(app, common, "explain", "Tell in words what five fields mean here",
               [vecArguments, &common] { return Run(OnlyOne(*vecArguments), common); })
        .Option("CRONTAB", *vecArguments, "Five fields, in one argument")
        .Required();
}

} // namespace VUKO::VUKOCrond::Ctl
