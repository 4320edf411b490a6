#include "ctl/sourcetext.h"

#include <algorithm>
#include <utility>

#include "ctl/terminal.h"
#include "ctl/text.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::size_t TAB_STOP = 8;

/// Columns of a text without line ends that begins at a column counted from 0.
std::size_t ColumnsOf(std::string_view strText, std::size_t uBegin) {
    std::size_t uColumn = uBegin;
    while (true) {
        const std::size_t uTab = strText.find('\t');
        uColumn += WidthOf(std::string(strText.substr(0, uTab)));
        if (uTab == std::string_view::npos) {
            return uColumn - uBegin;
        }
        uColumn += TAB_STOP - uColumn % TAB_STOP;
        strText.remove_prefix(uTab + 1);
    }
}

std::string FirstCharacter(std::string_view strText) {
    std::size_t uLength = 1;
    while (uLength < strText.size() && (static_cast<unsigned char>(strText[uLength]) & 0xc0U) == 0x80U) {
        ++uLength;
    }
    return std::string(strText.substr(0, uLength));
}

/// Some columns of a line as they may go to a terminal: tabs are blanks, and what is not printable is a question mark.
/// A wide character that is cut in two is left out.
std::string Shown(std::string_view strLine, std::size_t uFrom, std::size_t uCount) {
    std::string strShown;
    for (std::size_t uColumn = 0; !strLine.empty() && uColumn < uFrom + uCount;) {
        std::string strCharacter = FirstCharacter(strLine);
        strLine.remove_prefix(strCharacter.size());
        if (strCharacter == "\t") {
            strCharacter.assign(TAB_STOP - uColumn % TAB_STOP, ' ');
        } else if (Service::HoldsControlCharacter(strCharacter)) {
            strCharacter = "?";
        }
        const std::size_t uEnd = uColumn + WidthOf(strCharacter);
        if (uColumn >= uFrom && uEnd <= uFrom + uCount) {
            strShown += strCharacter;
        }
        uColumn = uEnd;
    }
    return strShown;
}

/// Bytes in the source that the next bytes of a JSON text's value come from, and how many those are.
std::pair<std::size_t, std::size_t> Step(std::string_view strSource) {
    if (strSource.front() != '\\' || strSource.size() < 2) {
        return {1, 1};
    }
    if (strSource[1] != 'u') {
        return {2, 1};
    }
    const unsigned long uCode = std::stoul(std::string(strSource.substr(2, 4)), nullptr, 16);
    if (uCode >= 0xD800 && uCode < 0xDC00) {
        return {12, 4}; // the other half of the pair follows
    }
    return {6, uCode < 0x80 ? 1 : uCode < 0x800 ? 2 : 3};
}

} // namespace

/// Lines end as they do for the JSON library, which counts them as well: by "\n", "\r\n" or "\r".
SourceText::SourceText(std::string strText) : _strText(std::move(strText)), _vecLines{0} {
    for (std::size_t u = 0; u < _strText.size(); ++u) {
        const bool bBeforeNewline = u + 1 < _strText.size() && _strText[u + 1] == '\n';
        if (_strText[u] == '\n' || (_strText[u] == '\r' && !bBeforeNewline)) {
            _vecLines.push_back(u + 1);
        }
    }
}

Position SourceText::At(std::size_t uOffset) const {
    const auto itNext = std::upper_bound(_vecLines.begin(), _vecLines.end(), uOffset);
    const auto uLine = static_cast<std::size_t>(itNext - _vecLines.begin());
    if (uLine != _last.uLine || uOffset < _last.uOffset) { // else counted on, as a document may be one long line
        _last = {uLine, *std::prev(itNext), 0};
    }
    _last.uColumn +=
        ColumnsOf(std::string_view(_strText).substr(_last.uOffset, uOffset - _last.uOffset), _last.uColumn);
    _last.uOffset = uOffset;
    return {uLine, _last.uColumn + 1};
}

std::string_view SourceText::LineAt(std::size_t uOffset) const {
    const auto itNext = std::upper_bound(_vecLines.begin(), _vecLines.end(), uOffset);
    const std::size_t uBegin = *std::prev(itNext);
    std::string_view strLine = std::string_view(_strText).substr(
        uBegin, itNext != _vecLines.end() ? *itNext - uBegin : std::string_view::npos);
    while (!strLine.empty() && (strLine.back() == '\n' || strLine.back() == '\r')) {
        strLine.remove_suffix(1);
    }
    return strLine;
}

std::string SourceText::Excerpt(const SourceSpan& span, std::size_t uWidth) const {
    const std::string_view strLine = LineAt(span.uFrom);
    const auto uInLine = static_cast<std::size_t>(_strText.data() + span.uFrom - strLine.data());
    const std::size_t uBefore = std::min(uInLine, strLine.size());
    const std::size_t uBytes = std::min(span.uTo - span.uFrom, strLine.size() - uBefore);
    std::string strNumber = std::to_string(At(span.uFrom).uLine);
    strNumber.insert(0, strNumber.size() < 5 ? 5 - strNumber.size() : 0, ' ');
    const std::size_t uHead = strNumber.size() + 3;
    const std::size_t uFirst = ColumnsOf(strLine.substr(0, uBefore), 0);
    std::size_t uLong = std::max<std::size_t>(ColumnsOf(strLine.substr(uBefore, uBytes), uFirst), 1);
    const std::size_t uRoom = uWidth > uHead + 20 ? uWidth - uHead : std::string::npos / 2;
    std::size_t uCut = 0;
    if (ColumnsOf(strLine, 0) > uRoom) {
        uCut = uFirst + 10 < uRoom ? 0 : uFirst - uRoom / 2;
        uLong = std::min(uLong, uRoom - (uFirst - uCut));
    }
    const std::string strShown = Shown(strLine, uCut, uRoom);
    return strNumber + " | " + strShown + "\n" + std::string(strNumber.size(), ' ') + " | " +
           std::string(uFirst - uCut, ' ') + Styled(Style::Good, "^" + std::string(uLong - 1, '~')) + "\n";
}

std::size_t SourceText::OffsetOf(std::size_t uLine, std::size_t uByteColumn) const {
    const std::size_t uBegin = _vecLines[std::min(std::max<std::size_t>(uLine, 1), _vecLines.size()) - 1];
    return std::min(uBegin + std::max<std::size_t>(uByteColumn, 1) - 1, _strText.size());
}

SourceSpan SourceText::FindInText(const Json::Value& jsText, std::size_t uFrom, std::size_t uCount) const {
    const auto uEnd = static_cast<std::size_t>(jsText.getOffsetLimit());
    auto uSource = static_cast<std::size_t>(jsText.getOffsetStart()) + 1; // behind the quote
    const auto goOn = [&](std::size_t uBytes) {
        for (std::size_t uDone = 0; uDone < uBytes && uSource + 1 < uEnd;) {
            const auto [uRead, uMade] = Step(std::string_view(_strText).substr(uSource));
            uSource += uRead;
            uDone += uMade;
        }
        return uSource;
    };
    const std::size_t uBegin = goOn(uFrom);
    return {uBegin, goOn(uCount)};
}

SourceSpan SourceText::Find(const Json::Value& jsDefinition, const Service::DefinitionPlace& place) const {
    const auto uBegin = static_cast<std::size_t>(jsDefinition.getOffsetStart());
    if (place.strField.empty() || !jsDefinition.isMember(place.strField)) {
        return jsDefinition.isObject() ? SourceSpan{uBegin, uBegin + 1}
                                       : SourceSpan{uBegin, static_cast<std::size_t>(jsDefinition.getOffsetLimit())};
    }
    const Json::Value* pValue = &jsDefinition[place.strField];
    if (place.element && pValue->isArray() && pValue->isValidIndex(*place.element)) {
        pValue = &(*pValue)[*place.element];
    }
    if (place.uCount != 0 && pValue->isString()) {
        return FindInText(*pValue, place.uFrom, place.uCount);
    }
    return {static_cast<std::size_t>(pValue->getOffsetStart()), static_cast<std::size_t>(pValue->getOffsetLimit())};
}

SourceSpan SourceText::FindKey(const Json::Value& jsMember) const {
    const auto uValue = static_cast<std::size_t>(jsMember.getOffsetStart());
    const std::size_t uColon = _strText.rfind(':', uValue);
    const std::size_t uClosing = uColon != std::string::npos ? _strText.rfind('"', uColon) : uColon;
    if (uClosing == std::string::npos || uClosing == 0) {
        return {uValue, uValue};
    }
    std::size_t uOpening = _strText.rfind('"', uClosing - 1);
    while (uOpening != std::string::npos && uOpening > 0 && _strText[uOpening - 1] == '\\') {
        uOpening = _strText.rfind('"', uOpening - 1); // an escaped one, within the key
    }
    return uOpening == std::string::npos ? SourceSpan{uValue, uValue} : SourceSpan{uOpening, uClosing + 1};
}

} // namespace VUKO::VUKOCrond::Ctl
