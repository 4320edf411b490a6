/// A whole definition.

#include "crond/utils.h"
#include "fuzz/invariants.h"

using VUKO::VUKOCrond::CronJob;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
    Json::Value jsDefinition;
    if (!fuzz::ReadJson(pData, uSize, jsDefinition)) {
        return 0;
    }
    const Json::Value jsBefore = jsDefinition;
    Json::Value jsJob(Json::objectValue);
    jsJob["config"] = jsDefinition;
    CronJob job(jsJob);
    if (jsDefinition.isObject()) {
        fuzz::Require(VUKO::VUKOCrond::checkJobFormat(jsDefinition) == job._bValid,
                      "validation and construction agree");
    } else {
        fuzz::Require(!job._bValid, "only an object is a definition");
    }
    fuzz::Require(jsDefinition == jsBefore, "a definition is not changed by being looked at");
    if (job._bValid) {
        fuzz::RequireJobHolds(job);
    }
    return 0;
}
