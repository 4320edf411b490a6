#include "service/timetext.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace VUKO::VUKOCrond::Service {

std::string TimeText(std::int64_t iEpoch) {
    const auto tInstant = static_cast<std::time_t>(iEpoch);
    const std::tm* const pLocal = localtime(&tInstant);
    char szText[64];
    if (pLocal == nullptr || std::strftime(szText, sizeof(szText), "%Y-%m-%dT%H:%M:%S", pLocal) == 0) {
        return "@" + std::to_string(iEpoch);
    }
    const long lOffset = pLocal->tm_gmtoff;
    const long lMinutes = std::labs(lOffset) / 60;
    char szOffset[32];
    std::snprintf(szOffset, sizeof(szOffset), "%c%02ld:%02ld", lOffset < 0 ? '-' : '+', lMinutes / 60, lMinutes % 60);
    return std::string(szText) + szOffset;
}

} // namespace VUKO::VUKOCrond::Service
