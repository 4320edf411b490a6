#include "service/options.h"

#include <CLI/CLI.hpp>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* DESCRIPTION =
    "Starts the jobs of the system and its packages by their schedules.\n"
    "\n"
    "Runs in the foreground until SIGTERM or SIGINT; SIGHUP makes it read the definitions again. Messages go to the "
    "system log, and to standard error as well unless that is the journal.";

constexpr const char* FOOTER = "Exit status: 0 orderly end, 1 failure, 2 bad usage.";

std::string Complaint(const CLI::App* pApp, const CLI::Error& error) {
    return pApp->get_name() + ": " + error.what() + "\nTry '" + pApp->get_name() + " --help' for more information.\n";
}

/// An option that takes one of these words. The number that a word stands for is not taken.
template <typename Value>
void TakeWord(CLI::Option* pOption, const std::vector<std::pair<std::string, Value>>& vecWords) {
    std::string strWords;
    for (const auto& [strWord, eValue] : vecWords) {
        strWords += (strWords.empty() ? "" : "|") + strWord;
    }
    pOption->type_name(strWords)->transform(CLI::Validator(
        [vecWords, strWords](std::string& strText) -> std::string {
            for (const auto& [strWord, eValue] : vecWords) {
                if (strText == strWord) {
                    strText = std::to_string(static_cast<int>(eValue));
                    return "";
                }
            }
            return "expected " + strWords + ", found \"" + strText + "\"";
        },
        ""));
}

} // namespace

std::optional<ExitStatus> ParseOptions(int iCount, const char* const* aArguments, Options& options, std::ostream& out,
                                       std::ostream& err) {
    CLI::App app(DESCRIPTION, "vukocrond");
    app.footer(FOOTER);
    app.failure_message(Complaint);
    app.set_help_flag("-h,--help", "Print this text and end");
    app.set_version_flag("-V,--version", "vukocrond " VUKO_VERSION, "Print the version and end");
    app.add_option("--root", options.strRoot, "Put all folders and files below DIR")
        ->type_name("DIR")
        ->check(CLI::Validator(CLI::ExistingDirectory).description(""));
    app.add_flag("--check", options.bCheck, "Read the definitions, print what is wrong with them, and end");
    app.add_flag("--print-schedule", options.bPrintSchedule, "Print the schedule of each job after loading");
    TakeWord<ClockPolicy>(
        app.add_option("--policy", options.ePolicy,
                       "What to make of a clock that does not run evenly: catchup (the default) makes up for minutes "
                       "that were passed over, literal starts what matches the wall clock and nothing else"),
        {{"catchup", ClockPolicy::CatchUp}, {"literal", ClockPolicy::Literal}});
    TakeWord<OnStop>(
        app.add_option("--on-stop", options.eOnStop,
                       "What to do with running jobs when told to stop: leave them running (the default), wait for "
                       "their end, or terminate them"),
        {{"leave", OnStop::Leave}, {"wait", OnStop::Wait}, {"terminate", OnStop::Terminate}});
    app.add_option("--role-file", options.strRoleFile, "Read the role, active or passive, from FILE")
        ->type_name("FILE");
    app.add_option("--metrics-file", options.strMetricsFile,
                   "Write figures for the textfile collector of node_exporter to FILE once a minute")
        ->type_name("FILE");
    try {
        app.parse(iCount, aArguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, err) == 0 ? EXIT_ORDERLY : EXIT_BAD_USAGE;
    }
    return std::nullopt;
}

} // namespace VUKO::VUKOCrond::Service
