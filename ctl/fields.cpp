#include "ctl/fields.h"

#include <algorithm>

#include "service/definitions/definitionreason.h"

namespace VUKO::VUKOCrond::Ctl {

std::vector<Piece> PiecesOf(const Piece& text, const char* szSeparators) {
    std::vector<Piece> vecPieces;
    for (std::size_t uFrom = 0; (uFrom = text.strText.find_first_not_of(szSeparators, uFrom)) != std::string::npos;) {
        const std::size_t uEnd = std::min(text.strText.find_first_of(szSeparators, uFrom), text.strText.size());
        vecPieces.push_back({text.strText.substr(uFrom, uEnd - uFrom), text.uFrom + uFrom});
        uFrom = uEnd;
    }
    return vecPieces;
}

Json::Value DefinitionOfCrontab(const std::string& strCrontab) {
    Json::Value jsDefinition(Json::objectValue);
    jsDefinition["name"] = "crontab";
    jsDefinition["user"] = "root";
    jsDefinition["period"] = "crontab";
    jsDefinition["crontab"] = strCrontab;
    jsDefinition["cmd"] = "/bin/true";
    return jsDefinition;
}

bool IsRandom(const std::vector<CronJob::Range>& vecRanges) {
    return std::any_of(vecRanges.begin(), vecRanges.end(),
                       [](const CronJob::Range& range) { return range.kind == RANDOM; });
}

bool IsRandom(const FieldRanges& ranges) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [](const std::vector<CronJob::Range>& vecRanges) { return IsRandom(vecRanges); });
}

std::optional<FieldRanges> RangesOf(const std::string& strCrontab) {
    Json::Value jsDocument(Json::objectValue);
    jsDocument["config"] = DefinitionOfCrontab(strCrontab);
    if (Service::FindInvalid(jsDocument["config"])) {
        return std::nullopt; // asked beforehand, because the library logs what it refuses
    }
    CronJob record(jsDocument);
    FieldRanges ranges;
    for (std::size_t u = 0; u < ranges.size(); ++u) {
        ranges[u] = record._mapRanges[CronJob::GetAllScheduleTypes()[u]];
    }
    return ranges;
}

} // namespace VUKO::VUKOCrond::Ctl
