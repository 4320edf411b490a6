#pragma once

#include <json/json.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/definitions/definitionfault.h"

namespace VUKO::VUKOCrond::Ctl {

/// Counted from 1. Columns are those of a screen, as compilers count them: a tab goes on to the next of the stops that
/// are 8 columns apart, a wide character takes two, a combining one none.
struct Position {
    std::size_t uLine = 1;
    std::size_t uColumn = 1;
};

/// Some bytes of a text: from the first up to, not including, the last. They may be none.
struct SourceSpan {
    std::size_t uFrom = 0;
    std::size_t uTo = 0;
};

/// The text of a definition file, or of five fields, of which things are said by line and column.
class SourceText {
public:
    explicit SourceText(std::string strText);

    const std::string& Text() const { return _strText; }
    Position At(std::size_t uOffset) const;

    /// The line that holds the beginning of the span, and below it a line that points at the span; both with a head of
    /// the same width, and cut to that many columns (0: as wide as they are). Fit for a terminal: what could move its
    /// cursor is replaced.
    std::string Excerpt(const SourceSpan& span, std::size_t uWidth) const;

    /// The byte at a line and column as the JSON library counts them: columns are bytes.
    std::size_t OffsetOf(std::size_t uLine, std::size_t uByteColumn) const;

    /// Where a place of a definition stands. A member that is missing is looked for at the definition's opening brace,
    /// a part of a text through its escapes.
    ///
    /// @param jsDefinition  as a reader of jsoncpp made it of this text.
    SourceSpan Find(const Json::Value& jsDefinition, const Service::DefinitionPlace& place) const;

    /// Where the key of a member stands.
    SourceSpan FindKey(const Json::Value& jsMember) const;

private:
    SourceSpan FindInText(const Json::Value& jsText, std::size_t uFrom, std::size_t uCount) const;
    std::string_view LineAt(std::size_t uOffset) const;

    std::string _strText;
    std::vector<std::size_t> _vecLines; ///< where each begins

    /// What was asked for last: a line, a byte and its column counted from 0.
    struct Last {
        std::size_t uLine = 0;
        std::size_t uOffset = 0;
        std::size_t uColumn = 0;
    };
    mutable Last _last;
};

} // namespace VUKO::VUKOCrond::Ctl
