#include "ctl/import/report.h"

#include <algorithm>
#include <map>
#include <ostream>

#include "ctl/table.h"
#include "ctl/terminal.h"
#include "ctl/text.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

using Kind = ImportItem::Kind;
using State = PlannedJob::State;

constexpr std::size_t ORIGINAL_COLUMNS = 160;

const char* ToText(State eState) {
    switch (eState) {
    case State::New:
        return "converted";
    case State::Existing:
        return "existing";
    case State::Replacing:
        return "replaced";
    case State::Conflict:
        break;
    }
    return "conflict";
}

const char* ToText(Kind eKind) {
    switch (eKind) {
    case Kind::Job:
        return "converted";
    case Kind::Setting:
        return "setting";
    case Kind::Passed:
        return "passed over";
    case Kind::Refused:
        break;
    }
    return "cannot be expressed";
}

/// As it may stand on a terminal, and no longer than a line of a report should be.
std::string Original(std::string strText) {
    std::replace(strText.begin(), strText.end(), '\t', ' ');
    return CutTo(Readable(strText), ORIGINAL_COLUMNS);
}

Style StyleOf(const char* szResult) {
    static const std::map<std::string, Style> mapStyles = {{"converted", Style::Good},
                                                           {"replaced", Style::Warn},
                                                           {"conflict", Style::Bad},
                                                           {"cannot be expressed", Style::Bad}};
    const auto it = mapStyles.find(szResult);
    return it != mapStyles.end() ? it->second : Style::Faint;
}

std::string ConflictText(const PlannedJob& job) {
    return "there is another job " + job.Name() + " in " + job.found->file.Path() +
           ": --replace puts this one in its place, --prefix gives it another name";
}

Json::Value NotesJson(const std::vector<Note>& vecNotes) {
    Json::Value jsNotes(Json::arrayValue);
    for (const Note& note : vecNotes) {
        Json::Value jsNote(Json::objectValue);
        jsNote["code"] = note.strCode;
        jsNote["text"] = note.strText;
        jsNotes.append(jsNote);
    }
    return jsNotes;
}

Json::Value ItemJson(const PlannedItem& planned, const Place& place) {
    Json::Value jsItem(Json::objectValue);
    jsItem["where"] = planned.item.strWhere;
    jsItem["text"] = planned.item.strText;
    jsItem["result"] = ToText(planned.item.eKind);
    jsItem["reason"] = planned.item.strReason.empty() ? Json::Value() : Json::Value(planned.item.strReason);
    jsItem["notes"] = NotesJson(planned.item.vecNotes);
    jsItem["jobs"] = Json::Value(Json::arrayValue);
    for (const PlannedJob& job : planned.vecJobs) {
        Json::Value jsJob(Json::objectValue);
        jsJob["id"] = ToText(place.IdOf(job.Name()));
        jsJob["result"] = ToText(job.eState);
        jsJob["file"] = job.Path(place);
        jsJob["definition"] = job.jsDefinition;
        jsItem["jobs"].append(jsJob);
    }
    return jsItem;
}

/// Of what is told about everything: "all".
void PrintNotes(std::ostream& out, const std::string& strWhere, const std::vector<Note>& vecNotes) {
    for (const Note& note : vecNotes) {
        out << strWhere << ": note: " << note.strText << " [" << note.strCode << "]\n";
    }
}

void PrintLines(std::ostream& out, const PlannedItem& planned) {
    const ImportItem& item = planned.item;
    if (item.eKind != Kind::Job) {
        out << item.strWhere << ": " << ToText(item.eKind);
        for (const std::string& strText : {item.strReason, Original(item.strText)}) {
            out << (strText.empty() ? "" : ": ") << strText;
        }
        out << "\n";
    }
    for (const PlannedJob& job : planned.vecJobs) {
        out << item.strWhere << ": " << ToText(job.eState) << ": " << job.Name() << ": \""
            << job.jsDefinition["crontab"].asString() << "\": " << Original(item.strText) << "\n";
        if (job.eState == State::Conflict) {
            out << item.strWhere << ": error: " << ConflictText(job) << "\n";
        }
    }
    PrintNotes(out, item.strWhere, item.vecNotes);
}

void PrintTable(std::ostream& out, const std::vector<PlannedItem>& vecItems) {
    Table table({"FROM", "RESULT", {"JOB", 12}, {"SCHEDULE", 14}, {"ORIGINAL", 20}});
    for (const PlannedItem& planned : vecItems) {
        const ImportItem& item = planned.item;
        if (planned.vecJobs.empty()) {
            table.Add(
                {item.strShort, {StyleOf(ToText(item.eKind)), ToText(item.eKind)}, "-", "-", Original(item.strText)});
        }
        for (const PlannedJob& job : planned.vecJobs) {
            table.Add({item.strShort,
                       {StyleOf(ToText(job.eState)), ToText(job.eState)},
                       job.Name(),
                       job.jsDefinition["crontab"].asString(),
                       Original(item.strText)});
        }
    }
    table.Print(out);
    out << "\n";
    for (const PlannedItem& planned : vecItems) {
        if (!planned.item.strReason.empty()) {
            out << planned.item.strShort << ": " << ToText(planned.item.eKind) << ": " << planned.item.strReason
                << "\n";
        }
        for (const PlannedJob& job : planned.vecJobs) {
            if (job.eState == State::Conflict) {
                out << planned.item.strShort << ": " << ConflictText(job) << "\n";
            }
        }
        PrintNotes(out, planned.item.strShort, planned.item.vecNotes);
    }
}

std::string Counted(std::size_t uCount, const char* szWhat) {
    return std::to_string(uCount) + " " + szWhat + (uCount == 1 ? "" : "s");
}

std::string ResultText(const ImportReport& report) {
    const std::size_t uNew = report.CountToStore();
    std::string strText = report.bStored   ? Counted(uNew, "job") + " stored in " + report.place.Path()
                          : report.bGood   ? Counted(uNew, "job") + " to be stored in " + report.place.Path()
                          : report.bDryRun ? "nothing would be stored"
                                           : "nothing is stored";
    if (const std::size_t uThere = report.Count(State::Existing); uThere > 0) {
        strText += ", " + std::to_string(uThere) + " there already";
    }
    if (const std::size_t uConflicts = report.Count(State::Conflict); uConflicts > 0) {
        strText += ", " + std::to_string(uConflicts) + " in conflict with another job";
    }
    if (const std::size_t uRefused = report.CountRefused(); uRefused > 0) {
        strText +=
            ", " + std::to_string(uRefused) + " cannot be expressed" +
            (report.bGood ? ""
                          : ": --skip-inexpressible leaves " + std::string(uRefused == 1 ? "it" : "them") + " out");
    }
    return strText;
}

} // namespace

std::size_t ImportReport::Count(State eState) const {
    std::size_t uCount = 0;
    for (const PlannedItem& planned : vecItems) {
        uCount += static_cast<std::size_t>(std::count_if(planned.vecJobs.begin(), planned.vecJobs.end(),
                                                         [&](const PlannedJob& job) { return job.eState == eState; }));
    }
    return uCount;
}

std::size_t ImportReport::CountRefused() const {
    return static_cast<std::size_t>(std::count_if(vecItems.begin(), vecItems.end(), [](const PlannedItem& planned) {
        return planned.item.eKind == Kind::Refused;
    }));
}

Json::Value ReportJson(const ImportReport& report) {
    Json::Value jsReport(Json::objectValue);
    jsReport["source"] = report.strSource;
    jsReport["folder"] = report.place.Path();
    jsReport["stored"] = report.bStored;
    jsReport["notes"] = NotesJson(report.vecNotes);
    jsReport["items"] = Json::Value(Json::arrayValue);
    for (const PlannedItem& planned : report.vecItems) {
        jsReport["items"].append(ItemJson(planned, report.place));
    }
    return jsReport;
}

void PrintReport(std::ostream& out, const ImportReport& report) {
    if (IsTerminal()) {
        PrintTable(out, report.vecItems);
    } else {
        for (const PlannedItem& planned : report.vecItems) {
            PrintLines(out, planned);
        }
    }
    PrintNotes(out, "all", report.CountToStore() > 0 ? report.vecNotes : std::vector<Note>());
    out << "result: " << ResultText(report) << "\n";
}

} // namespace VUKO::VUKOCrond::Ctl
