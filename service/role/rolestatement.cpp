#include "service/role/rolestatement.h"

#include <charconv>
#include <string>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::int64_t USEC_PER_SEC = 1000000;
constexpr std::size_t FRACTION_DIGITS = 6;
/// Far beyond every clock, and far below what would overflow.
constexpr std::size_t SECONDS_DIGITS_MAX = 12;

bool IsDigits(std::string_view strText) {
    return !strText.empty() && strText.find_first_not_of("0123456789") == std::string_view::npos;
}

std::int64_t Number(std::string_view strDigits) {
    std::int64_t iValue = 0;
    std::from_chars(strDigits.data(), strDigits.data() + strDigits.size(), iValue);
    return iValue;
}

/// What is finer than a microsecond is cut off.
std::optional<std::int64_t> ParseInstant(std::string_view strText) {
    const std::size_t uDot = strText.find('.');
    const std::string_view strSeconds = strText.substr(0, uDot);
    if (!IsDigits(strSeconds) || strSeconds.size() > SECONDS_DIGITS_MAX) {
        return std::nullopt;
    }
    const std::int64_t iUsec = Number(strSeconds) * USEC_PER_SEC;
    if (uDot == std::string_view::npos) {
        return iUsec;
    }
    const std::string_view strFraction = strText.substr(uDot + 1);
    if (!IsDigits(strFraction)) {
        return std::nullopt;
    }
    std::string strMicroseconds(strFraction.substr(0, FRACTION_DIGITS));
    strMicroseconds.resize(FRACTION_DIGITS, '0');
    return iUsec + Number(strMicroseconds);
}

std::optional<Role> ParseWord(std::string_view strWord) {
    for (const Role eRole : {Role::Active, Role::Passive}) {
        if (strWord == ToText(eRole)) {
            return eRole;
        }
    }
    return std::nullopt;
}

} // namespace

const char* ToText(Role eRole) {
    return eRole == Role::Active ? "active" : "passive";
}

std::optional<RoleStatement> ParseRole(std::string_view strText) {
    const std::string_view strLine = strText.substr(0, strText.find('\n'));
    const std::size_t uBlank = strLine.find(" @");
    const std::optional<Role> role = ParseWord(strLine.substr(0, uBlank));
    if (!role) {
        return std::nullopt;
    }
    if (uBlank == std::string_view::npos) {
        return RoleStatement{*role, std::nullopt};
    }
    const std::optional<std::int64_t> fromUsec = ParseInstant(strLine.substr(uBlank + 2));
    if (!fromUsec) {
        return std::nullopt;
    }
    return RoleStatement{*role, fromUsec};
}

} // namespace VUKO::VUKOCrond::Service
