#include "service/logtext.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace VUKO::VUKOCrond::Service {

namespace {

bool IsPlain(char c) {
    return ' ' <= c && c <= '~';
}

/// Stands for a byte that begins no character.
constexpr char32_t NO_CHARACTER = 0xFFFFFFFF;

/// The bits that a continuation byte carries; nothing for any other byte.
constexpr char32_t NOT_CONTINUED = 0x100;

char32_t ContinuationBits(char c) {
    const auto uByte = static_cast<unsigned char>(c);
    return (uByte & 0xC0) == 0x80 ? char32_t{uByte} & 0x3F : NOT_CONTINUED;
}

/// How many bytes a character has that begins with this one, and the smallest that needs so many.
struct Form {
    std::size_t uLength;
    char32_t uSmallest;
};

Form FormOf(unsigned char uFirst) {
    if (uFirst < 0x80) {
        return {1, 0};
    }
    if ((uFirst & 0xE0) == 0xC0) {
        return {2, 0x80};
    }
    if ((uFirst & 0xF0) == 0xE0) {
        return {3, 0x800};
    }
    return (uFirst & 0xF8) == 0xF0 ? Form{4, 0x10000} : Form{0, 0};
}

/// Takes the first character off a UTF-8 text that is not empty; where there is none, one byte.
char32_t TakeCharacter(std::string_view& strRest) {
    const std::string_view strText = strRest;
    strRest.remove_prefix(1);
    const auto uFirst = static_cast<unsigned char>(strText.front());
    const Form form = FormOf(uFirst);
    if (form.uLength == 0 || form.uLength > strText.size()) {
        return NO_CHARACTER;
    }
    char32_t uCode = form.uLength == 1 ? uFirst : uFirst & (0x7FU >> form.uLength);
    for (const char c : strText.substr(1, form.uLength - 1)) {
        if (ContinuationBits(c) == NOT_CONTINUED) {
            return NO_CHARACTER;
        }
        uCode = (uCode << 6) | ContinuationBits(c);
    }
    const bool bSurrogate = uCode >= 0xD800 && uCode <= 0xDFFF;
    if (uCode < form.uSmallest || uCode > 0x10FFFF || bSurrogate) {
        return NO_CHARACTER;
    }
    strRest.remove_prefix(form.uLength - 1);
    return uCode;
}

bool IsControl(char32_t uCode) {
    constexpr std::pair<char32_t, char32_t> RANGES[] = {
        {0x00, 0x1F},
        {0x7F, 0x9F}, // ASCII's and Unicode's control characters
        {0x2028, 0x202E},
        {0x2066, 0x2069}, // separators of lines and paragraphs, marks of direction
        {NO_CHARACTER, NO_CHARACTER}};
    return std::any_of(std::begin(RANGES), std::end(RANGES),
                       [uCode](const auto& range) { return range.first <= uCode && uCode <= range.second; });
}

void AppendByte(std::string& strOut, char c) {
    constexpr const char* szDigits = "0123456789abcdef";
    const auto uByte = static_cast<unsigned char>(c);
    strOut += "\\x";
    strOut += szDigits[uByte >> 4];
    strOut += szDigits[uByte & 0xf];
}

} // namespace

bool HoldsControlCharacter(std::string_view strText) {
    if (std::all_of(strText.begin(), strText.end(), IsPlain)) {
        return false;
    }
    while (!strText.empty()) {
        if (IsControl(TakeCharacter(strText))) {
            return true;
        }
    }
    return false;
}

std::size_t CountCharacters(std::string_view strText) {
    std::size_t uCount = 0;
    for (; !strText.empty(); ++uCount) {
        TakeCharacter(strText);
    }
    return uCount;
}

std::string Escaped(std::string_view strText) {
    std::string strOut;
    for (const char c : strText) {
        if (IsPlain(c)) {
            strOut += c;
        } else {
            AppendByte(strOut, c);
        }
    }
    return strOut;
}

std::string Quoted(std::string_view strText, std::size_t uMax) {
    std::string strOut = "\"";
    for (const char c : strText.substr(0, uMax)) {
        if (c == '"' || c == '\\') {
            strOut += '\\';
        }
        strOut += Escaped({&c, 1});
    }
    strOut += strText.size() > uMax ? "\"..." : "\"";
    return strOut;
}

} // namespace VUKO::VUKOCrond::Service
