#include "ctl/import/crontabfile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include "ctl/import/croncommand.h"
#include "ctl/import/cronschedule.h"
#include "ctl/text.h"
#include "ctl/textfile.h"
#include "ctl/toolerror.h"
#include "ctl/zone.h"
#include "platform/vukojson.h"
#include "platform/vukosdk.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Kind = ImportItem::Kind;

constexpr const char* BLANKS = " \t";
constexpr const char* SPACES = " \t\r\f\v";

/// A setting as cron reads it: NAME = VALUE, each of them in quotes or not. Nothing for what is none.
class SettingReader {
public:
    explicit SettingReader(const std::string& strLine) : _strLine(strLine) {}

    std::optional<std::pair<std::string, std::string>> Read() {
        std::pair<std::string, std::string> setting;
        SkipSpaces();
        if (!ReadPart("= \t", setting.first) || setting.first.empty()) {
            return std::nullopt;
        }
        SkipSpaces();
        if (Next() != '=') {
            return std::nullopt;
        }
        ++_uPos;
        SkipSpaces();
        if (!ReadPart("", setting.second)) {
            return std::nullopt;
        }
        SkipSpaces();
        return _uPos == _strLine.size() ? std::optional(setting) : std::nullopt;
    }

private:
    char Next() const { return _uPos < _strLine.size() ? _strLine[_uPos] : '\0'; }
    void SkipSpaces() { _uPos = std::min(_strLine.find_first_not_of(SPACES, _uPos), _strLine.size()); }

    /// @param szEnd  what ends a text without quotes; without any, its trailing blanks are no part of it.
    bool ReadPart(const char* szEnd, std::string& strPart) {
        const char cQuote = Next();
        const bool bQuoted = cQuote == '"' || cQuote == '\'';
        const std::size_t uFrom = _uPos + (bQuoted ? 1 : 0);
        const std::size_t uTo = bQuoted ? _strLine.find(cQuote, uFrom) : _strLine.find_first_of(szEnd, uFrom);
        if (bQuoted && uTo == std::string::npos) {
            return false;
        }
        strPart = _strLine.substr(uFrom, uTo == std::string::npos ? uTo : uTo - uFrom);
        _uPos = uTo == std::string::npos ? _strLine.size() : uTo + (bQuoted ? 1 : 0);
        if (!bQuoted && *szEnd == '\0') {
            strPart.resize(strPart.find_last_not_of(SPACES) + 1); // none: npos + 1 is 0
        }
        return !bQuoted || *szEnd == '\0' || strPart.find('=') == std::string::npos;
    }

    const std::string& _strLine;
    std::size_t _uPos = 0;
};

/// Takes the text up to the next blank, and the blanks behind it, from the front of a text.
std::string TakeWord(std::string& strText) {
    const std::size_t uEnd = std::min(strText.find_first_of(BLANKS), strText.size());
    const std::string strWord = strText.substr(0, uEnd);
    strText.erase(0, std::min(strText.find_first_not_of(BLANKS, uEnd), strText.size()));
    return strWord;
}

/// Bytes that are no UTF-8 cannot stand in a definition.
bool IsUtf8(const std::string& strText) {
    const auto isPlain = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    // It writes letters as they are, but escapes them all where one of them is no letter.
    const std::string strJson = JSON::toString(Json::Value(strText));
    return std::all_of(strText.begin(), strText.end(), isPlain) ||
           !std::all_of(strJson.begin(), strJson.end(), isPlain);
}

std::string OneLine(std::string strText) {
    std::replace(strText.begin(), strText.end(), '\t', ' ');
    return Readable(strText);
}

class Converter {
public:
    Converter(std::string strFile, const CrontabFormat& format) : _strFile(std::move(strFile)), _format(format) {}

    void AddLine(const std::string& strLine, std::size_t uLine, bool bNewline);
    ImportItems Take();

private:
    void AddSetting(ImportItem& item, const std::string& strName, const std::string& strValue);
    void AddJob(ImportItem& item);
    /// The fields of the time, taken from the front of a line; those that are missing are empty.
    static CronSchedule TakeSchedule(std::string& strRest, std::string& strTime);
    std::string WhyRefused(const std::string& strAccount, const std::string& strCommand) const;
    void AddNotes(ImportItem& item, const std::string& strAccount, const std::string& strCommand) const;
    Json::Value Definition(const std::string& strAccount, const std::string& strCommand,
                           const std::string& strTime) const;

    std::string _strFile;
    CrontabFormat _format;
    CronEnvironment _mapEnvironment;
    std::string _strOtherZone; ///< that the lines from here on are meant in
    ImportItems _items;
};

void Converter::AddLine(const std::string& strLine, std::size_t uLine, bool bNewline) {
    const std::size_t uBegin = strLine.find_first_not_of(SPACES);
    if (uBegin == std::string::npos || strLine[uBegin] == '#') {
        return;
    }
    ImportItem item;
    item.strWhere = _strFile + ":" + std::to_string(uLine);
    item.strShort = "line " + std::to_string(uLine);
    item.strText = strLine;
    if (strLine.back() == '\r') {
        item.Refuse("the line ends in a carriage return, which cron hands to the command: take it away");
    } else if (!IsUtf8(strLine)) {
        item.strText = Readable(strLine);
        item.Refuse("it holds bytes that are no UTF-8, which a definition cannot hold");
    } else if (const auto setting = SettingReader(strLine).Read()) {
        AddSetting(item, setting->first, setting->second);
    } else {
        AddJob(item);
        if (!bNewline && item.eKind == Kind::Job) {
            item.vecNotes.push_back({"no-newline", "cron leaves out a last line that has no newline at its end"});
        }
    }
    _items.vecItems.push_back(std::move(item));
}

void Converter::AddSetting(ImportItem& item, const std::string& strName, const std::string& strValue) {
    item.eKind = Kind::Setting;
    _mapEnvironment[strName] = strValue;
    const auto note = [&](const char* szCode, const std::string& strText) {
        item.vecNotes.push_back({szCode, strText});
    };
    if (strName == "MAILTO" && !strValue.empty()) {
        note("mail", "nothing is mailed to " + OneLine(strValue) +
                         ": the output of a job goes to the journal, or to a file in /var/log/vukocrond");
    } else if (strName == "LOGNAME") {
        note("logname", "it is the account's name there and here, whatever is set");
    } else if (strName == "RANDOM_DELAY") {
        note("random-delay", "the jobs are not put off at random: write \"~\" for a minute that is drawn once");
    } else if (strName == "CRON_TZ") {
        _strOtherZone = IsSameZone(strValue, ZoneName(std::string())) ? std::string() : strValue;
    } else if (strName == "TZ") {
        note("zone", "it is a variable of the command, and no zone of the schedule, there and here");
    }
}

CronSchedule Converter::TakeSchedule(std::string& strRest, std::string& strTime) {
    if (strRest.front() == '@') {
        strTime = TakeWord(strRest);
        return ConvertMacro(strTime);
    }
    std::vector<std::string> vecFields;
    for (int i = 0; i < 5; ++i) {
        vecFields.push_back(TakeWord(strRest));
        strTime += (i == 0 ? "" : " ") + vecFields.back();
    }
    if (vecFields.back().empty()) {
        CronSchedule schedule;
        schedule.strReason = "it is neither a setting nor five fields and a command";
        return schedule;
    }
    return ConvertFields(vecFields);
}

std::string Converter::WhyRefused(const std::string& strAccount, const std::string& strCommand) const {
    if (!_strOtherZone.empty()) {
        return "its times are those of the zone " + OneLine(_strOtherZone) + " (CRON_TZ), and here all are those of " +
               ZoneName(std::string());
    }
    const bool bIsCommand = strAccount.find('/') != std::string::npos; // of a line without the column
    if (_format.bSystem && (strCommand.empty() || bIsCommand)) {
        return "it lacks the account or the command: is this a user's crontab? Say --user ACCOUNT then";
    }
    return WhyNoCommand(strCommand, _mapEnvironment);
}

Json::Value Converter::Definition(const std::string& strAccount, const std::string& strCommand,
                                  const std::string& strTime) const {
    Json::Value jsDefinition(Json::objectValue);
    jsDefinition["user"] = strAccount == "root" ? "root" : "package";
    if (strAccount != "root") { // the one class that takes any account's name
        jsDefinition["package_username"] = strAccount;
    }
    jsDefinition["period"] = "crontab";
    jsDefinition["cmd_list"] = CronCommand(strCommand, _mapEnvironment);
    jsDefinition["overlap"] = "allow"; // cron does not ask whether the last run is still going
    jsDefinition["description"] = OneLine("imported from " + _strFile + ", there \"" + strTime + "\"");
    return jsDefinition;
}

void Converter::AddNotes(ImportItem& item, const std::string& strAccount, const std::string& strCommand) const {
    uid_t uid = 0;
    gid_t gid = 0;
    if (VUKOUserGetUGID(strAccount.c_str(), &uid, &gid) != 0) {
        item.vecNotes.push_back({"account", "there is no account " + OneLine(strAccount) +
                                                " on this system: the job is not started before there is one"});
    }
    if (HasInput(strCommand)) {
        item.vecNotes.push_back(
            {"input", "what follows the \"%\" is written to the command's standard input by a shell"});
    }
    if (HasTwoBackslashes(strCommand)) {
        item.vecNotes.push_back({"backslashes", "of two backslashes before the \"%\" one is left, as with the cron of "
                                                "Debian; other crons leave both"});
    }
    std::string strRest = strCommand;
    const std::string strFirst = TakeWord(strRest);
    if (strFirst == "*") {
        item.vecNotes.push_back({"format", "the command begins with \"*\": six fields? cron has five of them"});
    }
    if (!_format.bSystem && strFirst == "root" && !strRest.empty()) {
        item.vecNotes.push_back({"format", "the command is \"root\": is this the system's format? Say --system then"});
    }
}

void Converter::AddJob(ImportItem& item) {
    std::string strRest = item.strText.substr(item.strText.find_first_not_of(BLANKS));
    const bool bQuiet =
        strRest.size() > 1 && strRest[0] == '-' && std::string("*0123456789~@").find(strRest[1]) != std::string::npos;
    strRest.erase(0, bQuiet ? 1 : 0);
    std::string strTime;
    const CronSchedule schedule = TakeSchedule(strRest, strTime);
    const std::string strAccount =
        _format.bSystem && schedule.strReason.empty() ? TakeWord(strRest) : _format.strAccount;
    std::string strReason = schedule.strReason;
    if (strReason.empty()) {
        strReason = WhyRefused(strAccount, strRest);
    }
    if (!strReason.empty()) {
        item.Refuse(OneLine(strReason));
        return;
    }
    item.vecNotes = schedule.vecNotes;
    if (bQuiet) {
        item.vecNotes.push_back({"quiet", "the \"-\" keeps cron from logging the start; here each start is logged"});
    }
    AddNotes(item, strAccount, strRest);
    item.strName = NameOfCommand(strRest);
    for (const std::string& strText : schedule.vecTexts) {
        item.vecDefinitions.push_back(Definition(strAccount, strRest, strTime));
        item.vecDefinitions.back()["crontab"] = strText;
    }
}

ImportItems Converter::Take() {
    _items.vecNotes = {
        {"twice", "cron goes on starting these lines: take them out of the crontab"},
        {"mail", "output is not mailed: it goes to the journal, or to a file in /var/log/vukocrond"},
        {"clock", "minutes that nobody looked at are made up for, up to three hours of them"},
        {"environment", "PATH and SHELL are cron's own, or the crontab's; USER and LANG are set as well"}};
    return std::move(_items);
}

} // namespace

CrontabFormat GuessFormat(const std::string& strFile) {
    std::error_code ecIgnored;
    const std::filesystem::path path = std::filesystem::weakly_canonical(strFile, ecIgnored);
    const std::string strFolder = path.parent_path().string();
    if (strFile != "-" && (path == "/etc/crontab" || strFolder == "/etc/cron.d")) {
        return {true, std::string()};
    }
    if (strFile != "-" && (strFolder == "/var/spool/cron/crontabs" || strFolder == "/var/spool/cron")) {
        return {false, path.filename().string()};
    }
    throw ToolError(EXIT_BAD_USAGE, strFile + ": whose crontab is this? Say --user ACCOUNT, or --system where a column "
                                              "names the account");
}

std::string ReadCrontab(const std::string& strFile) {
    std::string strText;
    if (const int iErrno = ReadTextFile(strFile, strText); iErrno != 0) {
        throw ToolError(iErrno == EACCES ? EXIT_DENIED : EXIT_WRONG, strFile + " cannot be read: " + strerror(iErrno));
    }
    if (strText.size() >= TEXT_SIZE_MAX) {
        throw ToolError(EXIT_WRONG, strFile + " is larger than any crontab");
    }
    return strText;
}

ImportItems ConvertCrontab(const std::string& strText, const std::string& strFile, const CrontabFormat& format) {
    if (const std::size_t uNul = strText.find('\0'); uNul != std::string::npos) {
        const auto lines = std::count(strText.begin(), strText.begin() + static_cast<std::ptrdiff_t>(uNul), '\n');
        throw ToolError(EXIT_WRONG,
                        strFile + ":" + std::to_string(lines + 1) + ": holds a NUL byte: this is no crontab");
    }
    Converter converter(strFile == "-" ? "standard input" : strFile, format);
    std::size_t uLine = 1;
    for (std::size_t uFrom = 0; uFrom < strText.size(); ++uLine) {
        const std::size_t uEnd = strText.find('\n', uFrom);
        const bool bNewline = uEnd != std::string::npos;
        converter.AddLine(strText.substr(uFrom, bNewline ? uEnd - uFrom : uEnd), uLine, bNewline);
        uFrom = bNewline ? uEnd + 1 : strText.size();
    }
    return converter.Take();
}

} // namespace VUKO::VUKOCrond::Ctl
