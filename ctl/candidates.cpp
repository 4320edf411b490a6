#include "ctl/candidates.h"

#include <csignal>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "ctl/client.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// Nobody waits longer for the next word.
constexpr unsigned PATIENCE_SEC = 2;

constexpr const char* ZONES = "/usr/share/zoneinfo/tzdata.zi";

Json::Value JobsOf(const std::string& strRoot) {
    std::signal(SIGALRM, [](int) { _exit(0); });
    alarm(PATIENCE_SEC);
    Json::Value jsJobs(Json::arrayValue);
    try {
        jsJobs = Client(strRoot).AskAll("list");
    } catch (const std::exception&) {
        jsJobs.clear(); // a prompt is no place to tell why
    }
    alarm(0);
    return jsJobs;
}

} // namespace

std::vector<Candidate> ChoicesOf(CLI::Option& option) {
    // A validator keeps its words to itself. It tells them to whoever gives it another: "... {one,other} ...", or
    // "{one->1,other->2}".
    std::vector<Candidate> vecChoices;
    try {
        for (int i = 0;; ++i) {
            std::string strNoWord = "\x01";
            const std::string strComplaint = (*option.get_validator(i))(strNoWord);
            const std::size_t uOpen = strComplaint.find('{');
            const std::size_t uClose = strComplaint.find('}', uOpen);
            if (uOpen == std::string::npos || uClose == std::string::npos) {
                continue;
            }
            std::istringstream words(strComplaint.substr(uOpen + 1, uClose - uOpen - 1));
            for (std::string strWord; std::getline(words, strWord, ',');) {
                vecChoices.push_back({strWord.substr(0, strWord.find("->"))});
            }
        }
    } catch (const CLI::Error&) {
        return vecChoices; // that was the last of them
    }
}

std::vector<Candidate> JobCandidates(const std::string& strRoot, const std::string& strTyped) {
    const Json::Value jsJobs = JobsOf(strRoot);
    std::map<std::string, int> mapNames;
    for (const Json::Value& jsJob : jsJobs) {
        ++mapNames[jsJob["name"].asString()];
    }
    const bool bByName = std::any_of(mapNames.begin(), mapNames.end(),
                                     [&](const auto& name) { return name.first.starts_with(strTyped); });
    std::vector<Candidate> vecJobs;
    for (const Json::Value& jsJob : jsJobs) {
        const std::string strName = jsJob["name"].asString();
        const bool bIsEnough = bByName && mapNames[strName] == 1 && !strName.starts_with("-");
        vecJobs.push_back({bIsEnough ? strName : jsJob["id"].asString(), jsJob["words"].asString()});
    }
    return vecJobs;
}

std::vector<Candidate> ZoneCandidates() {
    std::ifstream in(ZONES);
    std::vector<Candidate> vecZones;
    for (std::string strLine; std::getline(in, strLine);) {
        std::istringstream words(strLine);
        std::string strKind;
        std::string strName;
        words >> strKind >> strName;
        if (strKind == "L") { // another name for the first one
            words >> strName;
        }
        if (strKind == "L" || strKind == "Z") {
            vecZones.push_back({strName});
        }
    }
    return vecZones;
}

} // namespace VUKO::VUKOCrond::Ctl
