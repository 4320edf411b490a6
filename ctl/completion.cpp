#include "ctl/completion.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <utility>

#include "ctl/candidates.h"
#include "ctl/shellline.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// Finds what may be written at the end of some words.
class Completer {
public:
    explicit Completer(CLI::App& app) : _pCommand(&app) {}

    void Find(std::vector<std::string> vecWords) {
        const std::string strTyped = vecWords.empty() ? std::string() : vecWords.back();
        for (std::size_t u = 0; u + 1 < vecWords.size(); ++u) {
            Pass(vecWords[u]);
        }
        Offer(strTyped);
    }

    const std::vector<Candidate>& Candidates() const { return _vecCandidates; }
    const std::string& LeftToShell() const { return _strLeftToShell; }

private:
    bool IsOption(const std::string& strWord) const {
        return !_bOnlyArguments && strWord.size() > 1 && strWord.front() == '-';
    }
    static bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

    void Pass(const std::string& strWord);
    void PassOption(const std::string& strWord);
    void TakeValue(const CLI::Option& option, const std::string& strValue);
    CLI::Option* FindOption(const std::string& strName) const;
    CLI::Option* NextArgument() const;
    std::vector<CLI::App*> Commands() const;
    std::vector<CLI::Option*> Options() const;

    void Offer(const std::string& strTyped);
    void OfferOptions(const std::string& strTyped);
    void OfferValues(CLI::Option& option, const std::string& strTyped, const std::string& strBefore);
    void Add(const std::string& strTyped, const Candidate& candidate, const std::string& strBefore = std::string());

    CLI::App* _pCommand;
    CLI::Option* _pAwaitsValue = nullptr;
    int _iArguments = 0;
    bool _bOnlyArguments = false;
    int _iProgramWords = -1; ///< how many stand behind the "--" of `add`, which begin with a program; -1: none may
    std::string _strRoot;
    std::vector<Candidate> _vecCandidates;
    std::string _strLeftToShell;
};

/// Those that a help names.
std::vector<CLI::App*> Completer::Commands() const {
    return _pCommand->get_subcommands(
        [](CLI::App* pApp) { return !pApp->get_name().empty() && !pApp->get_group().empty(); });
}

/// Those of the command and, behind them, those of the tool that may stand anywhere.
std::vector<CLI::Option*> Completer::Options() const {
    std::vector<CLI::Option*> vecOptions;
    for (CLI::App* pApp = _pCommand; pApp != nullptr; pApp = pApp->get_parent()) {
        for (CLI::Option* const pOption : pApp->get_options({})) {
            const bool bOfOther =
                pApp != _pCommand && (pOption == pApp->get_help_ptr() || pOption == pApp->get_version_ptr());
            const bool bKnown = std::any_of(vecOptions.begin(), vecOptions.end(), [&](const CLI::Option* pOther) {
                return pOther->get_name() == pOption->get_name();
            });
            if (!pOption->get_positional() && !pOption->get_group().empty() && !bOfOther && !bKnown) {
                vecOptions.push_back(pOption);
            }
        }
    }
    return vecOptions;
}

/// @param strName  with its dashes.
CLI::Option* Completer::FindOption(const std::string& strName) const {
    for (CLI::Option* const pOption : Options()) {
        if (pOption->check_name(strName)) {
            return pOption;
        }
    }
    return nullptr;
}

/// The argument that comes after those that are there.
CLI::Option* Completer::NextArgument() const {
    int iBefore = _iArguments;
    for (CLI::Option* const pOption : _pCommand->get_options({})) {
        if (pOption->get_positional()) {
            if (iBefore < pOption->get_items_expected_max()) {
                return pOption;
            }
            iBefore -= pOption->get_items_expected_max();
        }
    }
    return nullptr;
}

void Completer::TakeValue(const CLI::Option& option, const std::string& strValue) {
    if (option.check_name("--root")) {
        const char* const szHome = std::getenv("HOME");
        const bool bBelowHome = szHome != nullptr && strValue.starts_with("~/"); // no shell has expanded it yet
        _strRoot = bBelowHome ? szHome + strValue.substr(1) : strValue;
    }
}

void Completer::PassOption(const std::string& strWord) {
    const std::size_t uEquals = strWord.find('=');
    if (strWord.starts_with("--")) {
        CLI::Option* const pOption = FindOption(strWord.substr(0, uEquals));
        if (pOption != nullptr && TakesValue(*pOption) && uEquals != std::string::npos) {
            TakeValue(*pOption, strWord.substr(uEquals + 1));
        } else if (pOption != nullptr && TakesValue(*pOption)) {
            _pAwaitsValue = pOption;
        }
        return;
    }
    CLI::Option* const pOption = FindOption(strWord.substr(0, 2));
    _pAwaitsValue = pOption != nullptr && TakesValue(*pOption) && strWord.size() == 2 ? pOption : nullptr;
}

void Completer::Pass(const std::string& strWord) {
    if (_iProgramWords >= 0) {
        ++_iProgramWords;
    } else if (_pAwaitsValue != nullptr) {
        TakeValue(*std::exchange(_pAwaitsValue, nullptr), strWord);
    } else if (!_bOnlyArguments && strWord == "--") {
        _bOnlyArguments = true;
        _iProgramWords = _pCommand->check_name("add") ? 0 : -1;
    } else if (IsOption(strWord)) {
        PassOption(strWord);
    } else {
        const std::vector<CLI::App*> vecCommands = Commands();
        const auto itCommand = std::find_if(vecCommands.begin(), vecCommands.end(),
                                            [&](const CLI::App* pApp) { return pApp->check_name(strWord); });
        if (itCommand != vecCommands.end()) {
            _pCommand = *itCommand;
            _iArguments = 0;
        } else {
            ++_iArguments;
        }
    }
}

void Completer::Add(const std::string& strTyped, const Candidate& candidate, const std::string& strBefore) {
    if (candidate.strWord.starts_with(strTyped)) {
        _vecCandidates.push_back({strBefore + candidate.strWord, candidate.strDescription});
    }
}

void Completer::OfferOptions(const std::string& strTyped) {
    for (const CLI::Option* const pOption : Options()) {
        const bool bLong = !pOption->get_lnames().empty();
        Add(strTyped, {bLong ? "--" + pOption->get_lnames().front() : "-" + pOption->get_snames().front(),
                       pOption->get_description()});
    }
}

/// By the kind of what it takes, which is the name of an argument and what stands behind an option in the help.
void Completer::OfferValues(CLI::Option& option, const std::string& strTyped, const std::string& strBefore) {
    const std::string strKind = option.get_positional() ? option.get_name(true) : option.get_type_name();
    const std::string strName = strKind.substr(0, strKind.find(':'));
    std::vector<Candidate> vecValues = ChoicesOf(option);
    if (strName == "JOB") {
        vecValues = JobCandidates(_strRoot, strTyped);
    } else if (strName == "ZONE") {
        vecValues = ZoneCandidates();
    } else if (vecValues.empty() && (strName == "FILE" || strName == "DIR")) {
        _strLeftToShell = strName == "FILE" ? ":files" : ":folders";
    }
    for (const Candidate& candidate : vecValues) {
        Add(strTyped, candidate, strBefore);
    }
}

void Completer::Offer(const std::string& strTyped) {
    if (_iProgramWords >= 0) {
        _strLeftToShell = _iProgramWords == 0 && strTyped.find('/') == std::string::npos ? ":commands" : ":files";
        return;
    }
    const std::size_t uEquals = strTyped.find('=');
    if (_pAwaitsValue != nullptr) {
        OfferValues(*_pAwaitsValue, strTyped, std::string());
        return;
    }
    if (IsOption(strTyped) || (!_bOnlyArguments && strTyped == "-")) {
        CLI::Option* const pOption = uEquals != std::string::npos ? FindOption(strTyped.substr(0, uEquals)) : nullptr;
        if (pOption != nullptr && TakesValue(*pOption)) {
            OfferValues(*pOption, strTyped.substr(uEquals + 1), strTyped.substr(0, uEquals + 1));
        } else {
            OfferOptions(strTyped);
        }
        return;
    }
    for (const CLI::App* const pApp : Commands()) {
        Add(strTyped, {pApp->get_name(), pApp->get_description()});
    }
    if (CLI::Option* const pArgument = NextArgument()) {
        OfferValues(*pArgument, strTyped, std::string());
    } else if (_vecCandidates.empty() && strTyped.empty()) {
        OfferOptions("--");
    }
}

void AnswerBash(CLI::App& app, const std::string& strLine, const std::string& strReplaced, std::ostream& out) {
    ShellLine line = ReadShellLine(strLine);
    line.vecWords.erase(line.vecWords.begin()); // the tool's own name
    Completer completer(app);
    completer.Find(line.vecWords);
    // Bash replaces only what stands behind a "=" or ":", or behind the quote: the rest is taken off.
    const bool bIsPart = line.strLastRaw.ends_with(strReplaced);
    std::string strKept = bIsPart ? line.strLastRaw.substr(0, line.strLastRaw.size() - strReplaced.size()) : "";
    if (line.cOpenQuote != '\0' && strKept.starts_with(line.cOpenQuote)) {
        strKept.erase(0, 1);
    }
    for (const Candidate& candidate : completer.Candidates()) {
        const std::string strQuoted = QuotedForShell(candidate.strWord, line.cOpenQuote);
        out << (strQuoted.starts_with(strKept) ? strQuoted.substr(strKept.size()) : strQuoted) << "\n";
    }
    out << completer.LeftToShell() << "\n";
}

void AnswerZsh(CLI::App& app, std::vector<std::string> vecWords, std::ostream& out) {
    Completer completer(app);
    completer.Find(std::move(vecWords));
    for (const Candidate& candidate : completer.Candidates()) {
        out << candidate.strWord << "\t" << candidate.strDescription << "\n";
    }
    out << completer.LeftToShell() << "\n";
}

} // namespace

ExitStatus Complete(CLI::App& app, const std::vector<std::string>& vecArguments, std::ostream& out) {
    if (vecArguments.size() == 3 && vecArguments[0] == "bash") {
        AnswerBash(app, vecArguments[1], vecArguments[2], out);
        return EXIT_DONE;
    }
    if (vecArguments.size() >= 2 && vecArguments[0] == "zsh") {
        AnswerZsh(app, {vecArguments.begin() + 1, vecArguments.end()}, out);
        return EXIT_DONE;
    }
    return EXIT_BAD_USAGE;
}

} // namespace VUKO::VUKOCrond::Ctl
