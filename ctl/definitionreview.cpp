#include "ctl/definitionreview.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <string_view>
#include <utility>

#include "ctl/crontabreview.h"
#include "ctl/fields.h"
#include "service/logtext.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Service::DefinitionPlace;
using Service::Quoted;

constexpr std::array<const char*, 14> MEMBERS = {
    "name",           "user",           "package_username",      "period",  "crontab", "cmd",     "cmd_list",
    "assure_execute", "run_on_passive", "assure_execute_action", "enabled", "overlap", "timeout", "description"};

/// Collects what there is to say about one definition.
class DefinitionReview {
public:
    explicit DefinitionReview(const Json::Value& jsDefinition) : _js(jsDefinition) {}

    std::vector<Warning> Take() {
        LookAtPeriod();
        LookAtUser();
        LookAtProgram();
        LookAtCommandText();
        LookAtGuarantee();
        LookAtName();
        LookAtIdleMembers();
        LookAtUnknownMembers();
        return std::move(_vecWarnings);
    }

private:
    void Warn(const char* szCode, const DefinitionPlace& place, const std::string& strText) {
        _vecWarnings.push_back({szCode, strText, place});
    }
    std::string TextOf(const char* szMember) const {
        return _js[szMember].isString() ? _js[szMember].asString() : std::string();
    }
    bool IsByCrontab() const {
        return (TextOf("period") + " ").front() == 'c' || (TextOf("period") + " ").front() == 'C';
    }

    void LookAtPeriod();
    void LookAtUser();
    void LookAtProgram();
    void LookAtCommandText();
    void LookAtGuarantee();
    void LookAtName();
    void LookAtIdleMembers();
    void LookAtUnknownMembers();

    const Json::Value& _js;
    std::vector<Warning> _vecWarnings;
};

void DefinitionReview::LookAtPeriod() {
    constexpr std::pair<char, const char*> KINDS[] = {
        {'c', "crontab"}, {'d', "daily"}, {'h', "hourly"}, {'m', "monthly"}, {'w', "weekly"}};
    const std::string strPeriod = TextOf("period");
    for (const auto& [cLetter, szKind] : KINDS) {
        if (!strPeriod.empty() && (strPeriod.front() | 0x20) == cLetter && strPeriod != szKind) {
            Warn("period-letter", {"period"},
                 Quoted(strPeriod) + " is taken as " + szKind + ": only its first letter counts");
            if (strPeriod == "midnight") {
                _vecWarnings.back().rewrite = "0 0 * * *";
            }
        }
    }
    if (IsByCrontab() && _js["crontab"].isString()) {
        for (Warning& warning : LookAtCrontab(TextOf("crontab"))) {
            _vecWarnings.push_back(std::move(warning));
        }
    }
}

void DefinitionReview::LookAtUser() {
    const std::string strUser = TextOf("user");
    if (strUser.empty() || strUser == "package" || strUser == "system" || strUser == "root") {
        return;
    }
    if (strUser.find("package") != std::string::npos) {
        Warn("user-class", {"user"},
             Quoted(strUser) + " only contains \"package\": the job runs as the account in \"package_username\"");
        return;
    }
    for (const char* const szClass : {"system", "root"}) {
        if (strUser.find(szClass) != std::string::npos) {
            Warn("user-class", {"user"},
                 Quoted(strUser) + " only contains \"" + szClass + "\": an account of that whole name is looked for");
            return;
        }
    }
    Warn("user-none", {"user"},
         Quoted(strUser) + " is none of root, system and package: the job will find no account and never start");
}

void DefinitionReview::LookAtProgram() {
    DefinitionPlace place{"cmd", std::nullopt, 0, 0};
    std::string strProgram;
    if (_js.isMember("cmd_list")) {
        if (!_js["cmd_list"].isArray() || !_js["cmd_list"][0].isString()) {
            return;
        }
        place = {"cmd_list", 0, 0, 0};
        strProgram = _js["cmd_list"][0].asString();
    } else {
        if (!_js["cmd"].isString()) {
            return;
        }
        const std::string strCommand = TextOf("cmd");
        strProgram = strCommand.substr(0, strCommand.find(' '));
        place.uCount = strProgram.size();
    }
    if (strProgram.empty()) {
        Warn("empty-argument", place, "the program is an empty text: nothing can be started");
    } else if (strProgram.find('/') == std::string::npos) {
        Warn("program-without-slash", place, Quoted(strProgram) + " is not looked for in PATH: give its whole path");
    }
    if (strProgram.find(' ') != std::string::npos) {
        Warn("program-with-blank", place,
             Quoted(strProgram) + " is the program's name with all its blanks: make an element of each argument");
    }
}

/// What a shell would do, and nobody does here.
void DefinitionReview::LookAtCommandText() {
    const std::string strCommand = TextOf("cmd");
    if (_js.isMember("cmd_list") || strCommand.empty()) {
        return;
    }
    if (const std::size_t uQuote = strCommand.find_first_of("'\""); uQuote != std::string::npos) {
        Warn("quotes", {"cmd", std::nullopt, uQuote, 1},
             "quotes are handed to the program as they are: there is no shell; use \"cmd_list\"");
    }
    const std::size_t uBlanks = strCommand.back() == ' ' ? strCommand.size() - 1 : strCommand.find("  ");
    if (strCommand.front() != ' ' && uBlanks != std::string::npos) {
        Warn("empty-argument", {"cmd", std::nullopt, uBlanks, 1},
             "each blank ends an argument: one after another, or at the end, makes an empty argument");
    }
    for (const Piece& word : PiecesOf({strCommand}, " ")) {
        const bool bForShell = std::string_view("|&;<>$`").find(word.strText.front()) != std::string_view::npos ||
                               word.strText.starts_with("2>") || word.strText.ends_with(";");
        if (bForShell) {
            Warn("shell", {"cmd", std::nullopt, word.uFrom, word.strText.size()},
                 Quoted(word.strText) + " is handed to the program as it is: there is no shell; start one with "
                                        "\"cmd_list\": [\"/bin/sh\", \"-c\", ...]");
            return;
        }
    }
}

void DefinitionReview::LookAtGuarantee() {
    constexpr std::int64_t MAX_HOURS = 596523;
    const Json::Value& jsHours = _js["assure_execute"];
    if (jsHours.isInt64()) {
        const std::int64_t iHours = jsHours.asInt64();
        if (iHours > MAX_HOURS || iHours < -MAX_HOURS) {
            Warn("assure-wraps", {"assure_execute"},
                 std::to_string(iHours) + " hours are counted in 32-bit seconds, which wrap above " +
                     std::to_string(MAX_HOURS));
        } else if (iHours < 0) {
            Warn("assure-negative", {"assure_execute"},
                 std::to_string(iHours) + " hours are always over: the job counts as overdue at any time");
        }
    }
    if (_js.isMember("assure_execute") && !jsHours.isInt64() && jsHours.isConvertibleTo(Json::intValue)) {
        Warn("converted", {"assure_execute"},
             "what stands here is no whole number and is taken as " + std::to_string(jsHours.asInt()));
    }
    const Json::Value& jsPassive = _js["run_on_passive"];
    if (_js.isMember("run_on_passive") && !jsPassive.isBool() && jsPassive.isConvertibleTo(Json::booleanValue)) {
        Warn("converted", {"run_on_passive"},
             std::string("what stands here is neither true nor false and is taken as ") +
                 (jsPassive.asBool() ? "true" : "false"));
    }
    const Json::Value& jsAction = _js["assure_execute_action"];
    if (_js.isMember("assure_execute_action") && jsAction != "run" && jsAction != "wait") {
        Warn("action", {"assure_execute_action"},
             (jsAction.isString() ? Quoted(jsAction.asString()) : std::string("what stands here")) +
                 " is taken as \"wait\": only \"run\" starts an overdue job at once");
    }
}

void DefinitionReview::LookAtName() {
    constexpr const char* szSafe = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    const std::string strName = TextOf("name");
    if (!strName.empty() && (strName.find_first_not_of(szSafe) != std::string::npos || strName.front() == '-')) {
        Warn("unsafe-name", {"name"}, Quoted(strName) + " makes a file name that shells and scripts may stumble over");
    }
}

/// Members that are known, and of no effect beside what else is said.
void DefinitionReview::LookAtIdleMembers() {
    const bool bTold = std::any_of(_vecWarnings.begin(), _vecWarnings.end(), [](const Warning& warning) {
        return warning.place.strField == "period"; // what it is taken as instead
    });
    if (_js.isMember("crontab") && _js["period"].isString() && !IsByCrontab() && !bTold) {
        Warn("ignored-member", {"crontab"}, "it is not read, as \"period\" does not begin with c");
    }
    if (_js.isMember("cmd") && _js.isMember("cmd_list")) {
        Warn("ignored-member", {"cmd"}, "it is not read, as there is a \"cmd_list\"");
    }
    if (_js.isMember("package_username") && _js["user"].isString() &&
        TextOf("user").find("package") == std::string::npos) {
        Warn("ignored-member", {"package_username"}, "it is not read, as \"user\" is not \"package\"");
    }
}

/// A key without what people write differently.
std::string Simplified(const std::string& strKey) {
    std::string strSimple;
    for (const char c : strKey) {
        if (c != '_' && c != '-' && c != ' ') {
            strSimple += 'A' <= c && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        }
    }
    return strSimple;
}

/// How many letters have to be changed, put in or taken out to make one text of the other.
std::size_t Distance(const std::string& strLeft, const std::string& strRight) {
    std::vector<std::size_t> vecRow(strRight.size() + 1);
    std::iota(vecRow.begin(), vecRow.end(), std::size_t{0});
    for (std::size_t i = 1; i <= strLeft.size(); ++i) {
        std::size_t uDiagonal = std::exchange(vecRow[0], i);
        for (std::size_t j = 1; j <= strRight.size(); ++j) {
            const std::size_t uChanged = uDiagonal + (strLeft[i - 1] != strRight[j - 1] ? 1 : 0);
            uDiagonal = std::exchange(vecRow[j], std::min({uChanged, vecRow[j] + 1, vecRow[j - 1] + 1}));
        }
    }
    return vecRow.back();
}

/// The member that somebody may have meant; empty when it is none of them.
std::string MeantBy(const std::string& strKey) {
    constexpr std::size_t LONGEST = 40; // longer keys are no typos of ours
    const std::string strSimple = Simplified(strKey.substr(0, LONGEST));
    std::string strBest;
    std::size_t uBest = std::min<std::size_t>(3, strSimple.size() / 2 + 1); // as many have to be right as are wrong
    for (const char* const szMember : MEMBERS) {
        const std::size_t uDistance = Distance(strSimple, Simplified(szMember));
        if (uDistance < uBest) {
            uBest = uDistance;
            strBest = szMember;
        }
    }
    return strBest;
}

/// Keys that begin with "_", "#" or "/" are what people use for comments, which JSON has not.
void DefinitionReview::LookAtUnknownMembers() {
    const std::size_t uMost = _vecWarnings.size() + WARNINGS_MAX;
    for (const std::string& strKey : _js.getMemberNames()) {
        if (_vecWarnings.size() == uMost) {
            return;
        }
        const bool bComment = !strKey.empty() && std::string_view("_#/").find(strKey.front()) != std::string_view::npos;
        if (bComment || std::find(MEMBERS.begin(), MEMBERS.end(), strKey) != MEMBERS.end()) {
            continue;
        }
        const std::string strMeant = MeantBy(strKey);
        Warn(CODE_UNKNOWN_MEMBER, {strKey},
             Quoted(strKey) + " is no member of a definition and is not read" +
                 (strMeant.empty() ? "" : ": is \"" + strMeant + "\" meant?"));
    }
}

} // namespace

std::vector<Warning> LookAtDefinition(const Json::Value& jsDefinition) {
    return DefinitionReview(jsDefinition).Take();
}

} // namespace VUKO::VUKOCrond::Ctl
