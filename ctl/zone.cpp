#include "ctl/zone.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <set>

#include "ctl/toolerror.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr const char* ZONE_FOLDER = "/usr/share/zoneinfo";
constexpr int TM_YEAR_BASE = 1900;
/// The years 1 to 9999, but for a day at either end: others cannot be written as a local time.
constexpr std::int64_t EPOCH_MIN = -62135510400;
constexpr std::int64_t EPOCH_MAX = 253402214400;

bool IsKnownZone(const std::string& strZone) {
    if (strZone == "UTC" || strZone == "GMT") {
        return true;
    }
    if (strZone.find("..") == std::string::npos && strZone.front() != '/') {
        std::error_code error;
        if (std::filesystem::is_regular_file(std::filesystem::path(ZONE_FOLDER) / strZone, error)) {
            return true;
        }
    }
    static const std::regex posix(R"((<[A-Za-z0-9+-]{3,}>|[A-Za-z]{3,})[+-]?\d{1,3}(:\d{1,2}){0,2}.*)");
    return std::regex_match(strZone, posix);
}

/// What the database holds for a name; empty where it has none.
std::string ZoneData(const std::string& strZone) {
    const std::filesystem::path path = std::filesystem::path(ZONE_FOLDER) / strZone;
    std::error_code error;
    if (strZone.empty() || strZone.front() == '/' || !std::filesystem::is_regular_file(path, error)) {
        return std::string();
    }
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

[[noreturn]] void RefuseTime(const std::string& strText) {
    throw ToolError(EXIT_BAD_USAGE, "\"" + strText + "\" is no time: expected @EPOCH or YYYY-MM-DDTHH:MM[:SS]");
}

bool SameWallTime(const std::tm& left, const std::tm& right) {
    return left.tm_year == right.tm_year && left.tm_mon == right.tm_mon && left.tm_mday == right.tm_mday &&
           left.tm_hour == right.tm_hour && left.tm_min == right.tm_min && left.tm_sec == right.tm_sec;
}

std::tm LocalTime(std::time_t tInstant) {
    std::tm tmLocal = {};
    if (localtime_r(&tInstant, &tmLocal) == nullptr) {
        throw ToolError(EXIT_WRONG, "the time @" + std::to_string(tInstant) + " has no local time");
    }
    return tmLocal;
}

std::string Formatted(std::time_t tInstant, const char* szFormat) {
    const std::tm tmLocal = LocalTime(tInstant);
    char szText[96];
    return std::string(szText, std::strftime(szText, sizeof(szText), szFormat, &tmLocal));
}

/// The first instant at which the wall clock shows that time; one that it never shows is counted on from before the
/// gap.
///
/// Not by mktime(): what it makes of a time that comes twice or never is not the same in each zone.
std::time_t FirstInstantOf(std::tm tmWanted) {
    constexpr std::time_t HOUR = 3600;
    const std::tm tmShown = tmWanted;
    const std::time_t tUtc = timegm(&tmWanted);
    std::set<long> setOffsets; // those that the zone has around that time; the change of a day is one of 24 hours
    for (std::time_t tNear = tUtc - 26 * HOUR; tNear <= tUtc + 26 * HOUR; tNear += HOUR) {
        setOffsets.insert(LocalTime(tNear).tm_gmtoff);
    }
    for (auto it = setOffsets.rbegin(); it != setOffsets.rend(); ++it) {
        if (SameWallTime(LocalTime(tUtc - *it), tmShown)) {
            return tUtc - *it;
        }
    }
    return tUtc - *setOffsets.begin();
}

bool IsDate(const std::tm& tmWanted) {
    std::tm tmUtc = tmWanted;
    const std::time_t tUtc = timegm(&tmUtc);
    std::tm tmBack = {};
    return gmtime_r(&tUtc, &tmBack) != nullptr && SameWallTime(tmBack, tmWanted);
}

/// "@EPOCH"; nothing for a text that begins otherwise.
std::optional<std::time_t> ParseEpoch(const std::string& strText) {
    if (strText.empty() || strText.front() != '@') {
        return std::nullopt;
    }
    std::int64_t iEpoch = 0;
    const char* const pEnd = strText.data() + strText.size();
    const auto [pRead, eError] = std::from_chars(strText.data() + 1, pEnd, iEpoch);
    if (eError != std::errc() || pRead != pEnd || iEpoch < EPOCH_MIN || iEpoch > EPOCH_MAX) {
        RefuseTime(strText);
    }
    return static_cast<std::time_t>(iEpoch);
}

std::tm ParseWallTime(const std::string& strText) {
    static const std::regex local(R"((\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2})(?::(\d{2}))?)");
    std::smatch match;
    if (!std::regex_match(strText, match, local)) {
        RefuseTime(strText);
    }
    std::tm tmWanted = {};
    tmWanted.tm_year = std::stoi(match[1]) - TM_YEAR_BASE;
    tmWanted.tm_mon = std::stoi(match[2]) - 1;
    tmWanted.tm_mday = std::stoi(match[3]);
    tmWanted.tm_hour = std::stoi(match[4]);
    tmWanted.tm_min = std::stoi(match[5]);
    tmWanted.tm_sec = match[6].matched ? std::stoi(match[6]) : 0;
    if (!IsDate(tmWanted) || tmWanted.tm_year <= -TM_YEAR_BASE) {
        RefuseTime(strText);
    }
    return tmWanted;
}

} // namespace

void UseZone(const std::string& strZone) {
    if (!strZone.empty()) {
        if (!IsKnownZone(strZone)) {
            throw ToolError(EXIT_BAD_USAGE, "\"" + strZone + "\" is no time zone; names look like Europe/Berlin");
        }
        setenv("TZ", strZone.c_str(), 1);
    }
    tzset();
}

void UseServiceZone(const Json::Value& jsStatus) {
    const std::string strZone = jsStatus["tz"].asString();
    if (strZone.empty()) {
        unsetenv("TZ");
    } else {
        setenv("TZ", strZone.c_str(), 1);
    }
    tzset();
    const long lOffset = static_cast<long>(jsStatus["offset"].asInt64());
    if (LocalTime(static_cast<std::time_t>(jsStatus["now"].asInt64())).tm_gmtoff == lOffset) {
        return;
    }
    // It runs somewhere else, as in a container with another /etc/localtime: what it shows now is all that is known.
    const long lMinutes = std::labs(lOffset) / 60;
    char szRule[64];
    std::snprintf(szRule, sizeof(szRule), "<%c%02ld%02ld>%c%ld:%02ld", lOffset < 0 ? '-' : '+', lMinutes / 60,
                  lMinutes % 60, lOffset < 0 ? '+' : '-', lMinutes / 60, lMinutes % 60);
    setenv("TZ", szRule, 1);
    tzset();
}

bool IsSameZone(const std::string& strOne, const std::string& strOther) {
    if (strOne == strOther) {
        return true;
    }
    const std::string strData = ZoneData(strOne);
    return !strData.empty() && strData == ZoneData(strOther);
}

std::string ZoneName(const std::string& strAskedFor) {
    if (!strAskedFor.empty()) {
        return strAskedFor;
    }
    if (const char* const szZone = std::getenv("TZ"); szZone != nullptr && *szZone != '\0') {
        return *szZone == ':' ? szZone + 1 : szZone;
    }
    std::error_code error;
    const std::string strTarget = std::filesystem::read_symlink("/etc/localtime", error).string();
    if (const std::size_t uAt = strTarget.find("zoneinfo/"); uAt != std::string::npos) {
        return strTarget.substr(uAt + 9);
    }
    std::ifstream file("/etc/timezone");
    std::string strName;
    return std::getline(file, strName) && !strName.empty() ? strName : "UTC";
}

std::time_t ParseTime(const std::string& strText) {
    const std::optional<std::time_t> epoch = ParseEpoch(strText);
    return epoch ? *epoch : FirstInstantOf(ParseWallTime(strText));
}

std::int64_t ParseWallMinute(const std::string& strText) {
    const std::optional<std::time_t> epoch = ParseEpoch(strText);
    std::tm tmWall = epoch ? LocalTime(*epoch) : ParseWallTime(strText);
    tmWall.tm_sec = 0;
    return static_cast<std::int64_t>(timegm(&tmWall)) / 60;
}

std::string WallText(std::int64_t iLocalMinute) {
    const std::time_t tWall = static_cast<std::time_t>(iLocalMinute * 60);
    std::tm tmWall = {};
    char szText[64];
    return gmtime_r(&tWall, &tmWall) == nullptr
               ? std::string()
               : std::string(szText, std::strftime(szText, sizeof(szText), "%Y-%m-%dT%H:%M", &tmWall));
}

std::string ShortText(std::time_t tInstant) {
    return Formatted(tInstant, "%Y-%m-%d %H:%M");
}

std::string ShortTextWithSeconds(std::time_t tInstant) {
    return Formatted(tInstant, "%Y-%m-%d %H:%M:%S");
}

std::string ShortTextWithZone(std::time_t tInstant) {
    return Formatted(tInstant, "%a %Y-%m-%d %H:%M:%S %Z");
}

std::string LocalText(std::time_t tInstant) {
    const std::tm tmLocal = LocalTime(tInstant);
    const long lMinutes = std::labs(tmLocal.tm_gmtoff) / 60;
    char szOffset[32];
    std::snprintf(szOffset, sizeof(szOffset), "%c%02ld:%02ld", tmLocal.tm_gmtoff < 0 ? '-' : '+', lMinutes / 60,
                  lMinutes % 60);
    return LocalFormat(tInstant, "%Y-%m-%dT%H:%M:%S") + szOffset;
}

std::string LocalFormat(std::time_t tInstant, const char* szFormat) {
    const std::tm tmLocal = LocalTime(tInstant);
    char szText[64];
    return std::string(szText, std::strftime(szText, sizeof(szText), szFormat, &tmLocal));
}

std::time_t YearsLater(std::time_t tInstant, int iYears) {
    std::tm tmLocal = LocalTime(tInstant);
    tmLocal.tm_year += iYears;
    if (!IsDate(tmLocal)) {
        tmLocal.tm_mday = 28;
    }
    tmLocal.tm_isdst = -1;
    return mktime(&tmLocal);
}

std::time_t DayBegin(std::time_t tInstant, int iDays) {
    std::tm tmDay = LocalTime(tInstant);
    tmDay.tm_hour = tmDay.tm_min = tmDay.tm_sec = 0;
    tmDay.tm_mday += iDays;
    tmDay.tm_isdst = -1;
    return mktime(&tmDay);
}

} // namespace VUKO::VUKOCrond::Ctl
