#include "service/engine/schedule.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr int ANY = -1;
const std::string EMPTY_FIELD = "X"; // as the library renders one

struct Field {
    std::uint64_t uMask = 0;
    bool bAny = false;
};

constexpr std::size_t FIELD_COUNT = 5;
using FieldValues = std::array<std::vector<int>, FIELD_COUNT>;

Field FieldOf(const std::vector<int>& vecValues) {
    Field field;
    for (const int iValue : vecValues) {
        if (iValue == ANY) {
            field.uMask = ~std::uint64_t{0};
            field.bAny = true;
        } else if (0 <= iValue && iValue < 64) {
            field.uMask |= std::uint64_t{1} << iValue;
        }
    }
    return field;
}

bool ReadValues(std::string_view strField, std::vector<int>& vecValues) {
    if (strField == EMPTY_FIELD) {
        return true;
    }
    for (;;) {
        int iValue = 0;
        const auto [pEnd, eError] = std::from_chars(strField.data(), strField.data() + strField.size(), iValue);
        if (eError != std::errc()) {
            return false;
        }
        vecValues.push_back(iValue);
        strField.remove_prefix(static_cast<std::size_t>(pEnd - strField.data()));
        if (strField.empty()) {
            return true;
        }
        if (strField.front() != ',') {
            return false;
        }
        strField.remove_prefix(1);
    }
}

std::optional<FieldValues> ReadSchedule(const std::string& strText) {
    FieldValues values;
    std::string_view strRest = strText;
    for (std::size_t uField = 0; uField < FIELD_COUNT; ++uField) {
        const std::size_t uEnd = uField + 1 < FIELD_COUNT ? strRest.find(' ') : strRest.size();
        if (uEnd == std::string_view::npos || !ReadValues(strRest.substr(0, uEnd), values[uField])) {
            return std::nullopt;
        }
        strRest.remove_prefix(std::min(uEnd + 1, strRest.size()));
    }
    return values;
}

std::string RangeText(const CronJob::Range& range) {
    switch (range.kind) {
    case 0:
        return std::to_string(range.from);
    case 1:
        return std::to_string(range.from) + "~" + std::to_string(range.to);
    default:
        return "*";
    }
}

} // namespace

Schedule::Schedule(const std::string& strText) {
    const std::optional<FieldValues> values = ReadSchedule(strText);
    if (!values) {
        return;
    }
    const Field minutes = FieldOf((*values)[0]);
    const Field hours = FieldOf((*values)[1]);
    _uMinutes = minutes.uMask;
    _bAnyMinute = minutes.bAny;
    _uHours = static_cast<std::uint32_t>(hours.uMask);
    _bAnyHour = hours.bAny;
    _uDays = static_cast<std::uint32_t>(FieldOf((*values)[2]).uMask);
    _uMonths = static_cast<std::uint16_t>(FieldOf((*values)[3]).uMask);
    _uWeekdays = static_cast<std::uint8_t>(FieldOf((*values)[4]).uMask);
}

std::string ScheduleToText(const CronJob& job) {
    return job.ToCurrentCrontabString();
}

std::vector<std::vector<int>> ScheduleValues(const std::string& strText) {
    const std::optional<FieldValues> values = ReadSchedule(strText);
    return values ? std::vector<std::vector<int>>(values->begin(), values->end()) : std::vector<std::vector<int>>();
}

bool ScheduleFromText(CronJob& job, const std::string& strText) {
    const std::optional<FieldValues> values = ReadSchedule(strText);
    if (!values) {
        return false;
    }
    for (std::size_t uField = 0; uField < FIELD_COUNT; ++uField) {
        Json::Value jsValues(Json::arrayValue);
        for (const int iValue : (*values)[uField]) {
            jsValues.append(iValue);
        }
        job._jsJob["schedule"][CronJob::GetAllScheduleTypes()[uField]] = std::move(jsValues);
    }
    return true;
}

std::string FieldsToText(const CronJob& job) {
    std::string strLine;
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        std::string strField;
        if (const auto itRanges = job._mapRanges.find(strType); itRanges != job._mapRanges.end()) {
            for (const CronJob::Range& range : itRanges->second) {
                strField += (strField.empty() ? "" : ",") + RangeText(range);
            }
        }
        strLine += (strLine.empty() ? "" : " ") + (strField.empty() ? EMPTY_FIELD : strField);
    }
    return strLine;
}

std::vector<std::string> SplitFields(const std::string& strLine) {
    std::vector<std::string> vecFields;
    for (std::size_t uFrom = 0; uFrom <= strLine.size();) {
        const std::size_t uEnd = std::min(strLine.find(' ', uFrom), strLine.size());
        vecFields.push_back(strLine.substr(uFrom, uEnd - uFrom));
        uFrom = uEnd + 1;
    }
    return vecFields;
}

} // namespace VUKO::VUKOCrond::Service
