#include "crond/cronjob.h"

#include "platform/vukorandom.h"

namespace VUKO::RANDOM {

/// The scheduler's own source, so that what it draws can be told from other users of the platform's.
class VUKORandom : public VUKORandomBase {};

} // namespace VUKO::RANDOM

namespace VUKO::VUKOCrond {

namespace {

/// One for the whole process, made when the first value is drawn.
RANDOM::VUKORandom& SharedRandom() {
    static RANDOM::VUKORandom random;
    return random;
}

int DrawInclusive(std::int32_t iFrom, std::int32_t iTo) {
    // A field without rules may reach up to the greatest int; one past it wraps, which the source takes as meant.
    const auto iEnd = static_cast<std::int32_t>(static_cast<std::uint32_t>(iTo) + 1U);
    return SharedRandom().random(iFrom, iEnd);
}

} // namespace

const std::vector<std::string>& CronJob::GetAllScheduleTypes() {
    static const std::vector<std::string> vecTypes{SZK_MINUTE, SZK_HOUR, SZK_DAY, SZK_MONTH, SZK_WEEK};
    return vecTypes;
}

void CronJob::GenerateSchedule(const std::string& type, int preferred) {
    const std::vector<Range>& vecRanges = _mapRanges[type];
    const bool bPreferredOk = preferred != -1 && IsTimeValid(type.c_str(), preferred);
    Json::Value& jsSchedule = _jsJob["schedule"];
    if (!jsSchedule.isObject()) {
        jsSchedule = Json::Value(Json::objectValue);
    }
    Json::Value& jsValues = jsSchedule[type];
    jsValues = Json::Value(Json::arrayValue);
    for (const Range& range : vecRanges) {
        switch (range.kind) {
        case 0:
            jsValues.append(range.from);
            break;
        case 1:
            if (bPreferredOk && range.from <= preferred && preferred <= range.to) {
                jsValues.append(preferred);
            } else {
                jsValues.append(DrawInclusive(range.from, range.to));
            }
            break;
        case 2:
            jsValues.append(-1);
            break;
        default:
            break;
        }
    }
}

std::vector<int> CronJob::GetGeneratedScheduleByType(const std::string& type) const {
    const Json::Value& jsSchedule = _jsJob["schedule"];
    if (!jsSchedule.isObject()) {
        return {};
    }
    const Json::Value& jsValues = jsSchedule[type];
    if (!jsValues.isArray()) {
        return {};
    }
    std::vector<int> vecValues;
    vecValues.reserve(jsValues.size());
    for (const Json::Value& jsValue : jsValues) {
        if (!jsValue.isIntegral()) {
            return {};
        }
        vecValues.push_back(jsValue.asInt());
    }
    return vecValues;
}

} // namespace VUKO::VUKOCrond
