#include "ctl/sheet.h"

#include <algorithm>
#include <cstdint>
#include <ostream>

#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

void Sheet::Print(std::ostream& out) const {
    std::size_t uWidest = 0;
    for (const auto& [strName, value] : _vecLines) {
        uWidest = std::max(uWidest, WidthOf(strName));
    }
    const std::size_t uIndent = uWidest + 3; // a blank before the name, and what parts it from the value
    const std::size_t uRoom = TerminalWidth() > 2 * uIndent ? TerminalWidth() - uIndent : SIZE_MAX;
    for (const auto& [strName, value] : _vecLines) {
        std::string strBefore =
            std::string(uWidest - WidthOf(strName) + 1, ' ') + strName + (strName.empty() ? "  " : ": ");
        for (const std::string& strPiece : Wrapped(Readable(value.strText), uRoom)) {
            out << strBefore << Styled(value.eStyle, strPiece) << "\n";
            strBefore.assign(uIndent, ' ');
        }
    }
}

} // namespace VUKO::VUKOCrond::Ctl
