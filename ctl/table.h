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

struct Column {
    /// A column that is cut only where nothing else helps.
    static constexpr std::size_t KEPT = 0;

    Column(const char* szTitle) : strTitle(szTitle) {}
    /// @param uLeast  the width to which it may be cut before columns that are kept are.
    Column(const char* szTitle, std::size_t uGiven, Align eGiven = Align::Left)
        : strTitle(szTitle), uLeast(uGiven), eAlign(eGiven) {}

    std::string strTitle;
    std::size_t uLeast = KEPT;
    Align eAlign = Align::Left;
};

/// Lines of cells, printed with each column as wide as its widest cell and two blanks between; the last column is not
/// filled up. On a terminal every line fits: the widest columns of those that may be cut give way first, then the
/// others. Elsewhere nothing is cut. A table whose columns have no titles has no line of them.
class Table {
public:
    explicit Table(std::vector<Column> vecColumns) : _vecColumns(std::move(vecColumns)) {}

    /// @param vecRow  at most a cell for each column.
    void Add(std::vector<Cell> vecRow);
    void Print(std::ostream& out) const;

private:
    std::vector<std::size_t> Widths() const;

    std::vector<Column> _vecColumns;
    std::vector<std::vector<Cell>> _vecRows;
};

} // namespace VUKO::VUKOCrond::Ctl
