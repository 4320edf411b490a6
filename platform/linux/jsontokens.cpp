#include "platform/linux/jsontokens.h"

#include <charconv>
#include <cstddef>
#include <system_error>

namespace VUKO::PLATFORM {

namespace {

constexpr std::string_view DIGITS = "0123456789";
constexpr std::string_view NUMBER_STARTS = "+-.0123456789";
constexpr std::string_view NUMBER_PARTS = "+-.eE0123456789";

/// Every function consumes what it reads from the front of `_strRest` and tells whether that was in order.
class Tokens {
public:
    explicit Tokens(std::string_view strText) : _strRest(strText) {}

    bool AreStrict() {
        while (!_strRest.empty()) {
            if (Take("\"") ? !ReadString() : !ReadOutside()) {
                return false;
            }
        }
        return true;
    }

private:
    bool Take(std::string_view strToken) {
        if (!_strRest.starts_with(strToken)) {
            return false;
        }
        _strRest.remove_prefix(strToken.size());
        return true;
    }

    bool NextIsOneOf(std::string_view strCharacters) const {
        return !_strRest.empty() && strCharacters.find(_strRest.front()) != std::string_view::npos;
    }

    bool ReadOutside() {
        if (NextIsOneOf(NUMBER_STARTS)) {
            return ReadNumber();
        }
        // The reader passes over comments between members and behind values, whatever it is told.
        const bool bComment = NextIsOneOf("/");
        const bool bControl = static_cast<unsigned char>(_strRest.front()) < 0x20 && !NextIsOneOf("\t\n\r");
        _strRest.remove_prefix(1);
        return !bControl && !bComment;
    }

    bool ReadNumber() {
        Take("-");
        if (!Take("0") && !TakeDigits()) {
            return false;
        }
        if (Take(".") && !TakeDigits()) {
            return false;
        }
        if (Take("e") || Take("E")) {
            static_cast<void>(Take("+") || Take("-"));
            if (!TakeDigits()) {
                return false;
            }
        }
        return !NextIsOneOf(NUMBER_PARTS);
    }

    bool TakeDigits() {
        const std::size_t uEnd = _strRest.find_first_not_of(DIGITS);
        const std::size_t uDigits = uEnd == std::string_view::npos ? _strRest.size() : uEnd;
        _strRest.remove_prefix(uDigits);
        return uDigits > 0;
    }

    /// The rest of a string, behind its first quote.
    bool ReadString() {
        while (!Take("\"")) {
            if (_strRest.empty() || static_cast<unsigned char>(_strRest.front()) < 0x20) {
                return false;
            }
            if (Take("\\u")) {
                if (!ReadCodePoint()) {
                    return false;
                }
            } else {
                _strRest.remove_prefix(_strRest.starts_with('\\') && _strRest.size() > 1 ? 2 : 1);
            }
        }
        return true;
    }

    /// The four digits behind "\u", and the second half of a pair where they are a first one.
    bool ReadCodePoint() {
        unsigned uCode = 0;
        if (!ReadHex(uCode) || IsLowSurrogate(uCode)) {
            return false;
        }
        const bool bHigh = uCode >= 0xD800 && uCode <= 0xDBFF;
        return !bHigh || (Take("\\u") && ReadHex(uCode) && IsLowSurrogate(uCode));
    }

    static bool IsLowSurrogate(unsigned uCode) { return uCode >= 0xDC00 && uCode <= 0xDFFF; }

    bool ReadHex(unsigned& uCode) {
        const std::string_view strDigits = _strRest.substr(0, 4);
        const char* const pEnd = strDigits.data() + strDigits.size();
        const auto result = std::from_chars(strDigits.data(), pEnd, uCode, 16);
        if (strDigits.size() != 4 || result.ec != std::errc() || result.ptr != pEnd) {
            return false;
        }
        _strRest.remove_prefix(4);
        return true;
    }

    std::string_view _strRest;
};

} // namespace

bool HasStrictJsonTokens(std::string_view strText) {
    return Tokens(strText).AreStrict();
}

} // namespace VUKO::PLATFORM
