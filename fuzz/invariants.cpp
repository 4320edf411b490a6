#include "fuzz/invariants.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

using VUKO::VUKOCrond::CronJob;

namespace fuzz {

namespace {

void RequireRangeHolds(CronJob& job, const std::string& strType, const CronJob::Range& range, int iValue) {
    switch (range.kind) {
    case 0:
        Require(range.to == -1 && job.IsTimeValid(strType.c_str(), range.from), "a single value is in the domain");
        Require(iValue == range.from, "a single value is generated as it is");
        break;
    case 1:
        Require(range.from <= range.to && job.IsTimeValid(strType.c_str(), range.from) &&
                    job.IsTimeValid(strType.c_str(), range.to),
                "a random range is in the domain");
        Require(range.from <= iValue && iValue <= range.to, "a random value is in its range");
        break;
    case 2:
        Require(range.from == -1 && range.to == -1 && iValue == -1, "any value has no bounds");
        break;
    default:
        Require(false, "a range has one of three kinds");
    }
}

/// Rendered values, with "*" for any value, are a field's text again.
void RequireRoundTrip(CronJob& job, const std::string& strType, const std::vector<int>& vecValues) {
    std::string strField;
    for (const int iValue : vecValues) {
        strField += (strField.empty() ? "" : ",") + (iValue == -1 ? std::string("*") : std::to_string(iValue));
    }
    CronJob again(job);
    again._mapRanges.clear();
    Require(again.ParsePeriodByType(strType.c_str(), strField), "rendered values can be parsed");
    again.GenerateSchedule(strType, -1);
    Require(again.GetGeneratedScheduleByType(strType) == vecValues, "rendered values read back the same");
}

} // namespace

void Require(bool bHolds, const char* szWhat) {
    if (!bHolds) {
        static_cast<void>(fprintf(stderr, "does not hold: %s\n", szWhat));
        abort();
    }
}

bool ReadJson(const std::uint8_t* pData, std::size_t uSize, Json::Value& jsDocument) {
    const char* const pBegin = reinterpret_cast<const char*>(pData);
    Json::CharReaderBuilder builder;
    builder["stackLimit"] = 128;
    const std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
    try {
        return pReader->parse(pBegin, pBegin + uSize, &jsDocument, nullptr);
    } catch (const Json::Exception&) {
        return false;
    }
}

void RequireFieldHolds(CronJob& job, const std::string& strType) {
    job.GenerateSchedule(strType, -1);
    const std::vector<CronJob::Range> vecRanges = job._mapRanges[strType];
    const std::vector<int> vecValues = job.GetGeneratedScheduleByType(strType);
    Require(vecValues.size() == vecRanges.size(), "each item generates one value");
    for (std::size_t i = 0; i < vecRanges.size(); ++i) {
        RequireRangeHolds(job, strType, vecRanges[i], vecValues[i]);
    }
    if (!vecValues.empty()) {
        RequireRoundTrip(job, strType, vecValues);
    }
}

void RequireJobHolds(CronJob& job) {
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        // A field of commas alone has no items: it is accepted, generates nothing and never matches.
        const bool bOnlyCommas = job._jsJob["config"]["crontab"].isString() &&
                                 job._jsJob["config"]["crontab"].asString().find(',') != std::string::npos;
        Require(!job._mapRanges[strType].empty() || bOnlyCommas, "a field with items has ranges");
        RequireFieldHolds(job, strType);
    }
    Require(job._jsJob["cmd_list"].size() > 0, "there is a command");
    Require(job._jsJob["cmd_str"].isString(), "there is its text");
}

} // namespace fuzz
