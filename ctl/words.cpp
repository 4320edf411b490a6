#include "ctl/words.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace VUKO::VUKOCrond::Ctl {

std::string DurationText(std::int64_t iSeconds) {
    constexpr std::array<std::pair<std::int64_t, const char*>, 4> aUnits = {
        {{86400, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}}};
    std::string strText;
    int iUnits = 0;
    for (const auto& [iUnit, szUnit] : aUnits) {
        const std::int64_t iCount = iSeconds / iUnit;
        iSeconds %= iUnit;
        if (iCount != 0 && iUnits < 2) {
            strText += (strText.empty() ? "" : " ") + std::to_string(iCount) + szUnit;
        }
        iUnits += iCount != 0 || iUnits != 0 ? 1 : 0;
    }
    return strText.empty() ? "0s" : strText;
}

std::string RunTimeText(std::int64_t iUsec) {
    constexpr std::int64_t SECOND = 1'000'000;
    char szText[32];
    if (iUsec < SECOND) {
        std::snprintf(szText, sizeof(szText), "%lldms", static_cast<long long>(iUsec / 1000));
        return szText;
    }
    if (iUsec < 60 * SECOND) {
        std::snprintf(szText, sizeof(szText), "%.3fs", static_cast<double>(iUsec) / static_cast<double>(SECOND));
        return szText;
    }
    return DurationText(iUsec / SECOND);
}

std::string EndText(const Json::Value& jsEnd, const char* szKindMember) {
    const std::string strKind = jsEnd[szKindMember].asString();
    const int iCode = jsEnd["code"].asInt();
    if (strKind == "exited") {
        return "exit " + std::to_string(iCode);
    }
    if (strKind == "signaled") {
        return "signal " + std::to_string(iCode);
    }
    return strKind == "not-started" ? std::string("not started (") + std::strerror(iCode) + ")" : strKind;
}

std::string OutcomeText(const Json::Value& jsOutcome) {
    std::string strText = jsOutcome["outcome"].asString();
    if (jsOutcome.isMember("reason")) {
        strText += ": " + jsOutcome["reason"].asString();
    }
    if (jsOutcome.isMember("pid")) {
        strText += " with process " + std::to_string(jsOutcome["pid"].asInt());
    }
    if (jsOutcome.isMember("label")) {
        strText += " (" + jsOutcome["label"].asString() + ")";
    }
    return strText;
}

std::string StandstillText(bool bPassive, bool bDraining) {
    std::string strText;
    if (bPassive) {
        strText = "The role is passive: only jobs with \"run_on_passive\" start.";
    }
    if (bDraining) {
        strText += strText.empty() ? "" : " ";
        strText += "The service is drained: it starts nothing until \"drain --off\".";
    }
    return strText;
}

std::string MemoryText(std::int64_t iKib) {
    char szText[32];
    std::snprintf(szText, sizeof(szText), "%.1f MiB", static_cast<double>(iKib) / 1024.0);
    return szText;
}

} // namespace VUKO::VUKOCrond::Ctl
