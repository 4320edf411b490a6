#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Ctl {

/// Lines of cells, printed with each column as wide as its widest cell and two blanks between; the last column is not
/// filled up. On a terminal a line that is too long is cut, with "..." at its end.
class Table {
public:
    explicit Table(std::vector<std::string> vecHeader) : _vecRows{std::move(vecHeader)} {}

    void Add(std::vector<std::string> vecRow) { _vecRows.push_back(std::move(vecRow)); }
    void Print(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> _vecRows;
};

/// Columns of the terminal that standard output is; 0 where it is none.
std::size_t TerminalWidth();

} // namespace VUKO::VUKOCrond::Ctl
