#include "ctl/shellline.h"

#include <string_view>

namespace VUKO::VUKOCrond::Ctl {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n';
}

/// Reads one line, a character at a time.
class LineReader {
public:
    explicit LineReader(const std::string& strLine) : _strLine(strLine) {}

    ShellLine Read() {
        while (_uAt < _strLine.size()) {
            Take(_strLine[_uAt]);
        }
        _line.vecWords.push_back(_strWord);
        _line.strLastRaw = _strLine.substr(_uBegin);
        return _line;
    }

private:
    void Take(char c) {
        ++_uAt;
        char& cQuote = _line.cOpenQuote;
        if (cQuote == '\0' && IsBlank(c)) {
            EndWord();
        } else if (cQuote == '\0' && (c == '\'' || c == '"')) {
            cQuote = c;
        } else if (c == cQuote) {
            cQuote = '\0';
        } else if (c == '\\' && cQuote != '\'' && _uAt < _strLine.size()) {
            TakeEscaped(_strLine[_uAt++]);
        } else {
            _strWord += c;
        }
    }
    /// In double quotes a backslash only escapes some.
    void TakeEscaped(char c) {
        const bool bEscaped = _line.cOpenQuote == '\0' || std::string_view("\"\\$`").find(c) != std::string_view::npos;
        _strWord += bEscaped ? std::string(1, c) : std::string("\\") + c;
    }
    void EndWord() {
        if (_uBegin + 1 != _uAt) { // else another blank
            _line.vecWords.push_back(_strWord);
        }
        _strWord.clear();
        _uBegin = _uAt;
    }

    const std::string& _strLine;
    ShellLine _line;
    std::string _strWord;
    std::size_t _uAt = 0;
    std::size_t _uBegin = 0;
};

} // namespace

ShellLine ReadShellLine(const std::string& strLine) {
    return LineReader(strLine).Read();
}

std::string QuotedForShell(const std::string& strText, char cOpenQuote) {
    constexpr std::string_view IN_QUOTES = "\"\\$`!";
    constexpr std::string_view OUTSIDE = " \t\n\"'\\$`!&|;<>()[]{}*?~#^";
    std::string strQuoted;
    for (const char c : strText) {
        if (cOpenQuote == '\'') {
            strQuoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
            continue;
        }
        const std::string_view strSpecial = cOpenQuote == '"' ? IN_QUOTES : OUTSIDE;
        strQuoted += strSpecial.find(c) != std::string_view::npos ? std::string("\\") + c : std::string(1, c);
    }
    return strQuoted;
}

} // namespace VUKO::VUKOCrond::Ctl
