#include "service/jsontext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr char32_t HIGH_SURROGATE = 0xD800;
constexpr char32_t LOW_SURROGATE = 0xDC00;
constexpr char32_t SURROGATE_END = 0xE000;
constexpr char32_t CODE_POINT_END = 0x110000;
constexpr std::size_t UNICODE_ESCAPE_LENGTH = 6; // \uXXXX

bool IsDigit(char c) {
    return '0' <= c && c <= '9';
}

std::size_t CountDigits(std::string_view strText) {
    std::size_t uCount = 0;
    while (uCount < strText.size() && IsDigit(strText[uCount])) {
        ++uCount;
    }
    return uCount;
}

/// Bytes of the number at the beginning of a text; 0 when there is none of JSON's form.
std::size_t NumberLength(std::string_view strText) {
    std::size_t uAt = strText[0] == '-' ? 1 : 0;
    const std::size_t uWhole = CountDigits(strText.substr(uAt));
    if (uWhole == 0 || (uWhole > 1 && strText[uAt] == '0')) {
        return 0;
    }
    uAt += uWhole;
    if (uAt < strText.size() && strText[uAt] == '.') {
        const std::size_t uFraction = CountDigits(strText.substr(uAt + 1));
        if (uFraction == 0) {
            return 0;
        }
        uAt += 1 + uFraction;
    }
    if (uAt < strText.size() && (strText[uAt] == 'e' || strText[uAt] == 'E')) {
        ++uAt;
        uAt += uAt < strText.size() && (strText[uAt] == '+' || strText[uAt] == '-') ? 1 : 0;
        const std::size_t uExponent = CountDigits(strText.substr(uAt));
        return uExponent == 0 ? 0 : uAt + uExponent;
    }
    return uAt;
}

/// Bytes of the character at the beginning of a text; 0 when it is no UTF-8.
std::size_t CharacterLength(std::string_view strText) {
    const auto uLead = static_cast<unsigned char>(strText[0]);
    if (uLead < 0x80) {
        return 1;
    }
    const std::size_t uLength = uLead >= 0xF0 ? 4 : uLead >= 0xE0 ? 3 : 2;
    if (uLead < 0xC0 || uLead > 0xF7 || strText.size() < uLength) {
        return 0;
    }
    char32_t uCode = uLead & (0x7Fu >> uLength);
    for (const char c : strText.substr(1, uLength - 1)) {
        const auto uByte = static_cast<unsigned char>(c);
        if ((uByte & 0xC0u) != 0x80u) {
            return 0;
        }
        uCode = (uCode << 6) | (uByte & 0x3Fu);
    }
    constexpr char32_t aLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool bSurrogate = HIGH_SURROGATE <= uCode && uCode < SURROGATE_END;
    return uCode < aLeast[uLength] || bSurrogate || uCode >= CODE_POINT_END ? 0 : uLength;
}

std::optional<char32_t> ReadUnicodeEscape(std::string_view strText) {
    if (strText.size() < UNICODE_ESCAPE_LENGTH || strText[0] != '\\' || strText[1] != 'u') {
        return std::nullopt;
    }
    char32_t uCode = 0;
    for (const char c : strText.substr(2, UNICODE_ESCAPE_LENGTH - 2)) {
        const char cLower = static_cast<char>(c | 0x20);
        const bool bLetter = 'a' <= cLower && cLower <= 'f';
        if (!bLetter && !IsDigit(c)) {
            return std::nullopt;
        }
        uCode = uCode * 16 + static_cast<char32_t>(bLetter ? cLower - 'a' + 10 : c - '0');
    }
    return uCode;
}

/// Bytes of the escape at the beginning of a text; 0 when it names no character. Others than \u are the library's to
/// judge.
std::size_t EscapeLength(std::string_view strText) {
    if (strText.size() < 2 || strText[1] != 'u') {
        return strText.size() < 2 ? 0 : 2;
    }
    const std::optional<char32_t> code = ReadUnicodeEscape(strText);
    if (!code || (LOW_SURROGATE <= *code && *code < SURROGATE_END)) {
        return 0;
    }
    if (*code < HIGH_SURROGATE || *code >= SURROGATE_END) {
        return UNICODE_ESCAPE_LENGTH;
    }
    const std::optional<char32_t> low = ReadUnicodeEscape(strText.substr(UNICODE_ESCAPE_LENGTH));
    return low && LOW_SURROGATE <= *low && *low < SURROGATE_END ? 2 * UNICODE_ESCAPE_LENGTH : 0;
}

/// Bytes of what stands next inside a string.
std::size_t StringPieceLength(std::string_view strText) {
    if (strText[0] == '\\') {
        return EscapeLength(strText);
    }
    return static_cast<unsigned char>(strText[0]) < ' ' ? 0 : CharacterLength(strText);
}

/// Bytes of what stands next outside of strings.
std::size_t TokenPieceLength(std::string_view strText) {
    const char c = strText[0];
    if (c == '-' || IsDigit(c)) {
        return NumberLength(strText);
    }
    constexpr std::string_view strOthers = "{}[]:, \t\n\r";
    return strOthers.find(c) != std::string_view::npos || ('a' <= c && c <= 'z') ? 1 : 0;
}

constexpr const char* NO_UTF8 = "A byte that is no UTF-8";

const char* WhatInString(char cBad) {
    if (cBad == '\\') {
        return "An escape that names no character";
    }
    return static_cast<unsigned char>(cBad) < ' ' ? "A bare control character in a text" : NO_UTF8;
}

const char* WhatOutside(std::string_view strText) {
    const char c = strText[0];
    if (strText.starts_with("\xef\xbb\xbf")) {
        return "A byte order mark: JSON has none";
    }
    if (strText.starts_with("//") || strText.starts_with("/*")) {
        return "A comment: JSON has none";
    }
    if (IsDigit(c) || c == '-' || c == '+' || c == '.') {
        return "A number of another form than JSON's";
    }
    if (static_cast<unsigned char>(c) < ' ') {
        return "A control character";
    }
    return CharacterLength(strText) == 0 ? NO_UTF8 : nullptr;
}

} // namespace

std::optional<BadForm> FindBadForm(std::string_view strText) {
    bool bInString = false;
    for (std::size_t uAt = 0; uAt < strText.size();) {
        const std::string_view strRest = strText.substr(uAt);
        const bool bQuote = strRest[0] == '"';
        const std::size_t uLength = bQuote ? 1 : bInString ? StringPieceLength(strRest) : TokenPieceLength(strRest);
        if (uLength == 0) {
            return BadForm{uAt, bInString ? WhatInString(strRest[0]) : WhatOutside(strRest)};
        }
        bInString = bInString != bQuote;
        uAt += uLength;
    }
    return bInString ? std::optional<BadForm>({strText.size(), nullptr}) : std::nullopt;
}

bool HasStrictForm(std::string_view strText) {
    return !FindBadForm(strText);
}

} // namespace VUKO::VUKOCrond::Service
