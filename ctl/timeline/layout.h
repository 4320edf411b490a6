#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "ctl/timeline/timeline.h"

namespace VUKO::VUKOCrond::Ctl {

/// What of a job falls into one column.
struct LayoutCell {
    std::uint32_t uStarts = 0;
    bool bRuns = false; ///< a run of known length goes on
    bool bCollides = false;
    std::time_t tCollision = 0; ///< the first one
};

struct LayoutRow {
    std::size_t uJob = 0; ///< index in the timeline
    std::vector<LayoutCell> vecCells;
};

/// A timeline in columns of equal length and rows of jobs, whatever it is drawn with.
struct TimelineLayout {
    std::time_t tOrigin = 0; ///< where the first column begins: at or before the span, at a round time of the clock
    std::time_t tEnd = 0;    ///< where the last one ends
    int iCellMin = 1;        ///< minutes of a column
    std::vector<LayoutRow> vecRows;
    std::size_t uMoreJobs = 0;          ///< that no row of their own was left for,
    std::vector<LayoutCell> vecMore;    ///< and all of theirs together
    std::vector<std::uint32_t> vecLoad; ///< by column, how many jobs start or run in it, of all jobs

    std::size_t Columns() const { return vecLoad.size(); }
    std::size_t ColumnOf(std::time_t tInstant) const;
    std::time_t BeginOf(std::size_t uColumn) const;
};

/// @param uColumns  at most so many; the columns are as fine as that allows, and round: 1 minute, 5, 30, ...
/// @param uRows     at most so many. Where there are more jobs, those of the heaviest collisions have rows.
TimelineLayout LayOut(const Timeline& timeline, std::size_t uColumns, std::size_t uRows);

} // namespace VUKO::VUKOCrond::Ctl
