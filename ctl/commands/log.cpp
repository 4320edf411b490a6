#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>

#include "crond/cronjob.h"
#include "ctl/client.h"
#include "ctl/command.h"
#include "ctl/jobview.h"
#include "ctl/linefile.h"
#include "ctl/loglines.h"
#include "ctl/pager.h"
#include "ctl/terminal.h"
#include "ctl/text.h"
#include "ctl/timeline/wording.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Asked {
    std::string strJob;
    bool bFollow = false;
    bool bOutput = false;
    std::size_t uLines = 0; ///< 0: all, or where it is followed the last few
};

constexpr unsigned LINES_BEFORE_FOLLOWING = 10;

/// The lines of a job that may be gone, or of one that the service cannot be asked about: its name is the last part.
///
/// Where other jobs have that name, too, people are told.
///
/// @param[out] unknown  set where the service answers that there is no such job.
LogLines LinesOf(const std::string& strJob, const Common& common, std::optional<ToolError>& unknown) {
    std::string strName = strJob.substr(strJob.rfind('/') + 1);
    std::vector<std::string> vecKnown;
    std::vector<std::string> vecSame;
    std::string strId = strJob;
    try {
        Client client(common.strRoot);
        const Json::Value jsJobs = client.AskAll("list");
        for (const Json::Value& jsJob : jsJobs) {
            vecKnown.push_back(jsJob["name"].asString());
            if (vecKnown.back() == strName) {
                vecSame.push_back(jsJob["id"].asString());
            }
        }
        const Json::Value jsJob = client.Ask("show", Naming(strJob));
        strName = jsJob["name"].asString();
        strId = jsJob["id"].asString();
    } catch (const ToolError& error) {
        // It is looked for by what was asked.
        if (error.Code() == "not-found") {
            unknown = error;
        }
    }
    std::erase(vecSame, strId);
    if (!vecSame.empty()) {
        constexpr std::size_t NAMES_MAX = 4;
        std::cerr << "The log names jobs without their folders: lines may be of "
                  << Readable(Spelled(Enumerated(vecSame, NAMES_MAX))) << ".\n";
    }
    return {strName, vecKnown};
}

/// What is shown of a file: which lines, and how.
class Shown {
public:
    Shown(const Asked& asked, std::optional<LogLines> lines, std::optional<ToolError> unknown = std::nullopt)
        : _asked(asked), _lines(std::move(lines)), _unknown(std::move(unknown)) {}

    std::vector<std::string> Of(std::vector<std::string> vecLines) const {
        if (_lines) {
            std::erase_if(vecLines, [this](const std::string& strLine) { return !_lines->IsOfJob(strLine); });
        }
        return vecLines;
    }
    /// The last of them, as many as are asked for.
    std::vector<std::string> LastOf(std::vector<std::string> vecLines) const {
        vecLines = Of(std::move(vecLines));
        const std::size_t uMost = _asked.uLines != 0 ? _asked.uLines
                                  : _asked.bFollow   ? LINES_BEFORE_FOLLOWING
                                                     : vecLines.size();
        if (vecLines.size() > uMost) {
            vecLines.erase(vecLines.begin(), vecLines.end() - static_cast<std::ptrdiff_t>(uMost));
        }
        return vecLines;
    }
    /// @throws ToolError for a job that neither the service nor the log knows.
    void RequireKnown(const std::vector<std::string>& vecLines) const {
        if (_unknown && vecLines.empty()) {
            throw ToolError(*_unknown);
        }
    }
    void Print(const std::vector<std::string>& vecLines) const {
        for (const std::string& strLine : vecLines) {
            const bool bFailure = !_asked.bOutput && LogLines::IsFailure(strLine);
            std::cout << Styled(bFailure ? Style::Bad : Style::Plain, Readable(strLine)) << "\n";
        }
        std::cout.flush();
    }

private:
    const Asked& _asked;
    std::optional<LogLines> _lines;
    std::optional<ToolError> _unknown;
};

ExitStatus Follow(LineFile& file, const Shown& shown) {
    shown.Print(shown.LastOf(file.Take()));
    while (std::cout && file.Wait()) {
        shown.Print(shown.Of(file.Take()));
    }
    return EXIT_DONE;
}

/// @param strAbsent  why there may be no such file.
ExitStatus ShowFile(const std::string& strPath, const std::string& strAbsent, const Shown& shown, const Asked& asked,
                    const Common& common) {
    LineFile file(strPath);
    if (asked.bFollow) {
        return Follow(file, shown);
    }
    std::vector<std::string> vecAll = file.Take();
    if (!file.Begun().empty()) { // a program need not end what it prints in a line feed
        vecAll.push_back(file.Begun());
    }
    const std::vector<std::string> vecLines = shown.LastOf(std::move(vecAll));
    if (!file.IsThere()) {
        throw ToolError(EXIT_WRONG, strPath + " is not there: " + strAbsent);
    }
    shown.RequireKnown(vecLines);
    if (common.bJson) {
        Json::Value jsResult(Json::objectValue);
        jsResult["file"] = strPath;
        jsResult["lines"] = Json::Value(Json::arrayValue);
        for (const std::string& strLine : vecLines) {
            jsResult["lines"].append(Readable(strLine));
        }
        PrintJson(jsResult);
        return EXIT_DONE;
    }
    const Pager pager(common);
    shown.Print(vecLines);
    return EXIT_DONE;
}

/// The journal has a tool of its own, which knows better than this one how to show it.
ExitStatus ShowJournal(const std::string& strIdentifier, const Asked& asked, const Common& common) {
    if (common.bJson) {
        throw ToolError(EXIT_WRONG, "the output is in the journal: use journalctl -o json -t " + strIdentifier);
    }
    std::vector<std::string> vecWords = {"journalctl", "-t", strIdentifier};
    if (asked.bFollow) {
        vecWords.emplace_back("-f");
    }
    if (asked.uLines != 0) {
        vecWords.insert(vecWords.end(), {"-n", std::to_string(asked.uLines)});
    }
    if (common.bNoPager) {
        vecWords.emplace_back("--no-pager");
    }
    std::vector<char*> vecArguments;
    for (std::string& strWord : vecWords) {
        vecArguments.push_back(strWord.data());
    }
    vecArguments.push_back(nullptr);
    execvp(vecArguments[0], vecArguments.data());
    throw ToolError(EXIT_WRONG, std::string("journalctl cannot be run: ") + std::strerror(errno));
}

ExitStatus ShowOutput(const Asked& asked, const Common& common) {
    if (asked.strJob.empty()) {
        throw ToolError(EXIT_BAD_USAGE, "log --output: say of which job");
    }
    Json::Value jsMembers = Naming(asked.strJob);
    jsMembers["effective"] = true;
    const Json::Value jsJob = Client(common.strRoot).Ask("show", jsMembers);
    if (!jsJob["effective"].isObject()) {
        throw ToolError(EXIT_WRONG, "there is no account " + jsJob["account"].asString());
    }
    const std::string strTo = jsJob["effective"]["output"]["to"].asString();
    if (jsJob["effective"]["output"]["kind"] == "journal") {
        return ShowJournal(strTo, asked, common);
    }
    return ShowFile(strTo, "the job has not been started yet", Shown(asked, std::nullopt), asked, common);
}

ExitStatus Run(const Asked& asked, const Common& common) {
    if (asked.bFollow && common.bJson) {
        throw ToolError(EXIT_BAD_USAGE, "log: --json prints one document, and -f has no end");
    }
    try {
        if (asked.bOutput) {
            return ShowOutput(asked, common);
        }
        std::optional<LogLines> lines;
        std::optional<ToolError> unknown;
        if (!asked.strJob.empty()) {
            lines = LinesOf(asked.strJob, common, unknown);
        }
        return ShowFile(SZF_CRON_LOG_EXEC, "no job has been started yet", Shown(asked, lines, unknown), asked, common);
    } catch (const ToolError& error) {
        if (error.Status() != EXIT_DENIED) {
            throw;
        }
        throw ToolError(EXIT_DENIED, std::string(error.what()) +
                                         "; it is root's. vukocronctl history tells what became of your own jobs.");
    }
}

} // namespace

void AddLog(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command = AddCommand(app, common, "log", "Show the execution log, or what a job has printed",
                                       [asked, &common] { return Run(*asked, common); });
    command.Option("JOB", asked->strJob, "Only its lines: its name, or FOLDER/NAME, or FOLDER/PACKAGE/NAME");
    command.Flag("-f,--follow", asked->bFollow, "Go on with what comes, until interrupted");
    command.Option("-n,--lines", asked->uLines, "The last so many lines (all; with -f, 10)").Type("N").Positive();
    command.Flag("-o,--output", asked->bOutput, "Show the job's own output instead, from its file or the journal");
}

} // namespace VUKO::VUKOCrond::Ctl
