#include "crond/cronjob.h"

#include <charconv>
#include <system_error>

#include "base/syslog_line.h"
#include "crond/cronjob/logsource.h"
#include "platform/vukoutils.h"

namespace VUKO::VUKOCrond {

namespace {

struct FieldDomain {
    char cType;             ///< first character of the field's key
    std::int32_t iFrom;     ///< least value that may be written
    std::int32_t iTo;       ///< greatest value that may be written
    std::int32_t iRandomTo; ///< greatest value that "~" may draw
};

// A random day stops at 28: it exists in every month, so a monthly job never skips one.
constexpr FieldDomain FIELD_DOMAINS[] = {
    {'M', 0, 59, 59}, {'h', 0, 23, 23}, {'d', 1, 31, 28}, {'m', 1, 12, 12}, {'w', 0, 6, 6},
};

const FieldDomain* FindDomain(const char* szType) {
    for (const FieldDomain& domain : FIELD_DOMAINS) {
        if (domain.cType == szType[0]) {
            return &domain;
        }
    }
    return nullptr;
}

/// Reads one decimal int with an optional sign and blanks around it, and nothing else. Read by hand and not with a
/// stream or strtol(): those follow the process's locale, and a blank that it invents must not change a schedule.
bool ReadNumber(const std::string& strText, std::int32_t& iValue) {
    constexpr const char* szBlanks = " \t\n\v\f\r";
    std::size_t uBegin = strText.find_first_not_of(szBlanks);
    if (uBegin == std::string::npos) {
        return false;
    }
    const std::size_t uEnd = strText.find_last_not_of(szBlanks) + 1;
    if (strText[uBegin] == '+') {
        ++uBegin;
        if (uBegin < uEnd && strText[uBegin] == '-') {
            return false;
        }
    }
    const char* const pEnd = strText.data() + uEnd;
    const std::from_chars_result result = std::from_chars(strText.data() + uBegin, pEnd, iValue, 10);
    return result.ec == std::errc() && result.ptr == pEnd;
}

bool ParseSingle(const std::string& strPiece, CronJob::Range& range) {
    if (!ReadNumber(strPiece, range.from)) {
        VUKO_LOG(LOG_ERR, 338, "%s is not a valid number", strPiece.c_str());
        return false;
    }
    return true;
}

bool ParseRandomRange(const std::string& strPiece, CronJob::Range& range) {
    range.kind = 1;
    std::vector<std::string> vecParts;
    VUKOUtils::StringExplode(vecParts, strPiece, "~");
    if (vecParts.size() != 2) {
        return false;
    }
    if (!ReadNumber(vecParts[0], range.from)) {
        VUKO_LOG(LOG_ERR, 352, "%s is not a valid number", vecParts[0].c_str());
        return false;
    }
    if (!ReadNumber(vecParts[1], range.to)) {
        VUKO_LOG(LOG_ERR, 356, "%s is not a valid number", vecParts[1].c_str());
        return false;
    }
    if (range.to < range.from) {
        VUKO_LOG(LOG_ERR, 360, "range.from[%d] cannot greater than range.to[%d]", range.from, range.to);
        return false;
    }
    return true;
}

} // namespace

bool CronJob::IsTimeValid(const char* type, int value) {
    const FieldDomain* const pDomain = FindDomain(type);
    return pDomain == nullptr || (pDomain->iFrom <= value && value <= pDomain->iTo);
}

void CronJob::GetBoundsByType(CronJob::Range& range, const char* type) {
    range.kind = 1;
    if (const FieldDomain* const pDomain = FindDomain(type)) {
        range.from = pDomain->iFrom;
        range.to = pDomain->iRandomTo;
    }
}

bool CronJob::ParsePeriodByType(const char* type, const std::string& field) {
    std::vector<std::string> vecPieces;
    VUKOUtils::StringExplode(vecPieces, field, ",");
    for (const std::string& strPiece : vecPieces) {
        Range range;
        const char cFirst = strPiece[0]; // NUL for an empty piece, which another platform may keep
        if (cFirst == '~') {
            GetBoundsByType(range, type);
        } else if (cFirst == '*') {
            range.kind = 2;
        } else if (strPiece.find('~') != std::string::npos) {
            if (!ParseRandomRange(strPiece, range) || !IsTimeValid(type, range.from) || !IsTimeValid(type, range.to)) {
                return false;
            }
        } else if (!ParseSingle(strPiece, range) || !IsTimeValid(type, range.from)) {
            return false;
        }
        _mapRanges[type].push_back(range);
    }
    return true;
}

} // namespace VUKO::VUKOCrond
