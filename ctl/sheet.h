#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "ctl/table.h"

namespace VUKO::VUKOCrond::Ctl {

/// Names and values, one below the other, the names ending in one column. Nothing is cut: what is shown this way is
/// asked for in full, and what is too long for a terminal goes on below.
class Sheet {
public:
    void Add(const std::string& strName, const Cell& value) { _vecLines.emplace_back(strName, value); }
    /// Another value of the name before.
    void Continue(const Cell& value) { _vecLines.emplace_back(std::string(), value); }
    void Print(std::ostream& out) const;

private:
    std::vector<std::pair<std::string, Cell>> _vecLines;
};

} // namespace VUKO::VUKOCrond::Ctl
