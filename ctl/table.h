#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "ctl/terminal.h"

namespace VUKO::VUKOCrond::Ctl {

/// One text of a table. It may be anybody's: what could disturb a terminal is escaped when it is printed.
struct Cell {
    Cell(const char* szText) : strText(szText) {}
    Cell(std::string strGiven) : strText(std::move(strGiven)) {}
    Cell(Style eGiven, std::string strGiven) : strText(std::move(strGiven)), eStyle(eGiven) {}

    std::string strText;
    Style eStyle = Style::Plain;
};

enum class Align { Left, Right };
/// What is left out of a text that is too long: in the middle where its end tells most, as that of a path.
enum class Cut { End, Middle };

struct Column {
    /// A column that is cut only where nothing else helps.
    static constexpr std::size_t KEPT = 0;

    Column(const char* szTitle) : strTitle(szTitle) {}
    /// @param uLeast  the width to which it may be cut before columns that are kept are.
    Column(const char* szTitle, std::size_t uGiven, Align eGivenAlign = Align::Left, Cut eGivenCut = Cut::End)
        : strTitle(szTitle), uLeast(uGiven), eAlign(eGivenAlign), eCut(eGivenCut) {}

    std::string strTitle;
    std::size_t uLeast = KEPT;
    Align eAlign = Align::Left;
    Cut eCut = Cut::End;
};

/// Lines of cells, printed with each column as wide as its widest cell and two blanks between; the last column is not
/// filled up. On a terminal every line fits: the widest columns of those that may be cut give way first, then the
/// others. Elsewhere nothing is cut. A table whose columns have no titles has no line of them.
class Table {
public:
    explicit Table(std::vector<Column> vecColumns) : _vecColumns(std::move(vecColumns)) {}

    /// @param vecRow  at most a cell for each column.
    void Add(std::vector<Cell> vecRow);
    /// @param bFull  nothing is cut on a terminal, either.
    void Print(std::ostream& out, bool bFull = false) const;

private:
    std::vector<std::size_t> Widths(bool bFull) const;

    std::vector<Column> _vecColumns;
    std::vector<std::vector<Cell>> _vecRows;
};

} // namespace VUKO::VUKOCrond::Ctl
