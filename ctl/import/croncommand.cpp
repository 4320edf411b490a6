#include "ctl/import/croncommand.h"

#include <algorithm>
#include <set>
#include <vector>

#include "ctl/classic.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr const char* SHELL = "SHELL";
constexpr const char* HOME = "HOME";
constexpr const char* LETTERS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";
constexpr const char* NAME_CHARACTERS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789";
constexpr std::size_t NAME_MAX_BYTES = 60;

struct Parts {
    std::string strCommand;
    bool bInput = false;
    std::vector<std::string> vecInput; ///< lines
};

/// Splits at the first "%" that is not escaped. In the command "\%" is "%" and "\\" is "\", as with the cron of Debian;
/// in the rest "\%" is "%", and "%" ends a line.
Parts Split(const std::string& strText) {
    Parts parts;
    bool bEscaped = false;
    std::string strLine;
    for (const char c : strText) {
        std::string& strTarget = parts.bInput ? strLine : parts.strCommand;
        if (bEscaped && (c == '%' || (c == '\\' && !parts.bInput))) {
            strTarget.back() = c;
            bEscaped = false;
            continue;
        }
        if (c != '%') {
            strTarget += c;
        } else if (parts.bInput) {
            parts.vecInput.push_back(std::move(strLine));
            strLine.clear();
        } else {
            parts.bInput = true;
        }
        bEscaped = c == '\\';
    }
    if (!strLine.empty()) { // it ends in a newline, whatever the line says
        parts.vecInput.push_back(strLine);
    }
    return parts;
}

std::string Get(const CronEnvironment& mapEnvironment, const char* szName, const char* szOtherwise) {
    const auto it = mapEnvironment.find(szName);
    return it != mapEnvironment.end() ? it->second : szOtherwise;
}

std::string ShellQuoted(const std::string& strText) {
    std::string strQuoted = "'";
    for (const char c : strText) {
        strQuoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return strQuoted + "'";
}

std::string BaseName(const std::string& strPath) {
    const std::size_t uSlash = strPath.find_last_of('/');
    return uSlash == std::string::npos ? strPath : strPath.substr(uSlash + 1);
}

std::string WithoutQuotes(const std::string& strWord) {
    std::string strPlain;
    std::copy_if(strWord.begin(), strWord.end(), std::back_inserter(strPlain),
                 [](char c) { return c != '\'' && c != '"' && c != '(' && c != ')' && c != '{' && c != '}'; });
    return strPlain;
}

bool IsAssignment(const std::string& strWord) {
    const std::size_t uEqual = strWord.find('=');
    return uEqual != std::string::npos && strWord.find_first_not_of(NAME_CHARACTERS) == uEqual;
}

/// The simple commands of a text, as words; a rough cut, for a name alone.
std::vector<std::vector<std::string>> Pieces(const std::string& strCommand) {
    std::vector<std::vector<std::string>> vecPieces;
    std::string strPiece;
    for (const char c : strCommand + ";") {
        if (c != ';' && c != '&' && c != '|') {
            strPiece += c;
            continue;
        }
        if (std::vector<std::string> vecWords = SplitWords(strPiece); !vecWords.empty()) {
            vecPieces.push_back(std::move(vecWords));
        }
        strPiece.clear();
    }
    return vecPieces;
}

/// What one simple command runs; empty where it only prepares.
std::string ProgramOf(const std::vector<std::string>& vecWords) {
    static const std::set<std::string> setPreparing = {"[",     "[[",   "test",   "cd",    "export", "umask",
                                                       "sleep", "set",  "ulimit", ".",     "true",   ":",
                                                       "fi",    "done", "exit",   "source"};
    static const std::set<std::string> setWrapping = {"exec",  "command", "nice",    "ionice", "env",
                                                      "nohup", "if",      "time",    "then",   "else",
                                                      "do",    "sudo",    "chronic", "eval",   "!"};
    static const std::set<std::string> setRunning = {"sh",   "bash", "dash", "python", "python3",
                                                     "perl", "php",  "ruby", "node",   "run-parts"};
    bool bRunning = false;
    std::string strProgram;
    for (const std::string& strRaw : vecWords) {
        const std::string strWord = WithoutQuotes(strRaw);
        const bool bNumber = strWord.find_first_not_of("0123456789") == std::string::npos; // an option's
        if (bNumber || IsAssignment(strWord) || strWord.front() == '-' || strWord.front() == '>') {
            continue;
        }
        const std::string strName = BaseName(strWord);
        if (bRunning) { // what it runs says more, where that is a file
            return strWord.find('/') != std::string::npos && !strName.empty() ? strName : strProgram;
        }
        if (setWrapping.count(strName) != 0) {
            continue;
        }
        if (setPreparing.count(strName) != 0) {
            return std::string();
        }
        strProgram = strName;
        bRunning = setRunning.count(strName) != 0;
        if (!bRunning) {
            return strProgram;
        }
    }
    return strProgram;
}

} // namespace

Json::Value CronCommand(const std::string& strCommand, const CronEnvironment& mapEnvironment) {
    const Parts parts = Split(strCommand);
    const std::string strShell = Get(mapEnvironment, SHELL, "/bin/sh");
    Json::Value jsList(Json::arrayValue);
    jsList.append("/usr/bin/env");
    if (mapEnvironment.count(HOME) != 0) {
        jsList.append("--chdir=" + mapEnvironment.at(HOME));
    }
    CronEnvironment mapAll = mapEnvironment;
    mapAll.erase("LOGNAME"); // cron sets it itself
    mapAll.emplace("PATH", "/usr/bin:/bin");
    mapAll.emplace(SHELL, strShell);
    for (const auto& [strName, strValue] : mapAll) {
        jsList.append(strName + "=" + strValue);
    }
    if (parts.vecInput.empty()) {
        jsList.append(strShell);
        jsList.append("-c");
        jsList.append(parts.strCommand);
        return jsList;
    }
    // No variable of this shell's own: whatever it sets could be one that the command knows.
    jsList.append("/bin/sh");
    jsList.append("-c");
    jsList.append("printf '%s\\n' \"$@\" | " + ShellQuoted(strShell) + " -c \"$0\"");
    jsList.append(parts.strCommand);
    for (const std::string& strLine : parts.vecInput) {
        jsList.append(strLine);
    }
    return jsList;
}

std::string WhyNoCommand(const std::string& strCommand, const CronEnvironment& mapEnvironment) {
    if (Split(strCommand).strCommand.find_first_not_of(" \t") == std::string::npos) {
        return "there is no command";
    }
    const std::string strShell = Get(mapEnvironment, SHELL, "/bin/sh");
    if (strShell.empty() || strShell.front() != '/') {
        return "SHELL=" + strShell + " is no whole path of a shell";
    }
    for (const auto& [strName, strValue] : mapEnvironment) {
        if (strName.find_first_not_of(NAME_CHARACTERS) != std::string::npos ||
            std::string(LETTERS).find(strName.front()) == std::string::npos) {
            return "\"" + strName + "\" is no name of a variable that a shell knows";
        }
    }
    return std::string();
}

bool HasInput(const std::string& strCommand) {
    return Split(strCommand).bInput;
}

bool HasTwoBackslashes(const std::string& strCommand) {
    return strCommand.find("\\\\") != std::string::npos;
}

std::string SafeName(const std::string& strText) {
    std::string strAllowed = ".+-";
    strAllowed += NAME_CHARACTERS;
    std::string strName;
    for (const char c : strText) {
        const bool bGood = strAllowed.find(c) != std::string::npos;
        if (bGood || (!strName.empty() && strName.back() != '-')) {
            strName += bGood ? c : '-';
        }
    }
    strName.resize(std::min(strName.size(), NAME_MAX_BYTES));
    strName.erase(0, std::min(strName.find_first_not_of(".-+"), strName.size()));
    while (!strName.empty() && strName.back() == '-') {
        strName.pop_back();
    }
    return strName.empty() ? "job" : strName;
}

std::string NameOfCommand(const std::string& strCommand) {
    for (const std::vector<std::string>& vecWords : Pieces(Split(strCommand).strCommand)) {
        if (const std::string strProgram = ProgramOf(vecWords); !strProgram.empty()) {
            return SafeName(strProgram);
        }
    }
    return "job";
}

} // namespace VUKO::VUKOCrond::Ctl
