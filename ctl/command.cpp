#include "ctl/command.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <system_error>
#include <utility>

namespace VUKO::VUKOCrond::Ctl {

namespace {

/// What is wrong is said by the check; what would be right, by the help's own words.
CLI::Validator Wordless(CLI::Validator validator) {
    return validator.description("");
}

/// Behind a word that the parser would take apart.
constexpr char MARK = '\x1f';

CLI::Option* Unmarked(CLI::Option* pOption) {
    const auto unmark = [](std::string& strValue) {
        if (!strValue.empty() && strValue.back() == MARK) {
            strValue.pop_back();
        }
        return std::string();
    };
    return pOption->transform(CLI::Validator(unmark, std::string()));
}

/// A whole number that has no end: the library would tell the largest of all as the bound.
CLI::Validator FromOn(int iLeast) {
    return CLI::Validator(
        [iLeast](const std::string& strText) {
            int iValue = 0;
            const char* const pEnd = strText.data() + strText.size();
            const auto [pRead, eError] = std::from_chars(strText.data(), pEnd, iValue);
            const bool bTaken = eError == std::errc() && pRead == pEnd && iValue >= iLeast;
            return bTaken ? std::string()
                          : "\"" + strText + "\": expected a whole number, " + std::to_string(iLeast) + " or more";
        },
        "");
}

} // namespace

std::string Marked(const std::string& strWord) {
    return strWord.starts_with('[') && strWord.ends_with(']') ? strWord + MARK : strWord;
}

std::string WithoutMarks(std::string strText) {
    std::erase(strText, MARK);
    return strText;
}

CommandOption CommandOption::Type(const std::string& strName) const {
    _pOption->type_name(strName);
    return *this;
}

CommandOption CommandOption::Required() const {
    _pOption->required();
    return *this;
}

CommandOption CommandOption::OneOf(const std::vector<std::string>& vecChoices) const {
    _pOption->check(Wordless(CLI::IsMember(vecChoices)));
    return *this;
}

CommandOption CommandOption::Within(int iLeast, int iMost) const {
    _pOption->check(Wordless(CLI::Range(iLeast, iMost)));
    return *this;
}

CommandOption CommandOption::Positive() const {
    _pOption->check(FromOn(1));
    return *this;
}

CommandOption CommandOption::ExistingFolder() const {
    _pOption->check(Wordless(CLI::ExistingDirectory));
    return *this;
}

CommandOption CommandOption::SplitAt(char cDelimiter) const {
    _pOption->delimiter(cDelimiter);
    return *this;
}

CommandOption CommandOption::OneValueEach() const {
    _pOption->allow_extra_args(false);
    return *this;
}

CommandOption CommandOption::Excludes(const CommandOption& other) const {
    _pOption->excludes(other._pOption);
    return *this;
}

bool CommandOption::IsGiven() const {
    return _pOption != nullptr && _pOption->count() != 0;
}

std::string CommandOption::Name() const {
    return _pOption->get_name();
}

CommandOption Command::Option(const std::string& strName, std::string& strValue, const std::string& strHelp) const {
    return CommandOption(Unmarked(_pApp->add_option(strName, strValue, strHelp)));
}

CommandOption Command::Option(const std::string& strName, int& iValue, const std::string& strHelp) const {
    return CommandOption(_pApp->add_option(strName, iValue, strHelp));
}

CommandOption Command::Option(const std::string& strName, std::optional<int>& value, const std::string& strHelp) const {
    return CommandOption(_pApp->add_option(strName, value, strHelp));
}

CommandOption Command::Option(const std::string& strName, std::size_t& uValue, const std::string& strHelp) const {
    return CommandOption(_pApp->add_option(strName, uValue, strHelp));
}

CommandOption Command::Option(const std::string& strName, std::optional<std::string>& value,
                              const std::string& strHelp) const {
    return CommandOption(Unmarked(_pApp->add_option(strName, value, strHelp)));
}

CommandOption Command::Option(const std::string& strName, std::vector<std::string>& vecValues,
                              const std::string& strHelp) const {
    return CommandOption(Unmarked(_pApp->add_option(strName, vecValues, strHelp)));
}

CommandOption Command::Flag(const std::string& strName, bool& bValue, const std::string& strHelp) const {
    return CommandOption(_pApp->add_flag(strName, bValue, strHelp));
}

CommandOption Command::ClockOptions(std::string& strZone, Service::ClockPolicy& ePolicy) const {
    Option("--tz", strZone, "Time zone (the system's)").Type("ZONE");
    const auto set = [&ePolicy](const std::string& strPolicy) {
        ePolicy = Service::ClockPolicyOf(strPolicy).value_or(ePolicy);
    };
    CLI::Option* const pPolicy =
        _pApp->add_option_function<std::string>("--policy", set, "literal or catchup (catchup)");
    return CommandOption(pPolicy).Type("POLICY").OneOf({"literal", "catchup"});
}

CommandOption Command::MaxDelayOption(int& iMaxDelay) const {
    return CommandOption(
        _pApp->add_option("--max-delay", iMaxDelay, "Seconds over which jobs of a random minute are spread (300)")
            ->type_name("SECONDS")
            ->check(FromOn(0)));
}

Command AddCommand(CLI::App& app, Common& common, const std::string& strName, const std::string& strDescription,
                   std::function<ExitStatus()> run) {
    CLI::App* const pCommand = app.add_subcommand(strName, strDescription);
    pCommand->add_flag("--json", common.bJson, "Print one JSON document");
    pCommand->callback([&common, run = std::move(run)] { common.run = run; });
    return Command(*pCommand);
}

} // namespace VUKO::VUKOCrond::Ctl
