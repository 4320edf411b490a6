#include "ctl/timeline/svg.h"

#include <algorithm>
#include <cstring>

#include "ctl/text.h"
#include "ctl/timeline/collisions.h"
#include "ctl/timeline/layout.h"
#include "ctl/timeline/scale.h"
#include "ctl/timeline/svgsheet.h"
#include "ctl/timeline/svgstyle.h"
#include "ctl/timeline/wording.h"
#include "ctl/words.h"
#include "ctl/zone.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::size_t COLUMNS_MAX = 288; ///< of a day: five minutes
constexpr std::size_t ROWS_MAX = 200;
constexpr std::size_t MANY_ROWS = 60; ///< more than these are drawn lower
constexpr std::size_t COLLISIONS_MAX = 12;
constexpr std::size_t NAMES_MAX = 8;

constexpr double MARGIN = 24;
constexpr double NAMES = 196;
constexpr double LEFT = MARGIN + NAMES;
constexpr double WIDTH = 960; ///< of the hours
constexpr double RIGHT = LEFT + WIDTH;
constexpr double TOP = 116; ///< of the first row
constexpr double LOAD_HEIGHT = 56;
constexpr double LINE = 20;
constexpr double LABEL = 40; ///< what a time of day above the hours takes
constexpr double TEXT = 12;  ///< height of letters, as the style has it
constexpr double SMALL_TEXT = 11;

/// The width of a character of the style's widest font, in parts of its height; rather more than less.
double EmsOf(const std::string& strCharacter) {
    const char c = strCharacter.front();
    if (strCharacter.size() > 1) {
        constexpr double LETTER = 0.85;
        constexpr double WIDE_LETTER = 1.05;
        const std::size_t uColumns = WidthOf(strCharacter);
        return uColumns == 0 ? 0 : uColumns == 1 ? LETTER : WIDE_LETTER;
    }
    return std::strchr("MWmw%@", c) != nullptr        ? 1.0
           : std::strchr("ijl|!.,:;'", c) != nullptr  ? 0.4
           : std::strchr(" -()[]/frtI", c) != nullptr ? 0.47
           : c >= 'A' && c <= 'Z'                     ? 0.79
                                                      : 0.64;
}

/// A text that takes no more pixels, its end replaced by an ellipsis where it would.
std::string FitTo(const std::string& strText, double dWidth, double dHeight = TEXT) {
    const double dMost = dWidth / dHeight;
    double dTaken = 0;
    std::size_t uFits = 0; // the bytes that leave room for the ellipsis
    for (std::size_t u = 0; u < strText.size();) {
        std::size_t uNext = u + 1;
        while (uNext < strText.size() && (static_cast<unsigned char>(strText[uNext]) & 0xc0U) == 0x80U) {
            ++uNext;
        }
        dTaken += EmsOf(strText.substr(u, uNext - u));
        if (dTaken > dMost) {
            return strText.substr(0, uFits) + "…";
        }
        u = uNext;
        uFits = dTaken + 1 <= dMost ? u : uFits;
    }
    return strText;
}

class Picture {
public:
    Picture(const Timeline& timeline, const std::string& strZone)
        : _timeline(timeline), _strZone(strZone), _layout(LayOut(timeline, COLUMNS_MAX, ROWS_MAX)) {
        const double dMinutes = static_cast<double>(timeline.span.tTo - timeline.span.tFrom) / 60;
        _scale = MakeScale(timeline.span.tFrom, timeline.span.tTo, ScaleStep(LABEL * dMinutes / WIDTH));
        _dRow = _layout.vecRows.size() > MANY_ROWS ? 16 : 22;
        _dBottom = TOP + _dRow * static_cast<double>(_layout.vecRows.size() + (_layout.uMoreJobs != 0 ? 1 : 0));
    }

    std::string Draw() {
        DrawHeading();
        DrawGrid();
        DrawTies();
        for (std::size_t u = 0; u < _layout.vecRows.size(); ++u) {
            DrawJob(u);
        }
        DrawMore();
        DrawLoad();
        DrawLegend();
        DrawCollisions();
        DrawLeftOut();
        return _sheet.Document(RIGHT + MARGIN, _dNext + MARGIN - LINE, "Timeline of jobs",
                               SummaryOf(_timeline, _strZone), TIMELINE_STYLE);
    }

private:
    void DrawHeading();
    void DrawGrid();
    void DrawScale();
    void DrawHours(double dY);
    void DrawTies();
    void DrawJob(std::size_t uRow);
    void DrawRuns(const TimelineJob& job, double dY);
    void DrawFrequent(const LayoutRow& row, double dY);
    void DrawCollisionMarks(const std::vector<LayoutCell>& vecCells, double dY);
    void DrawMore();
    void DrawLoad();
    void DrawLegend();
    void DrawCollisions();
    void DrawCollisionGroup(const CollisionGroup& group);
    void DrawLeftOut();

    std::string Moment(std::time_t tInstant) const { return InstantText(tInstant, !_scale.vecChanges.empty()); }
    double X(std::time_t tInstant) const;
    double Middle(std::size_t uRow) const { return TOP + _dRow * (static_cast<double>(uRow) + 0.5); }
    double ColumnX(std::size_t uColumn) const { return X(_layout.BeginOf(uColumn)); }
    void Say(const char* szClass, const std::string& strText, double dX = MARGIN);

    const Timeline& _timeline;
    const std::string& _strZone;
    TimelineLayout _layout;
    Scale _scale;
    double _dRow = 0;
    double _dBottom = 0; ///< of the rows
    double _dNext = 0;   ///< where the next line of text goes
    SvgSheet _sheet;
};

double Picture::X(std::time_t tInstant) const {
    const TimelineSpan& span = _timeline.span;
    const std::time_t tInside = std::clamp(tInstant, span.tFrom, span.tTo);
    return LEFT + WIDTH * static_cast<double>(tInside - span.tFrom) / static_cast<double>(span.tTo - span.tFrom);
}

void Picture::Say(const char* szClass, const std::string& strText, double dX) {
    _sheet.Text(szClass, dX, _dNext, FitTo(strText, RIGHT - dX));
    _dNext += LINE;
}

void Picture::DrawHeading() {
    _dNext = MARGIN + 12;
    Say("heading", "Timeline of jobs");
    Say("soft", SummaryOf(_timeline, _strZone));
}

void Picture::DrawGrid() {
    for (std::size_t u = 0; u < _layout.vecRows.size(); u += 2) {
        _sheet.Rect("stripe", MARGIN, TOP + _dRow * static_cast<double>(u), NAMES + WIDTH, _dRow);
    }
    DrawScale();
    for (const ClockChange& change : _scale.vecChanges) {
        const double dX = X(change.tInstant);
        _sheet.Line("change", dX, TOP - 4, dX, _dBottom + LOAD_HEIGHT);
        _sheet.Text("changed", std::min(dX + 4, RIGHT - 130), TOP - 36,
                    MinuteOfDayText(change.iBefore) + " becomes " + MinuteOfDayText(change.iAfter));
    }
}

void Picture::DrawHours(double dY) {
    double dFree = 0; // what is named already ends here: two marks may lie close where the clock was set
    for (const std::time_t tMark : _scale.vecMarks) {
        if (X(tMark) - LABEL / 2 + 2 >= dFree) {
            _sheet.Text("hour", X(tMark), dY, LocalFormat(tMark, "%H:%M"));
            dFree = X(tMark) + LABEL / 2 - 2;
        }
    }
}

void Picture::DrawScale() {
    for (const std::time_t tMark : _scale.vecMarks) {
        _sheet.Line("grid", X(tMark), TOP - 4, X(tMark), _dBottom + LOAD_HEIGHT);
    }
    DrawHours(TOP - 8);
    DrawHours(_dBottom + LOAD_HEIGHT + 14);
    for (std::size_t u = 0; u < _scale.vecDays.size(); ++u) {
        const double dX = X(_scale.vecDays[u]);
        const double dRoom = (u + 1 < _scale.vecDays.size() ? X(_scale.vecDays[u + 1]) : RIGHT) - dX;
        _sheet.Line("midnight", dX, TOP - 4, dX, _dBottom + LOAD_HEIGHT);
        if (dRoom >= 50) {
            _sheet.Text("day", dX, TOP - 24, LocalFormat(_scale.vecDays[u], dRoom >= 110 ? "%a %Y-%m-%d" : "%a %d"));
        }
    }
}

/// Lines that lead the eye from one row of a collision to the others: from the first to the last of them.
void Picture::DrawTies() {
    std::vector<std::size_t> vecRowOf(_timeline.vecJobs.size(), _layout.vecRows.size());
    for (std::size_t u = 0; u < _layout.vecRows.size(); ++u) {
        vecRowOf[_layout.vecRows[u].uJob] = u;
    }
    std::size_t uLastColumn = _layout.Columns();
    for (const Collision& collision : _timeline.vecCollisions) {
        const std::size_t uColumn = _layout.ColumnOf(collision.tMinute);
        if (uColumn == uLastColumn && _timeline.vecCollisions.size() > _layout.Columns()) {
            continue; // one of them will do
        }
        uLastColumn = uColumn;
        std::size_t uFirst = _layout.vecRows.size();
        std::size_t uLast = 0;
        for (const std::size_t uJob : collision.vecJobs) {
            uFirst = std::min(uFirst, vecRowOf[uJob]);
            uLast = std::max(uLast, vecRowOf[uJob]);
        }
        if (uFirst < uLast) {
            _sheet.Line("tie", X(collision.tMinute), Middle(uFirst), X(collision.tMinute), Middle(uLast));
        }
    }
}

void Picture::DrawJob(std::size_t uRow) {
    const LayoutRow& row = _layout.vecRows[uRow];
    const TimelineJob& job = _timeline.vecJobs[row.uJob];
    const double dY = Middle(uRow);
    std::string strTip = job.strName + ": " + Counted(job.vecRuns.size(), "start");
    if (job.iLastDurationUsec) {
        strTip += ", its last run took " + RunTimeText(*job.iLastDurationUsec);
    }
    _sheet.BeginGroup("job", strTip);
    _sheet.Text("name", MARGIN + 4, dY + 4, FitTo(job.strName, NAMES - 8, SMALL_TEXT));
    if (job.bFrequent) {
        DrawFrequent(row, dY);
    } else {
        DrawRuns(job, dY);
    }
    DrawCollisionMarks(row.vecCells, dY);
    _sheet.EndGroup();
}

/// A mark for each start, or one for all of a column: square where there are several. Bars lie below the marks.
void Picture::DrawRuns(const TimelineJob& job, double dY) {
    std::time_t tCovered = _timeline.span.tFrom;
    for (const TimelineRun& run : job.vecRuns) {
        const std::time_t tEnd = std::min(job.EndOf(run), _timeline.span.tTo);
        const std::time_t tBegin = std::max(run.tBegin, tCovered);
        if (X(tEnd) - X(tBegin) >= 1) {
            _sheet.Rect("run", X(tBegin), dY - 3.5, X(tEnd) - X(tBegin), 7);
        }
        tCovered = std::max(tCovered, tEnd);
    }
    for (auto it = job.vecRuns.begin(); it != job.vecRuns.end();) {
        const std::size_t uColumn = _layout.ColumnOf(it->tBegin);
        const auto itNext = std::find_if(
            it, job.vecRuns.end(), [&](const TimelineRun& run) { return _layout.ColumnOf(run.tBegin) != uColumn; });
        const auto uStarts = static_cast<std::size_t>(itNext - it);
        const std::string strTip = job.strName + ": " + (uStarts == 1 ? "" : Counted(uStarts, "start") + " from ") +
                                   Moment(it->tBegin) + (uStarts == 1 ? std::string(", ") + ToText(it->eReason) : "");
        if (uStarts == 1) {
            _sheet.Circle("start", X(it->tBegin), dY, 3.5, strTip);
        } else {
            _sheet.Rect("start", X(it->tBegin) - 3.5, dY - 3.5, 7, 7, strTip);
        }
        it = itNext;
    }
}

/// A band as long as starts follow each other.
void Picture::DrawFrequent(const LayoutRow& row, double dY) {
    for (std::size_t u = 0; u < row.vecCells.size();) {
        const std::size_t uBegin = u;
        std::size_t uStarts = 0;
        for (; u < row.vecCells.size() && row.vecCells[u].uStarts != 0; ++u) {
            uStarts += row.vecCells[u].uStarts;
        }
        if (u == uBegin) {
            ++u;
            continue;
        }
        _sheet.Rect("often", ColumnX(uBegin), dY - 3, std::max(ColumnX(u) - ColumnX(uBegin), 2.0), 6,
                    _timeline.vecJobs[row.uJob].strName + ": " + Counted(uStarts, "start") + ", " +
                        Moment(_layout.BeginOf(uBegin)) + " to " + Moment(_layout.BeginOf(u)));
    }
}

void Picture::DrawCollisionMarks(const std::vector<LayoutCell>& vecCells, double dY) {
    for (std::size_t u = 0; u < vecCells.size(); ++u) {
        if (vecCells[u].bCollides) {
            _sheet.Diamond("collision", X(vecCells[u].tCollision), dY, 6,
                           "Collision, " + Moment(vecCells[u].tCollision));
        }
    }
}

/// The jobs without rows of their own: the higher, the more starts.
void Picture::DrawMore() {
    if (_layout.uMoreJobs == 0) {
        return;
    }
    const double dY = Middle(_layout.vecRows.size());
    std::uint32_t uMost = 1;
    for (const LayoutCell& cell : _layout.vecMore) {
        uMost = std::max(uMost, cell.uStarts);
    }
    const std::string strName = std::to_string(_layout.uMoreJobs) + " more jobs";
    _sheet.BeginGroup("job", strName);
    _sheet.Text("name", MARGIN + 4, dY + 4, strName);
    for (std::size_t u = 0; u < _layout.vecMore.size(); ++u) {
        const double dHeight = std::min(_dRow, 1 + _dRow * _layout.vecMore[u].uStarts / uMost);
        if (_layout.vecMore[u].uStarts != 0) {
            _sheet.Rect("often", ColumnX(u), dY + _dRow / 2 - dHeight, ColumnX(u + 1) - ColumnX(u), dHeight);
        }
    }
    DrawCollisionMarks(_layout.vecMore, dY);
    _sheet.EndGroup();
}

void Picture::DrawLoad() {
    const std::uint32_t uMost = *std::max_element(_layout.vecLoad.begin(), _layout.vecLoad.end());
    const double dBase = _dBottom + LOAD_HEIGHT;
    const double dHighest = LOAD_HEIGHT - 12;
    _sheet.Text("name", MARGIN + 4, dBase - 4, "load");
    if (uMost != 0) {
        _sheet.Text("mostlabel", LEFT - 6, dBase - dHighest + 4, Counted(uMost, "job"));
    }
    for (std::size_t u = 0; u < _layout.vecLoad.size(); ++u) {
        const double dHeight = dHighest * _layout.vecLoad[u] / std::max(uMost, 1U);
        if (_layout.vecLoad[u] != 0) {
            _sheet.Rect("load", ColumnX(u), dBase - dHeight, ColumnX(u + 1) - ColumnX(u), dHeight,
                        Moment(_layout.BeginOf(u)) + ": " + Counted(_layout.vecLoad[u], "job"));
        }
    }
    _sheet.Line("axis", LEFT, dBase, RIGHT, dBase);
    _dNext = dBase + 46;
}

void Picture::DrawLegend() {
    const double dY = _dNext - 4;
    double dX = MARGIN + 8;
    const auto word = [&](const std::string& strText, double dRoom) {
        _sheet.Text("soft", dX + 14, _dNext, strText);
        dX += dRoom;
    };
    _sheet.Circle("start", dX, dY, 3.5);
    word("start", 70);
    _sheet.Rect("start", dX - 3.5, dY - 3.5, 7, 7);
    word("several starts", 126);
    _sheet.Rect("run", dX - 8, dY - 3.5, 16, 7);
    word("runs, as long as last time", 200);
    _sheet.Rect("often", dX - 8, dY - 3, 16, 6);
    word("starts more than " + std::to_string(TimelineJob::STARTS_OF_AN_HOUR) + " times in an hour", 252);
    _sheet.Diamond("collision", dX, dY, 6);
    word("collision", 90);
    _sheet.Rect("load", dX - 4, dY - 5, 8, 10);
    word("load: jobs that start or run", 0);
    _dNext += 2 * LINE;
}

void Picture::DrawCollisionGroup(const CollisionGroup& group) {
    _sheet.Text("", MARGIN + 20, _dNext, Moment(group.tFirst));
    _sheet.Text("", LEFT + 40, _dNext, group.uTimes == 1 ? "once" : std::to_string(group.uTimes) + " times");
    Say("", std::to_string(group.vecJobs.size()) + ": " + NamesOf(_timeline.vecJobs, group.vecJobs, NAMES_MAX),
        LEFT + 120);
}

void Picture::DrawCollisions() {
    const std::vector<CollisionGroup> vecGroups = GroupCollisions(_timeline.vecCollisions);
    if (vecGroups.empty()) {
        Say("head", "No collisions");
        return;
    }
    Say("head", "Collisions, most jobs at once first");
    for (std::size_t u = 0; u < std::min(vecGroups.size(), COLLISIONS_MAX); ++u) {
        _sheet.Diamond("collision", MARGIN + 8, _dNext - 4, 5);
        DrawCollisionGroup(vecGroups[u]);
    }
    if (vecGroups.size() > COLLISIONS_MAX) {
        Say("soft", "and " + MoreCollisions(vecGroups, COLLISIONS_MAX), MARGIN + 20);
    }
}

void Picture::DrawLeftOut() {
    const auto say = [this](const char* szWhat, const std::vector<std::string>& vecNames) {
        if (!vecNames.empty()) {
            _dNext += LINE / 2;
            Say("soft", szWhat + Enumerated(vecNames, NAMES_MAX));
        }
    };
    say("Frequent, and in no collision: ", FrequentJobs(_timeline));
    say("No start in this time: ", _timeline.vecIdle);
}

} // namespace

std::string TimelineSvg(const Timeline& timeline, const std::string& strZone) {
    return Picture(timeline, strZone).Draw();
}

} // namespace VUKO::VUKOCrond::Ctl
