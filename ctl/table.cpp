#include "ctl/table.h"

#include <algorithm>
#include <numeric>
#include <ostream>

#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::size_t GAP = 2;
/// What is left of a column that is kept where the others have given all they have.
constexpr std::size_t SHORTEST = 4;

std::size_t Sum(const std::vector<std::size_t>& vecWidths) {
    return std::accumulate(vecWidths.begin(), vecWidths.end(), GAP * (vecWidths.size() - 1));
}

/// Takes from the widest columns, down to what each has to keep, until all fit.
void Narrow(std::vector<std::size_t>& vecWidths, const std::vector<std::size_t>& vecLeast, std::size_t uWidth) {
    while (Sum(vecWidths) > uWidth) {
        std::size_t uWidest = vecWidths.size();
        for (std::size_t u = 0; u < vecWidths.size(); ++u) {
            if (vecWidths[u] > vecLeast[u] && (uWidest == vecWidths.size() || vecWidths[u] >= vecWidths[uWidest])) {
                uWidest = u;
            }
        }
        if (uWidest == vecWidths.size()) {
            return;
        }
        --vecWidths[uWidest];
    }
}

std::string Filled(const Cell& cell, std::size_t uWidth, const Column& column, bool bLast) {
    const std::string strCut =
        column.eCut == Cut::Middle ? CutMiddle(cell.strText, uWidth) : CutTo(cell.strText, uWidth);
    const std::string strBlanks(uWidth - WidthOf(strCut), ' ');
    const std::string strText = Styled(cell.eStyle, strCut);
    return column.eAlign == Align::Right ? strBlanks + strText : bLast ? strText : strText + strBlanks;
}

} // namespace

void Table::Add(std::vector<Cell> vecRow) {
    for (Cell& cell : vecRow) {
        cell.strText = Readable(cell.strText);
    }
    _vecRows.push_back(std::move(vecRow));
}

std::vector<std::size_t> Table::Widths(bool bFull) const {
    std::vector<std::size_t> vecWidths;
    for (const Column& column : _vecColumns) {
        vecWidths.push_back(WidthOf(column.strTitle));
    }
    for (const std::vector<Cell>& vecRow : _vecRows) {
        for (std::size_t u = 0; u < vecRow.size() && u < vecWidths.size(); ++u) {
            vecWidths[u] = std::max(vecWidths[u], WidthOf(vecRow[u].strText));
        }
    }
    if (bFull || TerminalWidth() == 0) {
        return vecWidths;
    }
    std::vector<std::size_t> vecLeast;
    for (std::size_t u = 0; u < vecWidths.size(); ++u) {
        vecLeast.push_back(_vecColumns[u].uLeast == Column::KEPT ? vecWidths[u] : _vecColumns[u].uLeast);
    }
    Narrow(vecWidths, vecLeast, TerminalWidth());
    Narrow(vecWidths, std::vector<std::size_t>(vecWidths.size(), SHORTEST), TerminalWidth());
    Narrow(vecWidths, std::vector<std::size_t>(vecWidths.size(), 0), TerminalWidth());
    return vecWidths;
}

void Table::Print(std::ostream& out, bool bFull) const {
    const std::vector<std::size_t> vecWidths = Widths(bFull);
    const auto print = [&](const std::vector<Cell>& vecRow) {
        for (std::size_t u = 0; u < vecRow.size() && u < vecWidths.size(); ++u) {
            const bool bLast = u + 1 == vecRow.size();
            out << Filled(vecRow[u], vecWidths[u], _vecColumns[u], bLast) << (bLast ? "" : std::string(GAP, ' '));
        }
        out << "\n";
    };
    std::vector<Cell> vecTitles;
    for (const Column& column : _vecColumns) {
        vecTitles.emplace_back(Style::Strong, column.strTitle);
    }
    if (std::any_of(vecTitles.begin(), vecTitles.end(), [](const Cell& cell) { return !cell.strText.empty(); })) {
        print(vecTitles);
    }
    std::for_each(_vecRows.begin(), _vecRows.end(), print);
}

} // namespace VUKO::VUKOCrond::Ctl
