#include "ctl/events.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "ctl/toolerror.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::SimEvent;

/// Three hundred years: what is more is a mistake, and must not lead out of the calendar.
constexpr std::int64_t SECONDS_MAX = 10'000'000'000;

struct Shape {
    SimEvent::Kind eKind;
    bool bHasSeconds;
    bool bSigned;
};

const std::map<std::string, Shape>& Shapes() {
    static const std::map<std::string, Shape> mapShapes = {{"clock", {SimEvent::Kind::Clock, true, true}},
                                                           {"down", {SimEvent::Kind::Down, true, false}},
                                                           {"hibernate", {SimEvent::Kind::Hibernate, true, false}},
                                                           {"passive", {SimEvent::Kind::Passive, false, false}},
                                                           {"active", {SimEvent::Kind::Active, false, false}}};
    return mapShapes;
}

bool ReadSeconds(const std::string& strText, bool bSigned, std::int64_t& iSeconds) {
    const char* pBegin = strText.data();
    const char* const pEnd = pBegin + strText.size();
    const bool bHasSign = pBegin != pEnd && (*pBegin == '+' || *pBegin == '-');
    if (bHasSign != bSigned) {
        return false;
    }
    pBegin += bHasSign && *pBegin == '+' ? 1 : 0;
    const auto [pRead, eError] = std::from_chars(pBegin, pEnd, iSeconds);
    return eError == std::errc() && pRead == pEnd && -SECONDS_MAX <= iSeconds && iSeconds <= SECONDS_MAX;
}

/// @return why the line holds no event; empty when it does.
std::string ReadLine(const std::string& strLine, std::time_t tFrom, SimEvent& event) {
    const std::string strNone = "expected TIME and one of: clock +SECONDS, clock -SECONDS, down SECONDS, hibernate "
                                "SECONDS, passive, active";
    std::istringstream words(strLine);
    std::string strTime;
    std::string strKind;
    std::string strSeconds;
    std::string strMore;
    words >> strTime >> strKind >> strSeconds >> strMore;
    const auto itShape = Shapes().find(strKind);
    if (itShape == Shapes().end() || !strMore.empty() || strSeconds.empty() == itShape->second.bHasSeconds) {
        return strNone;
    }
    event.eKind = itShape->second.eKind;
    if (itShape->second.bHasSeconds && !ReadSeconds(strSeconds, itShape->second.bSigned, event.iSeconds)) {
        return strNone;
    }
    try {
        event.tInstant = ParseTime(strTime);
    } catch (const ToolError& error) { // of a file, and not of the command line
        return error.what();
    }
    return event.tInstant < tFrom ? strTime + " lies before --from" : std::string();
}

} // namespace

std::vector<SimEvent> ReadEvents(const std::string& strFile, std::time_t tFrom) {
    std::ifstream file;
    if (strFile != "-") {
        file.open(strFile);
        if (!file) {
            throw ToolError(errno == EACCES ? EXIT_DENIED : EXIT_WRONG,
                            strFile + ": cannot be read: " + std::strerror(errno));
        }
    }
    std::istream& in = strFile == "-" ? std::cin : file;
    std::vector<SimEvent> vecEvents;
    int iLine = 0;
    for (std::string strLine; std::getline(in, strLine);) {
        ++iLine;
        strLine.resize(std::min(strLine.find('#'), strLine.size()));
        if (strLine.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        SimEvent event;
        if (const std::string strReason = ReadLine(strLine, tFrom, event); !strReason.empty()) {
            throw ToolError(EXIT_WRONG, strFile + ":" + std::to_string(iLine) + ": " + strReason);
        }
        vecEvents.push_back(event);
    }
    std::stable_sort(vecEvents.begin(), vecEvents.end(),
                     [](const SimEvent& a, const SimEvent& b) { return a.tInstant < b.tInstant; });
    return vecEvents;
}

} // namespace VUKO::VUKOCrond::Ctl
