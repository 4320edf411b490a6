#include "ctl/reviewtext.h"

#include <ostream>

#include "ctl/terminal.h"
#include "ctl/text.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// One text that is looked at, and how people are told where in it something stands.
class Telling {
public:
    Telling(std::ostream& out, const std::string& strWhere, const SourceText& source)
        : _out(out), _strWhere(strWhere), _source(source), _uWidth(TerminalWidth()) {}

    void Begin(const std::optional<SourceSpan>& span) {
        if (_strWhere.empty()) {
            return;
        }
        std::string strText = Readable(_strWhere) + ":";
        if (span) {
            const Position position = _source.At(span->uFrom);
            strText += std::to_string(position.uLine) + ":" + std::to_string(position.uColumn) + ":";
        }
        _out << Styled(Style::Strong, strText) << " ";
    }
    void Point(const std::optional<SourceSpan>& span) {
        if (span && _uWidth != 0) {
            _out << _source.Excerpt(*span, _uWidth);
        }
    }

private:
    std::ostream& _out;
    const std::string& _strWhere;
    const SourceText& _source;
    std::size_t _uWidth;
};

/// Whether two warnings are about the same five fields, and so have one rewrite.
bool IsOfSameText(const ReviewWarning& left, const ReviewWarning& right) {
    return left.strOf == right.strOf && left.place.strField == right.place.strField && left.rewrite == right.rewrite;
}

} // namespace

void PrintReview(std::ostream& out, const std::string& strWhere, const Review& review, const SourceText& source) {
    Telling telling(out, strWhere, source);
    for (const ReviewError& error : review.vecErrors) {
        telling.Begin(error.span);
        out << Styled(Style::Bad, "error:") << " " << (error.strBareText.empty() ? error.strText : error.strBareText)
            << "\n";
        telling.Point(error.span);
    }
    for (std::size_t u = 0; u < review.vecWarnings.size(); ++u) {
        const ReviewWarning& warning = review.vecWarnings[u];
        const std::string& strField = warning.place.strField;
        telling.Begin(warning.span);
        out << Styled(Style::Warn, "warning:") << " " << warning.strOf
            << (strField.empty() ? "" : "field " + Service::Quoted(strField) + ": ") << warning.strText << " ["
            << warning.strCode << "]\n";
        telling.Point(warning.span);
        const bool bSaidAgain = u + 1 < review.vecWarnings.size() && IsOfSameText(warning, review.vecWarnings[u + 1]);
        if (warning.rewrite && !bSaidAgain) {
            telling.Begin(warning.span);
            out << Styled(Style::Strong, "note:") << " as in a classic crontab: \"" << *warning.rewrite << "\"\n";
        }
    }
}

} // namespace VUKO::VUKOCrond::Ctl
