#include "service/logtext.h"

#include <algorithm>

namespace VUKO::VUKOCrond::Service {

namespace {

bool IsPlain(char c) {
    return ' ' <= c && c <= '~';
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
    return std::any_of(strText.begin(), strText.end(), [](char c) { return (0 <= c && c < ' ') || c == '\x7f'; });
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
