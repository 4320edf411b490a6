#include <gtest/gtest.h>

#include <iostream>
#include <set>
#include <tuple>

#include "tests/service/engine/engine_jobs.h"
#include "tests/sim/comparison.h"
#include "tests/sim/zones/zonefiles.h"
#include "tests/support/scoped_tz.h"

using engine_test::Definition;
using engine_test::RecordOf;
using sim::CronJob;
using sim::Transition;

namespace {

constexpr std::time_t FIVE_HOURS = 5 * 3600;

std::tm WallClock(std::time_t tInstant, long iOffset) {
    const std::time_t tWall = tInstant + iOffset;
    std::tm tmWall = {};
    gmtime_r(&tWall, &tmWall);
    return tmWall;
}

std::string TimeOfDay(const std::tm& tmWall) {
    return std::to_string(tmWall.tm_min) + " " + std::to_string(tmWall.tm_hour);
}

/// Schedules as people write them, and some at the very minutes at which the wall clock jumps.
std::vector<std::string> Sample(const Transition& transition) {
    const std::tm tmOld = WallClock(transition.tInstant, transition.iBefore);
    const std::tm tmNew = WallClock(transition.tInstant, transition.iAfter);
    const std::tm tmMiddle = WallClock(transition.tInstant, (transition.iBefore + transition.iAfter) / 2);
    const std::string strDay = std::to_string(tmOld.tm_mday) + " * " + std::to_string(tmOld.tm_wday);
    return {"30 2 * * *",
            "* * * * *",
            "15 * * * *",
            "0 0 * * *",
            "0,30 1,2,3 * * *",
            "* 2 * * *",
            "0,30 0,1,2,3,23 " + strDay,
            "59 23 " + std::to_string(tmNew.tm_mday) + " * *",
            TimeOfDay(tmOld) + " * * *",
            TimeOfDay(tmNew) + " * * *",
            TimeOfDay(tmMiddle) + " " + strDay};
}

std::vector<CronJob> RecordsOf(const std::vector<std::string>& vecCrontabs) {
    std::vector<CronJob> vecRecords;
    for (const std::string& strCrontab : vecCrontabs) {
        vecRecords.push_back(RecordOf(Definition("\"" + strCrontab + "\"", strCrontab)));
    }
    return vecRecords;
}

/// Alike for the policy: the same jump at the same time of day, with the day's end as near.
using Class = std::tuple<long, long, std::time_t>;

Class ClassOf(const Transition& transition) {
    constexpr std::time_t DAY = 86'400;
    return {transition.iAfter - transition.iBefore, transition.iBefore % 3600,
            (transition.tInstant + transition.iBefore) % DAY};
}

void CompareThroughTransitions(std::time_t iStep, bool bEveryOne) {
    std::set<Class> setSeen;
    std::size_t uZones = 0;
    std::size_t uTransitions = 0;
    std::size_t uCompared = 0;
    std::size_t uOutcomes = 0;
    for (const std::string& strZone : sim::InstalledZones()) {
        const support::ScopedTz zone(strZone);
        ++uZones;
        for (const Transition& transition : sim::Transitions(iStep)) {
            ++uTransitions;
            if (!setSeen.insert(ClassOf(transition)).second && !bEveryOne) {
                continue;
            }
            ++uCompared;
            sim::Stretch stretch{transition.tInstant - FIVE_HOURS, transition.tInstant + FIVE_HOURS, {}, false};
            const std::vector<CronJob> vecRecords = RecordsOf(Sample(transition));
            for (const bool bLiteral : {false, true}) {
                stretch.bLiteral = bLiteral;
                ASSERT_EQ(sim::Differences(stretch, vecRecords, uOutcomes), "")
                    << strZone << " at " << transition.tInstant << (bLiteral ? ", literal" : "");
            }
        }
    }
    std::cout << uZones << " distinct zones, " << uTransitions << " transitions of " << setSeen.size() << " classes, "
              << uCompared << " compared, " << uOutcomes << " outcomes" << std::endl;
    EXPECT_GT(uZones, 200U);
    EXPECT_GT(uTransitions, 5'000U);
    EXPECT_GT(setSeen.size(), 20U);
    EXPECT_GT(uOutcomes, 500U * uCompared);
}

TEST(ZoneTransitions, AreWorkedThroughAsTheNaiveModelDoes) {
    constexpr std::time_t WEEK = 7 * 86'400;
    constexpr std::time_t SIX_HOURS = 6 * 3600;
    CompareThroughTransitions(sim::IsLong() ? SIX_HOURS : WEEK, sim::IsLong());
}

/// What the finding itself finds, for zones whose changes everybody knows.
TEST(ZoneTransitions, AreFoundToTheSecond) {
    const support::ScopedTz zone("Europe/Berlin");
    const std::vector<Transition> vecTransitions = sim::Transitions(86'400);
    ASSERT_EQ(vecTransitions.size(), 76U);
    EXPECT_EQ(vecTransitions.front().tInstant, 954'032'400); // 2000-03-26 01:00 UTC
    EXPECT_EQ(vecTransitions.front().iBefore, 3600);
    EXPECT_EQ(vecTransitions.front().iAfter, 7200);
    EXPECT_EQ(vecTransitions.back().tInstant, 2'140'045'200); // 2037-10-25 01:00 UTC
}

} // namespace
