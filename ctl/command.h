#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ctl/common.h"
#include "service/engine/clockpolicy.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace VUKO::VUKOCrond::Ctl {

/// An option or an argument of a command: a name for what the library of command lines has of it, good for as long as
/// the command line is. What it is told holds from then on, and it gives itself back for more.
///
/// Commands know that library by this alone: it is all templates, and would be compiled anew with each of them.
class CommandOption {
public:
    CommandOption() = default; ///< one that is never given
    explicit CommandOption(CLI::Option* pOption) : _pOption(pOption) {}

    /// What stands for its value in the help.
    CommandOption Type(const std::string& strName) const;
    CommandOption Required() const;
    CommandOption OneOf(const std::vector<std::string>& vecChoices) const;
    CommandOption Within(int iLeast, int iMost) const;
    CommandOption Positive() const;
    CommandOption ExistingFolder() const;
    /// One text is several values.
    CommandOption SplitAt(char cDelimiter) const;
    /// Takes one value each time that it is given; the next word is something else's.
    CommandOption OneValueEach() const;
    /// It and the other are not given together.
    CommandOption Excludes(const CommandOption& other) const;

    bool IsGiven() const;
    /// "--name"; for an argument "NAME".
    std::string Name() const;

private:
    CLI::Option* _pOption = nullptr;
};

/// A command of the tool: the options and arguments that it takes, and the variables that they go to. One that is not
/// given leaves its variable as it is.
class Command {
public:
    explicit Command(CLI::App& app) : _pApp(&app) {}

    CommandOption Option(const std::string& strName, std::string& strValue, const std::string& strHelp) const;
    CommandOption Option(const std::string& strName, int& iValue, const std::string& strHelp) const;
    CommandOption Option(const std::string& strName, std::optional<int>& value, const std::string& strHelp) const;
    CommandOption Option(const std::string& strName, std::size_t& uValue, const std::string& strHelp) const;
    CommandOption Option(const std::string& strName, std::optional<std::string>& value,
                         const std::string& strHelp) const;
    CommandOption Option(const std::string& strName, std::vector<std::string>& vecValues,
                         const std::string& strHelp) const;
    CommandOption Flag(const std::string& strName, bool& bValue, const std::string& strHelp) const;

    /// Adds the options of all commands that look ahead: --tz and --policy. @return the latter
    CommandOption ClockOptions(std::string& strZone, Service::ClockPolicy& ePolicy) const;
    /// Adds --max-delay.
    CommandOption MaxDelayOption(int& iMaxDelay) const;

private:
    CLI::App* _pApp;
};

/// A word of the command line as the parser has to be given it: it would take "[a,b]" for two values. Options and
/// arguments of commands take the mark away again.
std::string Marked(const std::string& strWord);
/// What the parser has to say about such words, without the marks.
std::string WithoutMarks(std::string strText);

/// Adds a command; `run` of `common` is set when it is chosen. Each stands in a file of its own.
Command AddCommand(CLI::App& app, Common& common, const std::string& strName, const std::string& strDescription,
                   std::function<ExitStatus()> run);

void AddNext(CLI::App& app, Common& common);
void AddCheck(CLI::App& app, Common& common);
void AddExplain(CLI::App& app, Common& common);
void AddSimulate(CLI::App& app, Common& common);
void AddTimeline(CLI::App& app, Common& common);
void AddStatus(CLI::App& app, Common& common);
void AddList(CLI::App& app, Common& common);
void AddShow(CLI::App& app, Common& common);
void AddWhy(CLI::App& app, Common& common);
void AddHistory(CLI::App& app, Common& common);
void AddLog(CLI::App& app, Common& common);
void AddRun(CLI::App& app, Common& common);
void AddAdd(CLI::App& app, Common& common);
void AddEdit(CLI::App& app, Common& common);
void AddRemove(CLI::App& app, Common& common);
/// enable and disable.
void AddEnableCommands(CLI::App& app, Common& common);
void AddImport(CLI::App& app, Common& common);
/// reload, reroll, role, template, drain: one request each.
void AddOneRequestCommands(CLI::App& app, Common& common);

} // namespace VUKO::VUKOCrond::Ctl
