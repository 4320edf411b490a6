#include "ctl/text.h"

#include <langinfo.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cwchar>
#include <optional>
#include <system_error>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// The locale of whoever looks, for what the terminal can show; and one that knows characters whatever LANG says, as
/// names are UTF-8 everywhere. The tool itself stays in "C": what it prints for programs must not depend on a locale.
bool IsLocaleUtf8() {
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(nullptr));
    if (locale == static_cast<locale_t>(nullptr)) {
        return false;
    }
    const bool bUtf8 = std::string("UTF-8") == nl_langinfo_l(CODESET, locale);
    freelocale(locale);
    return bUtf8;
}

locale_t CharacterLocale() {
    static const locale_t LOCALE = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return LOCALE;
}

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U;
}

/// The bytes of the character that begins there.
std::size_t LengthAt(const std::string& strText, std::size_t uAt) {
    std::size_t uLength = 1;
    while (uAt + uLength < strText.size() && IsContinuation(strText[uAt + uLength])) {
        ++uLength;
    }
    return uLength;
}

/// Columns of one character; one where the C library does not know it.
std::size_t ColumnsOf(const char* pCharacter, std::size_t uLength) {
    if (uLength == 1 || CharacterLocale() == static_cast<locale_t>(nullptr)) {
        return 1;
    }
    const locale_t before = uselocale(CharacterLocale());
    std::mbstate_t state = {};
    wchar_t cWide = 0;
    const bool bRead = std::mbrtowc(&cWide, pCharacter, uLength, &state) == uLength;
    const int iColumns = bRead ? wcwidth(cWide) : -1;
    uselocale(before);
    return iColumns < 0 ? 1 : static_cast<std::size_t>(iColumns);
}

constexpr std::size_t ESCAPE_LENGTH = 4;

/// The byte beyond ASCII that "\xNN" stands for; nothing where something else stands there.
std::optional<char> EscapedByteAt(const std::string& strText, std::size_t uAt) {
    unsigned uByte = 0;
    if (uAt + ESCAPE_LENGTH > strText.size() || strText.compare(uAt, 2, "\\x") != 0) {
        return std::nullopt;
    }
    const char* const pDigits = strText.data() + uAt + 2;
    const auto [pRead, eError] = std::from_chars(pDigits, pDigits + 2, uByte, 16);
    return eError == std::errc() && pRead == pDigits + 2 && uByte >= 0x80U ? std::optional(static_cast<char>(uByte))
                                                                           : std::nullopt;
}

std::string Ellipsis(std::size_t uRoom) {
    return uRoom == 0 ? "" : SpeaksUtf8() ? "\u2026" : std::string(std::min<std::size_t>(3, uRoom), '.');
}

/// The bytes of as many characters from the begin as have room.
std::size_t BytesWithin(const std::string& strText, std::size_t uRoom) {
    std::size_t uTaken = 0;
    std::size_t u = 0;
    while (u < strText.size()) {
        const std::size_t uLength = LengthAt(strText, u);
        uTaken += ColumnsOf(strText.data() + u, uLength);
        if (uTaken > uRoom) {
            break;
        }
        u += uLength;
    }
    return u;
}

} // namespace

bool SpeaksUtf8() {
    static const bool UTF8 = IsLocaleUtf8();
    return UTF8;
}

std::string Readable(const std::string& strText) {
    std::string strReadable;
    for (std::size_t u = 0; u < strText.size();) {
        const std::string strCharacter = strText.substr(u, LengthAt(strText, u));
        strReadable += Service::HoldsControlCharacter(strCharacter) ? Service::Escaped(strCharacter) : strCharacter;
        u += strCharacter.size();
    }
    return strReadable;
}

std::string Spelled(const std::string& strIdentity) {
    std::string strSpelled;
    for (std::size_t u = 0; u < strIdentity.size();) {
        std::string strBytes;
        std::size_t uEnd = u;
        while (const std::optional<char> byte = EscapedByteAt(strIdentity, uEnd)) {
            strBytes += *byte;
            uEnd += ESCAPE_LENGTH;
        }
        const bool bLetters = !strBytes.empty() && !Service::HoldsControlCharacter(strBytes);
        strSpelled += bLetters ? strBytes : strIdentity.substr(u, std::max<std::size_t>(uEnd - u, 1));
        u = std::max(uEnd, u + 1);
    }
    return strSpelled;
}

std::string ReadableLines(const std::string& strText) {
    std::string strReadable;
    std::size_t uBegin = 0;
    for (std::size_t uEnd = 0; (uEnd = strText.find('\n', uBegin)) != std::string::npos; uBegin = uEnd + 1) {
        strReadable += Readable(strText.substr(uBegin, uEnd - uBegin)) + "\n";
    }
    return strReadable + Readable(strText.substr(uBegin));
}

std::size_t WidthOf(const std::string& strText) {
    std::size_t uWidth = 0;
    for (std::size_t u = 0; u < strText.size();) {
        const std::size_t uLength = LengthAt(strText, u);
        uWidth += ColumnsOf(strText.data() + u, uLength);
        u += uLength;
    }
    return uWidth;
}

std::vector<std::string> Wrapped(const std::string& strText, std::size_t uWidth) {
    std::vector<std::string> vecPieces;
    std::string strRest = strText;
    while (WidthOf(strRest) > uWidth) {
        std::size_t uEnd = std::max(BytesWithin(strRest, uWidth), LengthAt(strRest, 0));
        const std::size_t uBlank = strRest.rfind(' ', uEnd);
        const bool bAtBlank = uBlank != std::string::npos && strRest.find_first_not_of(' ') < uBlank;
        uEnd = bAtBlank ? uBlank : uEnd;
        vecPieces.push_back(strRest.substr(0, uEnd));
        strRest.erase(0, uEnd + (bAtBlank ? 1 : 0));
    }
    vecPieces.push_back(strRest);
    return vecPieces;
}

std::string CutTo(const std::string& strText, std::size_t uWidth) {
    if (WidthOf(strText) <= uWidth) {
        return strText;
    }
    const std::string strEllipsis = Ellipsis(uWidth);
    return strText.substr(0, BytesWithin(strText, uWidth - WidthOf(strEllipsis))) + strEllipsis;
}

std::string CutMiddle(const std::string& strText, std::size_t uWidth) {
    const std::size_t uWhole = WidthOf(strText);
    if (uWhole <= uWidth) {
        return strText;
    }
    const std::string strEllipsis = Ellipsis(uWidth);
    const std::size_t uRoom = uWidth - WidthOf(strEllipsis);
    const std::string strHead = strText.substr(0, BytesWithin(strText, uRoom / 3));
    // Rather a column less than one too many, where a wide character stands at the cut.
    std::size_t uTail = BytesWithin(strText, uWhole - (uRoom - WidthOf(strHead)));
    while (WidthOf(strText.substr(uTail)) > uRoom - WidthOf(strHead)) {
        uTail += LengthAt(strText, uTail);
    }
    return strHead + strEllipsis + strText.substr(uTail);
}

} // namespace VUKO::VUKOCrond::Ctl
