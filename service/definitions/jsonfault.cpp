#include "service/definitions/jsonfault.h"

#include <json/json.h>

#include <fstream>
#include <memory>
#include <regex>
#include <utility>

#include "service/jsontext.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// More than any definition that somebody wrote by hand.
constexpr std::size_t TEXT_MAX = std::size_t{256} * 1024;
constexpr int DEPTH_MAX = 128;

/// The first of the library's faults, which it gives as "* Line 1, Column 2\n  What is wrong\n", on one line.
JsonFault FirstFault(const std::string& strFaults) {
    static const std::regex fault(R"(Line (\d{1,9}), Column (\d{1,9})\n *([^\n]{1,200}))");
    std::smatch match;
    if (!std::regex_search(strFaults, match, fault)) {
        return {"no reason is known"};
    }
    return {Escaped(match[3].str()), std::stoul(match[1].str()), std::stoul(match[2].str())};
}

/// Lines end as they do for the library: by "\n", "\r\n" or "\r".
JsonFault FaultAt(const std::string& strText, const BadForm& bad) {
    JsonFault fault{bad.szWhat, 1, 1};
    for (std::size_t u = 0; u < bad.uFrom; ++u) {
        const bool bEnd = strText[u] == '\n' || (strText[u] == '\r' && strText[u + 1] != '\n');
        fault.uColumn = bEnd ? 1 : fault.uColumn + 1;
        fault.uLine += bEnd ? 1 : 0;
    }
    return fault;
}

bool IsBefore(const JsonFault& left, const JsonFault& right) {
    return std::pair(left.uLine, left.uColumn) <= std::pair(right.uLine, right.uColumn);
}

/// What the library has against a text.
JsonFault FindFaultOfLibrary(const std::string& strText) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;
    builder["stackLimit"] = DEPTH_MAX + 1;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value jsIgnored;
    std::string strFaults;
    try {
        if (reader->parse(strText.data(), strText.data() + strText.size(), &jsIgnored, &strFaults)) {
            return {};
        }
    } catch (const std::exception&) {
        return {"it is nested too deep"};
    }
    return FirstFault(strFaults);
}

} // namespace

JsonFault FindJsonFault(const std::string& strText) {
    if (strText.find_first_not_of(" \t\r\n") == std::string::npos) {
        return {"the file is empty"};
    }
    JsonFault fault = FindFaultOfLibrary(strText);
    const std::optional<BadForm> bad = FindBadForm(strText);
    if (bad && bad->szWhat != nullptr && (fault.strText.empty() || fault.uLine != 0)) {
        const JsonFault faultOfForm = FaultAt(strText, *bad);
        fault = fault.strText.empty() || IsBefore(faultOfForm, fault) ? faultOfForm : fault;
    }
    return fault.strText.empty() ? JsonFault{"no reason is known"} : fault;
}

std::string WhyNotJson(const std::string& strText) {
    const JsonFault fault = FindJsonFault(strText);
    return fault.uLine == 0 ? fault.strText
                            : "line " + std::to_string(fault.uLine) + ", column " + std::to_string(fault.uColumn) +
                                  ": " + fault.strText;
}

std::string WhyFileIsNotJson(const std::string& strPath) {
    std::ifstream fs(strPath, std::ios::binary);
    std::string strText(TEXT_MAX, '\0');
    fs.read(strText.data(), static_cast<std::streamsize>(strText.size()));
    strText.resize(static_cast<std::size_t>(fs.gcount()));
    return WhyNotJson(strText);
}

} // namespace VUKO::VUKOCrond::Service
