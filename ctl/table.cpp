#include "ctl/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// Bytes that begin a character, so that letters beyond ASCII count once.
bool BeginsCharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U;
}

std::size_t Width(const std::string& strText) {
    return static_cast<std::size_t>(std::count_if(strText.begin(), strText.end(), BeginsCharacter));
}

std::string Cut(const std::string& strLine, std::size_t uWidth) {
    if (uWidth < 4 || Width(strLine) <= uWidth) {
        return strLine;
    }
    std::size_t uCharacters = 0;
    const auto itEnd = std::find_if(strLine.begin(), strLine.end(), [&](char c) {
        uCharacters += BeginsCharacter(c) ? 1 : 0;
        return uCharacters > uWidth - 3;
    });
    return std::string(strLine.begin(), itEnd) + "...";
}

} // namespace

void Table::Print(std::ostream& out) const {
    std::vector<std::size_t> vecWidths;
    for (const std::vector<std::string>& vecRow : _vecRows) {
        vecWidths.resize(std::max(vecWidths.size(), vecRow.size()));
        for (std::size_t u = 0; u < vecRow.size(); ++u) {
            vecWidths[u] = std::max(vecWidths[u], Width(vecRow[u]));
        }
    }
    const std::size_t uTerminal = TerminalWidth();
    for (const std::vector<std::string>& vecRow : _vecRows) {
        std::string strLine;
        for (std::size_t u = 0; u < vecRow.size(); ++u) {
            strLine += vecRow[u];
            if (u + 1 < vecRow.size()) {
                strLine.append(vecWidths[u] - Width(vecRow[u]) + 2, ' ');
            }
        }
        out << (uTerminal != 0 ? Cut(strLine, uTerminal) : strLine) << "\n";
    }
}

std::size_t TerminalWidth() {
    winsize size = {};
    return isatty(STDOUT_FILENO) != 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

} // namespace VUKO::VUKOCrond::Ctl
