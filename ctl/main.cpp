#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "ctl/command.h"
#include "ctl/completion.h"
#include "ctl/text.h"
#include "service/rootdir.h"

namespace {

using namespace VUKO::VUKOCrond::Ctl;

constexpr const char* DESCRIPTION = "Shows and steers the jobs of vukocrond.";
constexpr const char* FOOTER =
    "Exit status: 0 done, 1 the thing asked about is wrong or absent, 2 bad usage, 3 the service "
    "could not be reached, 4 permission denied.";

std::string Complaint(const CLI::App* pApp, const CLI::Error& error) {
    return pApp->get_name() + ": " + WithoutMarks(error.what()) + "\nTry '" + pApp->get_name() +
           " --help' for more information.\n";
}

/// The first word that is neither an option of the tool nor the value of one: which command is asked for.
char** FindCommand(char** aFirst, char** aEnd) {
    while (aFirst != aEnd && **aFirst == '-') {
        const bool bHasValue = *aFirst == std::string("--root") && aFirst + 1 != aEnd;
        aFirst += bHasValue ? 2 : 1;
    }
    return aFirst;
}

/// The command of `add` is taken off before anything is parsed: the parser would take "[a,b]" apart, and end at "++".
/// @return how many arguments are left.
int TakeCommand(int iCount, char** aArguments, std::vector<std::string>& vecCommand) {
    char** const aEnd = aArguments + iCount;
    char** const aDashes = std::find(aArguments, aEnd, std::string("--"));
    const bool bCompletes =
        iCount > 1 && aArguments[1] == std::string(COMPLETE); // what is asked then is the line as it is
    char** const aCommand = iCount > 1 ? FindCommand(aArguments + 1, aEnd) : aEnd;
    if (bCompletes || aDashes == aEnd || aCommand >= aDashes || *aCommand != std::string("add")) {
        return iCount;
    }
    vecCommand.assign(aDashes + 1, aEnd);
    return static_cast<int>(aDashes - aArguments);
}

/// The words of a command line, the last one first.
std::vector<std::string> WordsForParser(char** aFirst, char** aEnd) {
    std::vector<std::string> vecWords;
    std::transform(aFirst, aEnd, std::back_inserter(vecWords), Marked);
    std::reverse(vecWords.begin(), vecWords.end());
    return vecWords;
}

ExitStatus Work(int iCount, char** aArguments) {
    Common common;
    iCount = TakeCommand(iCount, aArguments, common.vecCommand);
    CLI::App app(DESCRIPTION, "vukocronctl");
    app.footer(FOOTER);
    app.failure_message(Complaint);
    app.set_help_flag("-h,--help", "Print this text and end");
    app.set_version_flag("-V,--version", "vukocronctl " VUKO_VERSION, "Print the version and end");
    Command(app).Option("--root", common.strRoot, "All folders and files lie below DIR").Type("DIR").ExistingFolder();
    app.add_flag("--json", common.bJson, "Print one JSON document; may stand behind the command, too");
    app.add_flag("--no-pager", common.bNoPager, "Let nothing go through a pager");
    app.require_subcommand(0, 1); // what is no command is told by its name then
    app.fallthrough();
    for (const auto add :
         {AddNext, AddSimulate, AddTimeline, AddCheck, AddExplain, AddStatus, AddList, AddShow, AddHistory, AddWhy,
          AddLog, AddRun, AddAdd, AddEdit, AddRemove, AddEnableCommands, AddImport, AddOneRequestCommands}) {
        add(app, common);
    }
    if (iCount > 1 && aArguments[1] == std::string(COMPLETE)) {
        return Complete(app, {aArguments + 2, aArguments + iCount}, std::cout);
    }
    try {
        app.parse(WordsForParser(aArguments + 1, aArguments + std::max(iCount, 1)));
        if (app.get_subcommands().empty()) {
            throw CLI::RequiredError("A command");
        }
    } catch (const CLI::ParseError& error) {
        return app.exit(error, std::cout, std::cerr) == 0 ? EXIT_DONE : EXIT_BAD_USAGE;
    }
    if (!common.strRoot.empty()) {
        common.strRoot = std::filesystem::canonical(common.strRoot).string();
        common.strRoot = common.strRoot == "/" ? std::string() : common.strRoot;
    }
    const VUKO::VUKOCrond::Service::RootDir root(common.strRoot);
    return common.run();
}

} // namespace

int main(int iCount, char** aArguments) {
    ExitStatus eStatus = EXIT_DONE;
    try {
        eStatus = Work(iCount, aArguments);
    } catch (const ToolError& error) {
        std::cerr << "vukocronctl: " << ReadableLines(error.what()) << "\n";
        eStatus = error.Status();
    } catch (const std::exception& exception) {
        std::cerr << "vukocronctl: " << ReadableLines(exception.what()) << "\n";
        eStatus = EXIT_WRONG;
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "vukocronctl: cannot write to standard output\n";
        return eStatus == EXIT_DONE ? EXIT_WRONG : eStatus;
    }
    return eStatus;
}
