#include "ctl/import/timespan.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace VUKO::VUKOCrond::Ctl {

double ReadTimeSpan(const std::string& strSpan) {
    static const std::map<std::string, double> mapUnits = {{"", 1},
                                                           {"s", 1},
                                                           {"sec", 1},
                                                           {"second", 1},
                                                           {"seconds", 1},
                                                           {"m", 60},
                                                           {"min", 60},
                                                           {"minute", 60},
                                                           {"minutes", 60},
                                                           {"h", 3600},
                                                           {"hr", 3600},
                                                           {"hour", 3600},
                                                           {"hours", 3600},
                                                           {"d", 86400},
                                                           {"day", 86400},
                                                           {"days", 86400},
                                                           {"w", 604800},
                                                           {"week", 604800},
                                                           {"weeks", 604800},
                                                           {"M", 2629800},
                                                           {"month", 2629800},
                                                           {"months", 2629800},
                                                           {"y", 31557600},
                                                           {"year", 31557600},
                                                           {"years", 31557600},
                                                           {"ms", 1e-3},
                                                           {"msec", 1e-3},
                                                           {"us", 1e-6},
                                                           {"usec", 1e-6},
                                                           {"ns", 1e-9}};
    constexpr const char* LETTERS = "abcdefghijklmnopqrstuvwxyzM";
    double dSeconds = strSpan.find_first_of("0123456789") == std::string::npos ? -1 : 0;
    std::size_t uPos = strSpan.find_first_not_of(' ');
    while (dSeconds >= 0 && uPos < strSpan.size()) {
        if (std::isdigit(static_cast<unsigned char>(strSpan[uPos])) == 0) {
            return -1;
        }
        std::size_t uLength = 0;
        const double dValue = std::stod(strSpan.substr(uPos), &uLength);
        uPos = std::min(strSpan.find_first_not_of(' ', uPos + uLength), strSpan.size());
        const std::size_t uEnd = std::min(strSpan.find_first_not_of(LETTERS, uPos), strSpan.size());
        const auto it = mapUnits.find(strSpan.substr(uPos, uEnd - uPos));
        if (it == mapUnits.end()) {
            return -1;
        }
        dSeconds += dValue * it->second;
        uPos = strSpan.find_first_not_of(' ', uEnd);
    }
    return dSeconds;
}

} // namespace VUKO::VUKOCrond::Ctl
