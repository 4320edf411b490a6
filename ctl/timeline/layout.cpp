#include "ctl/timeline/layout.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "ctl/timeline/scale.h"

namespace VUKO::VUKOCrond::Ctl {

namespace {

constexpr std::time_t SECONDS_OF_A_MINUTE = 60;
/// Each divides the day, so that columns begin at the same times on each.
constexpr std::array<int, 17> CELL_MINUTES = {1, 2, 3, 5, 6, 10, 12, 15, 20, 30, 60, 120, 180, 240, 360, 720, 1440};

std::size_t ColumnsOf(const TimelineSpan& span, int iCellMin) {
    const std::time_t tCell = iCellMin * SECONDS_OF_A_MINUTE;
    return static_cast<std::size_t>((span.tTo - WallFloor(span.tFrom, iCellMin) + tCell - 1) / tCell);
}

int CellMinutesOf(const TimelineSpan& span, std::size_t uColumns) {
    const auto it = std::find_if(CELL_MINUTES.begin(), CELL_MINUTES.end(),
                                 [&](int iMinutes) { return ColumnsOf(span, iMinutes) <= uColumns; });
    return it != CELL_MINUTES.end() ? *it : CELL_MINUTES.back();
}

std::vector<LayoutCell> CellsOf(const TimelineLayout& layout, const TimelineJob& job) {
    std::vector<LayoutCell> vecCells(layout.Columns());
    std::size_t uFilled = 0; // runs come by their times: what one has filled, the next one need not
    for (const TimelineRun& run : job.vecRuns) {
        const std::size_t uBegin = layout.ColumnOf(run.tBegin);
        ++vecCells[uBegin].uStarts;
        const std::time_t tLast = std::min(job.EndOf(run), layout.tEnd) - 1;
        const std::size_t uEnd = tLast >= run.tBegin ? layout.ColumnOf(tLast) + 1 : uBegin;
        for (std::size_t u = std::max(uBegin, uFilled); u < uEnd; ++u) {
            vecCells[u].bRuns = true;
        }
        uFilled = std::max(uFilled, uEnd);
    }
    return vecCells;
}

struct Weight {
    std::size_t uJobs = 0; ///< of its heaviest collision
    std::size_t uTimes = 0;
};

std::vector<Weight> WeightsOf(const Timeline& timeline) {
    std::vector<Weight> vecWeights(timeline.vecJobs.size());
    for (const Collision& collision : timeline.vecCollisions) {
        for (const std::size_t uJob : collision.vecJobs) {
            vecWeights[uJob].uJobs = std::max(vecWeights[uJob].uJobs, collision.vecJobs.size());
            ++vecWeights[uJob].uTimes;
        }
    }
    return vecWeights;
}

/// Whether each job has a row of its own.
std::vector<bool> ChooseRows(const Timeline& timeline, std::size_t uRows) {
    const std::vector<Weight> vecWeights = WeightsOf(timeline);
    std::vector<std::size_t> vecOrder(timeline.vecJobs.size());
    std::iota(vecOrder.begin(), vecOrder.end(), std::size_t{0});
    std::stable_sort(vecOrder.begin(), vecOrder.end(), [&](std::size_t a, std::size_t b) {
        const Weight& left = vecWeights[a];
        const Weight& right = vecWeights[b];
        return left.uJobs != right.uJobs ? left.uJobs > right.uJobs : left.uTimes > right.uTimes;
    });
    std::vector<bool> vecChosen(vecOrder.size());
    for (std::size_t u = 0; u < std::min(uRows, vecOrder.size()); ++u) {
        vecChosen[vecOrder[u]] = true;
    }
    return vecChosen;
}

void Collide(LayoutCell& cell, std::time_t tMinute) {
    cell.tCollision = cell.bCollides ? std::min(cell.tCollision, tMinute) : tMinute;
    cell.bCollides = true;
}

void AddCells(std::vector<LayoutCell>& vecSum, const std::vector<LayoutCell>& vecCells) {
    for (std::size_t u = 0; u < vecSum.size(); ++u) {
        vecSum[u].uStarts += vecCells[u].uStarts;
        vecSum[u].bRuns = vecSum[u].bRuns || vecCells[u].bRuns;
        if (vecCells[u].bCollides) {
            Collide(vecSum[u], vecCells[u].tCollision);
        }
    }
}

} // namespace

std::size_t TimelineLayout::ColumnOf(std::time_t tInstant) const {
    const std::time_t tColumn = (tInstant - tOrigin) / (iCellMin * SECONDS_OF_A_MINUTE);
    return std::min(static_cast<std::size_t>(std::max<std::time_t>(tColumn, 0)), Columns() - 1);
}

std::time_t TimelineLayout::BeginOf(std::size_t uColumn) const {
    return tOrigin + static_cast<std::time_t>(uColumn) * iCellMin * SECONDS_OF_A_MINUTE;
}

TimelineLayout LayOut(const Timeline& timeline, std::size_t uColumns, std::size_t uRows) {
    TimelineLayout layout;
    layout.iCellMin = CellMinutesOf(timeline.span, uColumns);
    layout.tOrigin = WallFloor(timeline.span.tFrom, layout.iCellMin);
    layout.vecLoad.resize(ColumnsOf(timeline.span, layout.iCellMin));
    layout.tEnd = layout.BeginOf(layout.Columns());
    const std::vector<bool> vecChosen = ChooseRows(timeline, uRows);
    std::vector<std::vector<std::time_t>> vecCollisions(timeline.vecJobs.size());
    for (const Collision& collision : timeline.vecCollisions) {
        for (const std::size_t uJob : collision.vecJobs) {
            vecCollisions[uJob].push_back(collision.tMinute);
        }
    }
    for (std::size_t uJob = 0; uJob < timeline.vecJobs.size(); ++uJob) {
        std::vector<LayoutCell> vecCells = CellsOf(layout, timeline.vecJobs[uJob]);
        for (const std::time_t tMinute : vecCollisions[uJob]) {
            Collide(vecCells[layout.ColumnOf(tMinute)], tMinute);
        }
        for (std::size_t u = 0; u < vecCells.size(); ++u) {
            layout.vecLoad[u] += vecCells[u].uStarts != 0 || vecCells[u].bRuns ? 1 : 0;
        }
        if (vecChosen[uJob]) {
            layout.vecRows.push_back({uJob, std::move(vecCells)});
        } else {
            ++layout.uMoreJobs;
            layout.vecMore.resize(layout.Columns());
            AddCells(layout.vecMore, vecCells);
        }
    }
    return layout;
}

} // namespace VUKO::VUKOCrond::Ctl
