#include <iostream>
#include <memory>

#include "crond/cronjob.h"
#include "ctl/command.h"
#include "ctl/import/crontabfile.h"
#include "ctl/import/effect.h"
#include "ctl/import/report.h"
#include "ctl/import/timers.h"
#include "ctl/pager.h"
#include "ctl/serviceview.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

struct Asked {
    std::string strKind;
    std::string strFile;
    CrontabFormat format;
    std::vector<std::string> vecUnits;
    std::vector<std::string> vecUnitFolders;
    std::string strPackage;
    ImportOptions options;
    bool bDryRun = false;
    bool bSkip = false;
};

[[noreturn]] void BadUsage(const std::string& strMessage) {
    throw ToolError(EXIT_BAD_USAGE, "import: " + strMessage);
}

void RequireUsage(const Asked& asked) {
    const bool bCrontab = asked.strKind == "crontab";
    if (bCrontab && asked.strFile.empty()) {
        BadUsage("name the crontab's file, - for standard input");
    }
    if (bCrontab && (!asked.vecUnits.empty() || !asked.vecUnitFolders.empty())) {
        BadUsage("--unit and --unit-dir are for timers");
    }
    if (!bCrontab && !asked.strFile.empty()) {
        BadUsage("timers are named by --unit, their folders by --unit-dir");
    }
    if (!bCrontab && (asked.format.bSystem || !asked.format.strAccount.empty())) {
        BadUsage("--system and --user are for crontabs");
    }
}

ImportItems Convert(const Asked& asked, const Common& common) {
    UseZone(std::string());
    (void)ServiceView(common.strRoot).Status(); // where the service runs, its zone takes the place of the caller's
    if (asked.strKind == "crontab") {
        const bool bSaid = asked.format.bSystem || !asked.format.strAccount.empty();
        const CrontabFormat format = bSaid ? asked.format : GuessFormat(asked.strFile);
        return ConvertCrontab(ReadCrontab(asked.strFile), asked.strFile, format);
    }
    const UnitFolders folders(asked.vecUnitFolders.empty() ? UsualUnitFolders() : asked.vecUnitFolders);
    return ConvertTimers(folders, asked.vecUnits);
}

ExitStatus Run(Asked asked, const Common& common) {
    RequireUsage(asked);
    ImportItems items = Convert(asked, common);
    asked.options.place = PlaceForNew(asked.strPackage);
    if (!asked.bDryRun) {
        RequireWritable(asked.options.place, "this folder");
    }
    ImportReport report;
    report.strSource = asked.strKind == "crontab" ? asked.strFile : asked.strKind;
    report.place = asked.options.place;
    report.vecItems = PlanImport(std::move(items.vecItems), asked.options);
    report.vecNotes = std::move(items.vecNotes);
    report.bDryRun = asked.bDryRun;
    report.bGood = (asked.bSkip || report.CountRefused() == 0) && report.Count(PlannedJob::State::Conflict) == 0;
    if (report.bGood && !asked.bDryRun) {
        StorePlan(report.vecItems, report.place);
        report.bStored = true;
        if (report.CountToStore() > 0) {
            ServiceView service(common.strRoot);
            report.vecNotes.push_back(EffectOf(report.vecItems, report.place, service));
        }
    }
    if (common.bJson) {
        PrintJson(ReportJson(report));
    } else {
        const Pager pager(common);
        PrintReport(std::cout, report);
    }
    const bool bTaken = report.vecNotes.empty() || report.vecNotes.back().strCode != NOT_TAKEN;
    return report.bGood && bTaken ? EXIT_DONE : EXIT_WRONG;
}

} // namespace

void AddImport(CLI::App& app, Common& common) {
    const auto asked = std::make_shared<Asked>();
    const Command command = AddCommand(app, common, "import", "Make jobs of a crontab's lines or of systemd's timers",
                                       [asked, &common] { return Run(*asked, common); });
    command.Option("WHAT", asked->strKind, "crontab or timers").Required().OneOf({"crontab", "timers"});
    command.Option("FILE", asked->strFile, "The crontab, - for standard input");
    const CommandOption system =
        command.Flag("--system", asked->format.bSystem, "The crontab has a column for the account");
    command.Option("--user", asked->format.strAccount, "It has none: all lines are this account's")
        .Type("ACCOUNT")
        .Excludes(system);
    command.Option("--unit", asked->vecUnits, "Timers to import; without it all that are enabled").Type("TIMER");
    command.Option("--unit-dir", asked->vecUnitFolders, "Read units here, and not in the usual folders")
        .Type("DIR")
        .ExistingFolder();
    command.Option("--package", asked->strPackage, "Into the folder of a package with an account of its own")
        .Type("PACKAGE");
    command.Option("--prefix", asked->options.strPrefix, "Begin the jobs' names with this").Type("TEXT");
    command.Flag("--disabled", asked->options.bDisabled, "Let the jobs be known, but not started yet");
    command.Flag("--replace", asked->options.bReplace, "Put them in the place of other jobs of their names");
    command.Flag("--skip-inexpressible", asked->bSkip, "Leave out what cannot be expressed");
    command.Flag("--dry-run", asked->bDryRun, "Store nothing, tell what would be");
}

} // namespace VUKO::VUKOCrond::Ctl
