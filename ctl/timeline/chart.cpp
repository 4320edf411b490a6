#include "ctl/timeline/chart.h"

#include <algorithm>
#include <ostream>
#include <vector>

#include "ctl/table.h"
#include "ctl/terminal.h"
#include "ctl/text.h"
#include "ctl/timeline/collisions.h"
#include "ctl/timeline/layout.h"
#include "ctl/timeline/scale.h"
#include "ctl/timeline/wording.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::size_t ROWS_MAX = 100;
constexpr std::size_t COLLISIONS_MAX = 10;
constexpr std::size_t NAMES_MAX = 8;
constexpr std::size_t JOBS_LEAST = 10; ///< of the names in the list of collisions
constexpr std::size_t GAP = 2;         ///< between the names and the cells
constexpr std::size_t CELLS_MIN = 24;
constexpr std::size_t NAME_MIN = 8;

struct Glyphs {
    const char* szStart;
    const char* szRun;
    const char* szGuide;
    std::vector<const char*> vecLoad; ///< from nothing to the most; empty: numbers
};

const Glyphs UTF8 = {"●", "━", "·", {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"}};
const Glyphs ASCII = {"o", "=", ".", {}};
constexpr const char* COLLISION = "X";

/// Cells of one style are joined, so that a line does not consist of escape sequences.
class StyledLine {
public:
    void Add(Style eStyle, const std::string& strText) {
        if (eStyle != _eStyle) {
            Flush();
            _eStyle = eStyle;
        }
        _strPending += strText;
    }
    std::string Text() {
        Flush();
        return _strLine;
    }

private:
    void Flush() {
        _strLine += _eStyle == Style::Plain ? _strPending : Styled(_eStyle, _strPending);
        _strPending.clear();
    }

    Style _eStyle = Style::Plain;
    std::string _strPending;
    std::string _strLine;
};

/// Each character beyond ASCII is a "?".
std::string AsciiOnly(const std::string& strText) {
    std::string strAscii;
    for (const char c : strText) {
        const auto uByte = static_cast<unsigned char>(c);
        if (uByte < 0x80U) {
            strAscii += c;
        } else if ((uByte & 0xc0U) != 0x80U) { // the first byte of a character
            strAscii += '?';
        }
    }
    return strAscii;
}

std::string Digit(std::uint32_t uCount) {
    return uCount > 9 ? "+" : std::to_string(uCount);
}

/// The text without the blanks at its end.
std::string Trimmed(const std::string& strText) {
    return strText.substr(0, strText.find_last_not_of(' ') + 1);
}

/// Writes a text into a line of blanks, where it fits and leaves a blank to what is there.
bool Put(std::string& strLine, std::size_t uAt, const std::string& strText) {
    const std::size_t uBefore = uAt == 0 ? 0 : uAt - 1;
    if (uAt + strText.size() > strLine.size() || strLine.find_first_not_of(' ', uBefore) < uAt + strText.size() + 1) {
        return false;
    }
    strLine.replace(uAt, strText.size(), strText);
    return true;
}

class Chart {
public:
    Chart(std::ostream& out, const Timeline& timeline, const ChartLook& look)
        : _out(out), _timeline(timeline), _look(look), _glyphs(look.bUtf8 ? UTF8 : ASCII) {
        ChooseNameWidth();
        _layout = LayOut(timeline, look.uWidth - _uNameWidth - GAP, ROWS_MAX);
        ChooseScale();
    }

    void Print() {
        PrintTitle();
        if (!_timeline.vecJobs.empty()) {
            PrintScale();
            PrintRows();
            PrintLegend();
            PrintCollisions();
        }
        PrintLeftOut();
    }

private:
    void ChooseNameWidth();
    void ChooseScale();
    void PrintTitle();
    void PrintScale();
    void PrintDays();
    void PrintHours();
    void PrintChanges();
    void PrintRows();
    void PrintRow(const std::string& strName, const std::vector<LayoutCell>& vecCells, Style eStyle);
    void PrintLoad();
    void PrintLegend();
    void PrintCollisions();
    void PrintLeftOut();

    void PrintLine(const std::string& strName, const std::string& strRest);
    std::string Name(const std::string& strName) const;
    std::string MarkText(std::time_t tMark) const;

    std::ostream& _out;
    const Timeline& _timeline;
    const ChartLook& _look;
    const Glyphs& _glyphs;
    std::size_t _uNameWidth = 0;
    TimelineLayout _layout;
    int _iStepMin = 60;
    Scale _scale;
    std::vector<bool> _vecGuides; ///< by column: an hour is named above it
};

std::string Chart::Name(const std::string& strName) const {
    return CutMiddle(_look.bUtf8 ? strName : AsciiOnly(strName), _uNameWidth);
}

void Chart::ChooseNameWidth() {
    std::size_t uWidest = NAME_MIN;
    for (const TimelineJob& job : _timeline.vecJobs) {
        uWidest = std::max(uWidest, WidthOf(_look.bUtf8 ? job.strName : AsciiOnly(job.strName)));
    }
    const std::size_t uMost = std::max(NAME_MIN, _look.uWidth / 4);
    _uNameWidth = std::min(uWidest, std::min(uMost, _look.uWidth - CELLS_MIN - GAP));
}

/// Names as many times of day as there is room for.
void Chart::ChooseScale() {
    const int iForMinutes = ScaleStep(6.0 * _layout.iCellMin); // "03:30 "
    const int iForHours = ScaleStep(3.0 * _layout.iCellMin);   // "03 "
    _iStepMin = iForMinutes < 60 ? iForMinutes : std::max(iForHours, 60);
    _scale = MakeScale(_timeline.span.tFrom, _timeline.span.tTo, _iStepMin);
    _vecGuides.resize(_layout.Columns());
    for (const std::time_t tMark : _scale.vecMarks) {
        _vecGuides[_layout.ColumnOf(tMark)] = true;
    }
}

void Chart::PrintTitle() {
    const bool bWithOffset = !_scale.vecChanges.empty();
    _out << InstantText(_timeline.span.tFrom, bWithOffset) << " to " << InstantText(_timeline.span.tTo, bWithOffset)
         << ", " << _look.strZone << "\n";
    const TimelineSpan& span = _timeline.span;
    if (const std::string strNote = StandstillText(span.bPassive, span.bDraining); !strNote.empty()) {
        _out << Styled(Style::Warn, strNote) << "\n";
    }
}

void Chart::PrintScale() {
    _out << "\n";
    PrintDays();
    PrintHours();
    PrintChanges();
}

void Chart::PrintLine(const std::string& strName, const std::string& strRest) {
    _out << strName << std::string(_uNameWidth - WidthOf(strName) + GAP, ' ') << strRest << "\n";
}

void Chart::PrintDays() {
    std::string strLine(_layout.Columns(), ' ');
    for (std::size_t u = 0; u < _scale.vecDays.size(); ++u) {
        const std::size_t uAt = _layout.ColumnOf(_scale.vecDays[u]);
        const std::size_t uNext =
            u + 1 < _scale.vecDays.size() ? _layout.ColumnOf(_scale.vecDays[u + 1]) : _layout.Columns() + 1;
        for (const char* const szForm : {"%a %Y-%m-%d", "%a %d", "%d"}) {
            const std::string strDay = LocalFormat(_scale.vecDays[u], szForm);
            if (uAt + strDay.size() < uNext && Put(strLine, uAt, strDay)) {
                break;
            }
        }
    }
    PrintLine("", Styled(Style::Strong, Trimmed(strLine)));
}

std::string Chart::MarkText(std::time_t tMark) const {
    return LocalFormat(tMark, _iStepMin < 60 ? "%H:%M" : "%H");
}

void Chart::PrintHours() {
    std::string strLine(_layout.Columns(), ' ');
    for (const std::time_t tMark : _scale.vecMarks) {
        Put(strLine, _layout.ColumnOf(tMark), MarkText(tMark));
    }
    PrintLine("", Styled(Style::Strong, Trimmed(strLine)));
}

/// One line each: there are seldom any.
void Chart::PrintChanges() {
    for (const ClockChange& change : _scale.vecChanges) {
        const std::size_t uAt = _layout.ColumnOf(change.tInstant);
        const std::string strWhat = MinuteOfDayText(change.iBefore) + " becomes " + MinuteOfDayText(change.iAfter);
        std::string strLine(_layout.Columns(), ' ');
        strLine[uAt] = '^';
        if (!Put(strLine, uAt + 2, strWhat) && uAt > strWhat.size()) {
            Put(strLine, uAt - strWhat.size() - 1, strWhat);
        }
        PrintLine("", Styled(Style::Warn, Trimmed(strLine)));
    }
}

void Chart::PrintRow(const std::string& strName, const std::vector<LayoutCell>& vecCells, Style eStyle) {
    const auto isSeen = [this, &vecCells](std::size_t u) {
        return vecCells[u].bCollides || vecCells[u].uStarts != 0 || vecCells[u].bRuns || _vecGuides[u];
    };
    std::size_t uSeen = vecCells.size(); // no blanks at the end of a line
    while (uSeen > 0 && !isSeen(uSeen - 1)) {
        --uSeen;
    }
    StyledLine line;
    for (std::size_t u = 0; u < uSeen; ++u) {
        const LayoutCell& cell = vecCells[u];
        if (cell.bCollides) {
            line.Add(Style::Bad, COLLISION);
        } else if (cell.uStarts != 0) {
            line.Add(eStyle, cell.uStarts == 1 ? _glyphs.szStart : Digit(cell.uStarts));
        } else if (cell.bRuns) {
            line.Add(eStyle, _glyphs.szRun);
        } else {
            line.Add(Style::Faint, _vecGuides[u] ? _glyphs.szGuide : " ");
        }
    }
    PrintLine(Name(strName), line.Text());
}

void Chart::PrintRows() {
    for (const LayoutRow& row : _layout.vecRows) {
        const TimelineJob& job = _timeline.vecJobs[row.uJob];
        PrintRow(job.strName, row.vecCells, job.bFrequent ? Style::Faint : Style::Good);
    }
    if (_layout.uMoreJobs != 0) {
        PrintRow(std::to_string(_layout.uMoreJobs) + " more", _layout.vecMore, Style::Plain);
    }
    PrintLoad();
}

void Chart::PrintLoad() {
    const std::uint32_t uMost = *std::max_element(_layout.vecLoad.begin(), _layout.vecLoad.end());
    std::string strLine;
    for (const std::uint32_t uLoad : _layout.vecLoad) {
        if (_glyphs.vecLoad.empty()) {
            strLine += uLoad == 0 ? " " : Digit(uLoad);
        } else { // rounded up: something is never shown as nothing
            strLine += _glyphs.vecLoad[(uLoad * (_glyphs.vecLoad.size() - 1) + uMost - 1) / std::max(uMost, 1U)];
        }
    }
    PrintLine("load", Trimmed(strLine));
}

void Chart::PrintLegend() {
    const bool bRuns = std::any_of(_timeline.vecJobs.begin(), _timeline.vecJobs.end(),
                                   [](const TimelineJob& job) { return job.iLastDurationUsec.has_value(); });
    const auto itMost = std::max_element(_layout.vecLoad.begin(), _layout.vecLoad.end());
    const std::time_t tMost = _layout.BeginOf(static_cast<std::size_t>(itMost - _layout.vecLoad.begin()));
    _out << "\nA column is " << Counted(static_cast<std::size_t>(_layout.iCellMin), "minute") << ".  "
         << Styled(Style::Good, _glyphs.szStart) << " start  " << Styled(Style::Good, "2-9 +") << " several starts";
    if (bRuns) {
        _out << "  " << Styled(Style::Good, _glyphs.szRun) << " runs";
    }
    _out << "  " << Styled(Style::Bad, COLLISION) << " collision\n"
         << "load: jobs that start or run, " << *itMost << " at most ("
         << LocalFormat(std::max(tMost, _timeline.span.tFrom), "%a %H:%M") << ").";
    if (bRuns) {
        _out << "\nRuns are drawn as long as the last one.";
    }
    _out << "\n";
}

void Chart::PrintCollisions() {
    if (_timeline.vecCollisions.empty()) {
        _out << "\nNo collisions.\n";
        return;
    }
    const std::vector<CollisionGroup> vecGroups = GroupCollisions(_timeline.vecCollisions);
    _out << "\n" << Counted(_timeline.vecCollisions.size(), "collision") << ", most jobs at once first:\n";
    Table table({"FIRST",
                 {"TIMES", Column::KEPT, Align::Right},
                 {"AT ONCE", Column::KEPT, Align::Right},
                 {"JOBS", JOBS_LEAST}});
    for (std::size_t u = 0; u < std::min(vecGroups.size(), COLLISIONS_MAX); ++u) {
        const CollisionGroup& group = vecGroups[u];
        const std::string strNames = NamesOf(_timeline.vecJobs, group.vecJobs, NAMES_MAX);
        table.Add({InstantText(group.tFirst, !_scale.vecChanges.empty()), std::to_string(group.uTimes),
                   std::to_string(group.vecJobs.size()), _look.bUtf8 ? strNames : AsciiOnly(strNames)});
    }
    table.Print(_out);
    if (vecGroups.size() > COLLISIONS_MAX) {
        _out << "and " << MoreCollisions(vecGroups, COLLISIONS_MAX) << "\n";
    }
}

void Chart::PrintLeftOut() {
    const auto say = [this](const char* szWhat, const std::vector<std::string>& vecNames) {
        if (!vecNames.empty()) {
            std::string strLine;
            std::size_t uNames = NAMES_MAX;
            do { // as many names as one line holds, and one in any case
                const std::string strNames = Enumerated(vecNames, uNames);
                strLine = szWhat + (_look.bUtf8 ? strNames : AsciiOnly(strNames));
            } while (WidthOf(strLine) > _look.uWidth && --uNames > 0);
            _out << "\n" << strLine << "\n";
        }
    };
    say("Frequent, and in no collision: ", FrequentJobs(_timeline));
    say("No start in this time: ", _timeline.vecIdle);
}

} // namespace

void PrintChart(std::ostream& out, const Timeline& timeline, const ChartLook& look) {
    Chart(out, timeline, look).Print();
}

} // namespace VUKO::VUKOCrond::Ctl
