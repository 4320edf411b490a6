#include "ctl/timeline/xmltext.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::string_view REPLACEMENT = "\xef\xbf\xbd";

/// Bytes of the character that the text begins with; 0 where that is none of UTF-8, or none that XML takes.
std::size_t CharacterBytes(std::string_view strText) {
    const auto uFirst = static_cast<unsigned char>(strText.front());
    if (uFirst < 0x80U) {
        return uFirst >= 0x20U || uFirst == '\t' || uFirst == '\n' || uFirst == '\r' ? 1 : 0;
    }
    const std::size_t uBytes = uFirst >= 0xf0U ? 4 : uFirst >= 0xe0U ? 3 : uFirst >= 0xc0U ? 2 : 0;
    if (uBytes == 0 || uBytes > strText.size() || uFirst > 0xf4U) {
        return 0;
    }
    std::uint32_t uCode = uFirst & (0xffU >> (uBytes + 1));
    for (std::size_t u = 1; u < uBytes; ++u) {
        const auto uByte = static_cast<unsigned char>(strText[u]);
        if ((uByte & 0xc0U) != 0x80U) {
            return 0;
        }
        uCode = uCode << 6 | (uByte & 0x3fU);
    }
    constexpr std::uint32_t aLeast[] = {0x80, 0x800, 0x10000};
    const bool bTaken = uCode >= aLeast[uBytes - 2] && uCode <= 0x10ffff && (uCode < 0xd800 || uCode > 0xdfff) &&
                        uCode != 0xfffe && uCode != 0xffff;
    return bTaken ? uBytes : 0;
}

} // namespace

std::string XmlText(std::string_view strText) {
    std::string strXml;
    while (!strText.empty()) {
        const std::size_t uBytes = CharacterBytes(strText);
        const char c = strText.front();
        const char* const szEntity = c == '&'    ? "&amp;"
                                     : c == '<'  ? "&lt;"
                                     : c == '>'  ? "&gt;"
                                     : c == '"'  ? "&quot;"
                                     : c == '\'' ? "&#39;"
                                                 : nullptr;
        if (szEntity != nullptr) {
            strXml += szEntity;
        } else {
            strXml += uBytes == 0 ? REPLACEMENT : strText.substr(0, uBytes);
        }
        strText.remove_prefix(uBytes == 0 ? 1 : uBytes);
    }
    return strXml;
}

std::string XmlNumber(double dValue) {
    const long lTenths = std::lround(dValue * 10);
    const std::string strWhole = (lTenths < 0 ? "-" : "") + std::to_string(std::labs(lTenths) / 10);
    return lTenths % 10 == 0 ? strWhole : strWhole + "." + std::to_string(std::labs(lTenths) % 10);
}

} // namespace VUKO::VUKOCrond::Ctl
