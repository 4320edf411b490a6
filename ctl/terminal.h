#pragma once

#include <cstddef>
#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// The terminal that standard output was when the tool began, whatever a pager makes of it since.

/// Whether standard output is a terminal.
bool IsTerminal();

/// Whether it can do no more than print lines: TERM is "dumb", empty or unset.
bool IsDumb();

/// Columns of the terminal; 0 where standard output is none.
std::size_t TerminalWidth();
/// Lines of the terminal; 0 where standard output is none.
std::size_t TerminalHeight();

/// Whether texts may be coloured: on a terminal, where NO_COLOR is unset or empty, unless it is a dumb one.
bool HasColour();

/// What a text is, not how it looks.
enum class Style { Plain, Strong, Faint, Good, Warn, Bad };

/// The text in its style, and the terminal as before after it; without escape sequences where there is no colour.
std::string Styled(Style eStyle, const std::string& strText);

} // namespace VUKO::VUKOCrond::Ctl
