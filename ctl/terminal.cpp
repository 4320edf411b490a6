#include "ctl/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Terminal {
    std::size_t uWidth = 0;
    std::size_t uHeight = 0;
    bool bColour = false;
};

/// Where a terminal does not know its size, as on a serial line.
constexpr std::size_t USUAL_WIDTH = 80;
constexpr std::size_t USUAL_HEIGHT = 24;

std::string Variable(const char* szName) {
    const char* const szValue = std::getenv(szName);
    return szValue != nullptr ? szValue : "";
}

/// @param szVariable  what people set where the terminal does not tell: COLUMNS, LINES.
std::size_t SizeOf(const char* szVariable, std::size_t uTold, std::size_t uUsual) {
    const long lWanted = std::strtol(Variable(szVariable).c_str(), nullptr, 10);
    return lWanted > 0 && lWanted < 10000 ? static_cast<std::size_t>(lWanted) : uTold != 0 ? uTold : uUsual;
}

Terminal Look() {
    Terminal terminal;
    winsize size = {};
    if (isatty(STDOUT_FILENO) != 0) {
        ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
        terminal.uWidth = SizeOf("COLUMNS", size.ws_col, USUAL_WIDTH);
        terminal.uHeight = SizeOf("LINES", size.ws_row, USUAL_HEIGHT);
        terminal.bColour = Variable("NO_COLOR").empty() && !IsDumb();
    }
    return terminal;
}

const Terminal& Here() {
    static const Terminal TERMINAL = Look();
    return TERMINAL;
}

const char* SequenceOf(Style eStyle) {
    switch (eStyle) {
    case Style::Strong:
        return "\033[1m";
    case Style::Faint:
        return "\033[2m";
    case Style::Good:
        return "\033[32m";
    case Style::Warn:
        return "\033[33m";
    case Style::Bad:
        return "\033[1;31m";
    case Style::Plain:
        break;
    }
    return "";
}

} // namespace

bool IsTerminal() {
    return Here().uWidth != 0;
}

bool IsDumb() {
    const std::string strKind = Variable("TERM");
    return strKind.empty() || strKind == "dumb";
}

std::size_t TerminalWidth() {
    return Here().uWidth;
}

std::size_t TerminalHeight() {
    return Here().uHeight;
}

bool HasColour() {
    return Here().bColour;
}

std::string Styled(Style eStyle, const std::string& strText) {
    return HasColour() && eStyle != Style::Plain && !strText.empty() ? SequenceOf(eStyle) + strText + "\033[0m"
                                                                     : strText;
}

} // namespace VUKO::VUKOCrond::Ctl
