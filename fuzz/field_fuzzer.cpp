/// One field's text; the first byte chooses the field.

#include "fuzz/invariants.h"

using VUKO::VUKOCrond::CronJob;

namespace {

CronJob AnyJob() {
    Json::Value jsJob;
    jsJob["config"]["name"] = "any";
    jsJob["config"]["user"] = "root";
    jsJob["config"]["period"] = "daily";
    jsJob["config"]["cmd"] = "true";
    return CronJob(jsJob);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
    if (uSize == 0) {
        return 0;
    }
    static const CronJob jobAny = AnyJob();
    CronJob job(jobAny);
    job._mapRanges.clear();
    const std::vector<std::string>& vecTypes = CronJob::GetAllScheduleTypes();
    const std::string& strType = vecTypes[pData[0] % vecTypes.size()];
    const std::string strField(reinterpret_cast<const char*>(pData + 1), uSize - 1);
    if (job.ParsePeriodByType(strType.c_str(), strField)) {
        fuzz::RequireFieldHolds(job, strType);
    }
    return 0;
}
