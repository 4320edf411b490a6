#include "ctl/histogram.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

#include "ctl/terminal.h"
#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::size_t WIDTH_WITHOUT_TERMINAL = 80;
constexpr std::size_t BAR_MIN = 10;
constexpr int COUNT_WIDTH = 9;

std::string Bar(const char* szPiece, std::size_t uCount, std::size_t uMost, std::size_t uWidth) {
    std::string strBar;
    for (std::size_t u = 0; u < (uCount * uWidth + uMost - 1) / uMost; ++u) {
        strBar += szPiece;
    }
    return strBar;
}

} // namespace

void PrintHistogram(std::ostream& out, const std::vector<HourCount>& vecHours) {
    std::size_t uMost = 1;
    bool bSkips = false;
    for (const HourCount& hour : vecHours) {
        uMost = std::max(uMost, hour.uStarts + hour.uSkips);
        bSkips = bSkips || hour.uSkips != 0;
    }
    const std::size_t uTerminal = TerminalWidth() != 0 ? TerminalWidth() : WIDTH_WITHOUT_TERMINAL;
    // Each of the two bars may be rounded up.
    const std::size_t uTaken = 5 + COUNT_WIDTH * (bSkips ? 2 : 1) + 2 + 1;
    const std::size_t uWidth = std::max(uTerminal, uTaken + BAR_MIN) - uTaken;
    out << Styled(Style::Strong, std::string("HOUR    STARTS") + (bSkips ? "  SKIPPED" : "")) << "\n";
    for (std::size_t u = 0; u < vecHours.size(); ++u) {
        const HourCount& hour = vecHours[u];
        out << (u < 10 ? "0" : "") << u << ":00" << std::setw(COUNT_WIDTH) << hour.uStarts;
        if (bSkips) {
            out << std::setw(COUNT_WIDTH) << hour.uSkips;
        }
        const std::string strStarts = Bar(SpeaksUtf8() ? "█" : "#", hour.uStarts, uMost, uWidth);
        const std::string strSkips = Bar(SpeaksUtf8() ? "░" : "-", hour.uSkips, uMost, uWidth);
        out << (strStarts.empty() && strSkips.empty() ? "" : "  ") << Styled(Style::Good, strStarts)
            << Styled(Style::Warn, strSkips) << "\n";
    }
}

} // namespace VUKO::VUKOCrond::Ctl
