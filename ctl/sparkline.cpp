#include "ctl/sparkline.h"

#include <algorithm>

#include "ctl/terminal.h"
#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

std::vector<std::string> Levels() {
    if (SpeaksUtf8()) {
        return {"\u2581", "\u2582", "\u2583", "\u2584", "\u2585", "\u2586", "\u2587", "\u2588"};
    }
    return {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"};
}

} // namespace

std::string Sparkline(const std::vector<Bar>& vecBars, std::size_t uIndent) {
    const std::vector<std::string> vecLevels = Levels();
    std::int64_t iMost = 1;
    for (const Bar& bar : vecBars) {
        iMost = std::max(iMost, bar.iValue);
    }
    std::string strBars;
    std::string strMarks;
    for (const Bar& bar : vecBars) {
        const auto uTop = static_cast<double>(vecLevels.size() - 1);
        const double dShare = static_cast<double>(std::max<std::int64_t>(0, bar.iValue)) / static_cast<double>(iMost);
        strBars +=
            Styled(bar.bBad ? Style::Bad : Style::Plain, vecLevels[static_cast<std::size_t>(dShare * uTop + 0.5)]);
        strMarks += bar.bBad ? "!" : " ";
    }
    strMarks.erase(strMarks.find_last_not_of(' ') + 1);
    return HasColour() || strMarks.empty() ? strBars : strBars + "\n" + std::string(uIndent, ' ') + strMarks;
}

} // namespace VUKO::VUKOCrond::Ctl
