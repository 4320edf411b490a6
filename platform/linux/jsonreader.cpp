#include "platform/linux/jsonreader.h"

#include <charconv>
#include <cstdint>
#include <string_view>

#include "platform/linux/utf8.h"

namespace VUKO::PLATFORM {

namespace {

constexpr std::uint32_t SURROGATE_HIGH = 0xD800;
constexpr std::uint32_t SURROGATE_LOW = 0xDC00;
constexpr std::uint32_t SURROGATE_END = 0xE000;
constexpr std::uint32_t SUPPLEMENT = 0x10000;

/// Every function consumes what it reads from the front of `_strRest` and tells whether that was there.
class Reader {
public:
    explicit Reader(std::string_view strText) : _strRest(strText) {}

    bool ReadDocument(Json::Value& value) {
        if (!ReadValue(value)) {
            return false;
        }
        SkipBlanks();
        return _strRest.empty();
    }

private:
    void SkipBlanks() {
        const std::size_t uBlanks = _strRest.find_first_not_of(" \t\n\r");
        _strRest.remove_prefix(uBlanks == std::string_view::npos ? _strRest.size() : uBlanks);
    }

    bool Take(std::string_view strToken) {
        if (!_strRest.starts_with(strToken)) {
            return false;
        }
        _strRest.remove_prefix(strToken.size());
        return true;
    }

    bool TakeAfterBlanks(std::string_view strToken) {
        SkipBlanks();
        return Take(strToken);
    }

    bool ReadValue(Json::Value& value) {
        SkipBlanks();
        if (_strRest.empty()) {
            return false;
        }
        switch (_strRest.front()) {
        case '{':
            return ReadNested(value, Json::objectValue, '}', &Reader::ReadMember);
        case '[':
            return ReadNested(value, Json::arrayValue, ']', &Reader::ReadElement);
        case '"':
            return ReadText(value);
        case 't':
            value = true;
            return Take("true");
        case 'f':
            value = false;
            return Take("false");
        case 'n':
            value = Json::Value();
            return Take("null");
        default:
            return ReadNumber(value);
        }
    }

    /// An object or array: items, separated by commas, up to the closing character.
    bool ReadNested(Json::Value& value, Json::ValueType kind, char cClose, bool (Reader::*readItem)(Json::Value&)) {
        if (_iDepth == JSON_DEPTH_MAX) {
            return false;
        }
        ++_iDepth;
        value = Json::Value(kind);
        _strRest.remove_prefix(1);
        const std::string_view strClose(&cClose, 1);
        if (!TakeAfterBlanks(strClose)) {
            do {
                if (!(this->*readItem)(value)) {
                    return false;
                }
            } while (TakeAfterBlanks(","));
            if (!Take(strClose)) {
                return false;
            }
        }
        --_iDepth;
        return true;
    }

    bool ReadElement(Json::Value& array) { return ReadValue(array.append(Json::Value())); }

    bool ReadMember(Json::Value& object) {
        std::string strName;
        SkipBlanks();
        return ReadQuoted(strName) && !object.isMember(strName) && TakeAfterBlanks(":") && ReadValue(object[strName]);
    }

    bool ReadText(Json::Value& value) {
        std::string strText;
        if (!ReadQuoted(strText)) {
            return false;
        }
        value = strText;
        return true;
    }

    bool ReadQuoted(std::string& strText) {
        if (!Take("\"")) {
            return false;
        }
        while (!Take("\"")) {
            if (!(Take("\\") ? ReadEscape(strText) : ReadCharacter(strText))) {
                return false;
            }
        }
        return true;
    }

    bool ReadCharacter(std::string& strText) {
        const std::size_t uLength = Utf8Length(_strRest);
        if (uLength == 0 || static_cast<unsigned char>(_strRest.front()) < 0x20) {
            return false;
        }
        strText.append(_strRest.substr(0, uLength));
        _strRest.remove_prefix(uLength);
        return true;
    }

    bool ReadEscape(std::string& strText) {
        if (Take("u")) {
            return ReadCodePoint(strText);
        }
        constexpr std::string_view ESCAPES = "\"\\/bfnrt";
        constexpr std::string_view MEANINGS = "\"\\/\b\f\n\r\t";
        const std::size_t uWhich = _strRest.empty() ? std::string_view::npos : ESCAPES.find(_strRest.front());
        if (uWhich == std::string_view::npos) {
            return false;
        }
        strText.push_back(MEANINGS[uWhich]);
        _strRest.remove_prefix(1);
        return true;
    }

    /// The four digits behind "\u", and those of the second half where they name a first one.
    bool ReadCodePoint(std::string& strText) {
        std::uint32_t uCode = 0;
        if (!ReadHex(uCode) || (uCode >= SURROGATE_LOW && uCode < SURROGATE_END)) {
            return false;
        }
        if (uCode >= SURROGATE_HIGH && uCode < SURROGATE_LOW) {
            std::uint32_t uLow = 0;
            if (!Take("\\u") || !ReadHex(uLow) || uLow < SURROGATE_LOW || uLow >= SURROGATE_END) {
                return false;
            }
            uCode = SUPPLEMENT + ((uCode - SURROGATE_HIGH) << 10) + (uLow - SURROGATE_LOW);
        }
        AppendUtf8(strText, uCode);
        return true;
    }

    bool ReadHex(std::uint32_t& uCode) {
        const std::string_view strDigits = _strRest.substr(0, 4);
        const char* const pEnd = strDigits.data() + strDigits.size();
        const auto result = std::from_chars(strDigits.data(), pEnd, uCode, 16);
        if (strDigits.size() != 4 || result.ec != std::errc() || result.ptr != pEnd) {
            return false;
        }
        _strRest.remove_prefix(4);
        return true;
    }

    static void AppendUtf8(std::string& strText, std::uint32_t uCode) {
        const auto Append = [&](std::uint32_t uByte) { strText.push_back(static_cast<char>(uByte)); };
        const auto AppendTail = [&](unsigned uShift) { Append(0x80 | ((uCode >> uShift) & 0x3F)); };
        if (uCode < 0x80) {
            Append(uCode);
        } else if (uCode < 0x800) {
            Append(0xC0 | (uCode >> 6));
            AppendTail(0);
        } else if (uCode < SUPPLEMENT) {
            Append(0xE0 | (uCode >> 12));
            AppendTail(6);
            AppendTail(0);
        } else {
            Append(0xF0 | (uCode >> 18));
            AppendTail(12);
            AppendTail(6);
            AppendTail(0);
        }
    }

    bool ReadNumber(Json::Value& value) {
        const std::string_view strStart = _strRest;
        Take("-");
        if (!Take("0") && !TakeDigits()) {
            return false;
        }
        bool bInteger = true;
        if (Take(".")) {
            bInteger = false;
            if (!TakeDigits()) {
                return false;
            }
        }
        if (Take("e") || Take("E")) {
            bInteger = false;
            static_cast<void>(Take("+") || Take("-"));
            if (!TakeDigits()) {
                return false;
            }
        }
        const std::string_view strNumber = strStart.substr(0, strStart.size() - _strRest.size());
        if (bInteger && (Convert<Json::LargestInt>(strNumber, value) || Convert<Json::LargestUInt>(strNumber, value))) {
            return true;
        }
        return Convert<double>(strNumber, value);
    }

    bool TakeDigits() {
        const std::size_t uDigits = _strRest.find_first_not_of("0123456789");
        const std::size_t uLength = uDigits == std::string_view::npos ? _strRest.size() : uDigits;
        _strRest.remove_prefix(uLength);
        return uLength > 0;
    }

    template <typename Number>
    static bool Convert(std::string_view strNumber, Json::Value& value) {
        Number number = {};
        const char* const pEnd = strNumber.data() + strNumber.size();
        const auto result = std::from_chars(strNumber.data(), pEnd, number);
        if (result.ec != std::errc() || result.ptr != pEnd) {
            return false;
        }
        value = number;
        return true;
    }

    std::string_view _strRest;
    int _iDepth = 0;
};

} // namespace

bool ReadJson(const std::string& strText, Json::Value& value) {
    return Reader(strText).ReadDocument(value);
}

} // namespace VUKO::PLATFORM
