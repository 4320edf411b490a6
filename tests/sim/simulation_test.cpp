#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>

#include "tests/service/engine/engine_jobs.h"
#include "tests/sim/comparison.h"
#include "tests/support/scoped_tz.h"

using engine_test::Definition;
using engine_test::LocalMinute;
using engine_test::RecordOf;
using sim::CronJob;
using sim::Differences;
using sim::ModelEvent;
using sim::Stretch;

namespace {

constexpr int MINUTE = 60;
constexpr int HOUR = 3600;
constexpr int DAY = 86'400;

/// Makes up jobs, events and dates; the same for the same seed.
class Chance {
public:
    explicit Chance(std::uint64_t uSeed) : _random(uSeed) {}

    int Draw(int iFrom, int iTo) { return std::uniform_int_distribution<int>(iFrom, iTo)(_random); }
    bool OneIn(int iMany) { return Draw(1, iMany) == 1; }
    int Sign(int iValue) { return OneIn(2) ? iValue : -iValue; }

    CronJob Job(const std::string& strName, std::time_t tStartup);
    ModelEvent Event(std::time_t tFrom, std::time_t tTo);
    std::string Zone();

private:
    std::string Field(int iFirst, int iLast, bool bOften, int& iPreferred);
    int ClockStep();

    std::mt19937_64 _random;
};

/// A field's text, and the value that its random items are to take: the draw is the seed's, too.
std::string Chance::Field(int iFirst, int iLast, bool bOften, int& iPreferred) {
    iPreferred = Draw(iFirst, std::min(iLast, 28));
    const std::string strOne = std::to_string(Draw(iFirst, iLast));
    switch (bOften ? Draw(0, 3) : Draw(0, 7)) {
    case 0:
    case 1:
        return "*";
    case 2:
        return strOne + "," + std::to_string(Draw(iFirst, iLast)) + "," + std::to_string(Draw(iFirst, iLast));
    case 3:
        return OneIn(4) ? strOne + ",*" : "*";
    case 4:
        return "~";
    case 5:
        return std::to_string(Draw(iFirst, iPreferred)) + "~" + std::to_string(Draw(iPreferred, iLast)) + "," + strOne;
    default:
        return strOne;
    }
}

CronJob Chance::Job(const std::string& strName, std::time_t tStartup) {
    std::vector<int> vecPreferred(5);
    std::string strCrontab = Field(0, 59, false, vecPreferred[0]);
    strCrontab += " " + Field(0, 23, false, vecPreferred[1]);
    strCrontab += " " + Field(1, 31, true, vecPreferred[2]);
    strCrontab += " " + Field(1, 12, true, vecPreferred[3]);
    strCrontab += " " + Field(0, 6, true, vecPreferred[4]);
    Json::Value jsDefinition = Definition(strName, strCrontab);
    jsDefinition["enabled"] = !OneIn(10);
    jsDefinition["run_on_passive"] = OneIn(3);
    if (OneIn(3)) {
        jsDefinition["assure_execute"] = OneIn(8) ? -1 : Draw(1, 60);
        jsDefinition["assure_execute_action"] = OneIn(2) ? "run" : "wait";
    }
    CronJob record = RecordOf(jsDefinition, vecPreferred);
    record._jsJob["startup"] = static_cast<Json::Int64>(tStartup + Sign(Draw(0, 3 * DAY)));
    return record;
}

int Chance::ClockStep() {
    switch (Draw(0, 4)) {
    case 0:
        return Sign(Draw(1, 5 * MINUTE + 30));
    case 1:
        return Sign(HOUR);
    case 2:
        return Sign(3 * HOUR + Draw(-90, 90)); // where a step becomes a clock that was set
    case 3:
        return Sign(Draw(1, 5 * HOUR));
    default:
        return Sign(Draw(DAY, 3 * DAY));
    }
}

ModelEvent Chance::Event(std::time_t tFrom, std::time_t tTo) {
    ModelEvent event;
    event.tInstant = tFrom + Draw(0, static_cast<int>(tTo - tFrom));
    if (OneIn(2)) {
        event.tInstant -= event.tInstant % MINUTE;
    }
    const int iLonger = OneIn(5) ? 2 * DAY : OneIn(2) ? 5 * HOUR : 8 * MINUTE;
    switch (Draw(0, 5)) {
    case 0:
        return {event.tInstant, "down", Draw(1, iLonger)};
    case 1:
        return {event.tInstant, "hibernate", Draw(1, iLonger)};
    case 2:
        return {event.tInstant, "passive", 0};
    case 3:
        return {event.tInstant, "active", 0};
    default:
        return {event.tInstant, "clock", ClockStep()};
    }
}

std::string Chance::Zone() {
    static const char* const aZones[] = {"UTC",
                                         "Europe/Berlin",
                                         "America/New_York",
                                         "Australia/Lord_Howe", // half an hour
                                         "Antarctica/Troll",    // two hours
                                         "Africa/Casablanca",
                                         "America/Sao_Paulo", // at midnight
                                         "Asia/Kathmandu",
                                         "America/St_Johns", // at one minute past midnight, once
                                         "Pacific/Apia",
                                         "Asia/Tehran",
                                         "Europe/Dublin",
                                         "Pacific/Chatham",
                                         "America/Havana"};
    return aZones[Draw(0, static_cast<int>(std::size(aZones)) - 1)];
}

/// Begins a few days before one of the weeks in which zones change.
std::time_t SomeStart(Chance& chance) {
    constexpr int aMonths[] = {2, 3, 4, 9, 10, 10, 11, 12};
    const int iMonth = aMonths[chance.Draw(0, 7)];
    return LocalMinute(chance.Draw(2000, 2036), iMonth, chance.Draw(20, 29), chance.Draw(0, 23), chance.Draw(0, 59)) *
           MINUTE;
}

struct Scale {
    int iRounds;
    int iDays;
    int iJobs;
};

void CompareAtRandom(const Scale& scale, bool bLiteral, std::uint64_t uDefaultSeed) {
    const std::uint64_t uSeed = sim::SeedOfThisRun(uDefaultSeed);
    std::cout << "VUKO_SEED=" << uSeed << std::endl;
    std::size_t uOutcomes = 0;
    for (int iRound = 0; iRound < scale.iRounds; ++iRound) {
        Chance chance(uSeed + static_cast<std::uint64_t>(iRound));
        const std::string strZone = chance.Zone();
        const support::ScopedTz zone(strZone);
        Stretch stretch;
        stretch.bLiteral = bLiteral;
        stretch.tFrom = SomeStart(chance);
        stretch.tTo = stretch.tFrom + std::time_t{DAY} * scale.iDays;
        for (int i = 0; i < 2 * scale.iDays; ++i) {
            stretch.vecEvents.push_back(chance.Event(stretch.tFrom, stretch.tTo));
        }
        std::stable_sort(stretch.vecEvents.begin(), stretch.vecEvents.end(),
                         [](const ModelEvent& a, const ModelEvent& b) { return a.tInstant < b.tInstant; });
        std::vector<CronJob> vecRecords;
        std::string strJobs;
        for (int i = 0; i < scale.iJobs; ++i) {
            vecRecords.push_back(chance.Job("job" + std::to_string(i), stretch.tFrom));
            strJobs += "job" + std::to_string(i) + " " + vecRecords.back().ToCurrentCrontabString() + "\n";
        }
        const std::string strDifferences = Differences(stretch, vecRecords, uOutcomes);
        ASSERT_EQ(strDifferences, "") << "VUKO_SEED=" << uSeed + static_cast<std::uint64_t>(iRound) << " " << strZone
                                      << "\n"
                                      << strJobs;
    }
    std::cout << uOutcomes << " outcomes" << std::endl;
    EXPECT_GT(uOutcomes, 1000U); // of jobs that are never due, little would be shown
}

TEST(SimulationAgainstTheNaiveModel, AgreesWhateverHappensToTheMachine) {
    CompareAtRandom(sim::IsLong() ? Scale{40, 365, 12} : Scale{18, 4, 8}, false, 20'260'101);
}

TEST(SimulationAgainstTheNaiveModel, AgreesUnderTheLiteralPolicy) {
    CompareAtRandom(sim::IsLong() ? Scale{8, 365, 12} : Scale{10, 3, 8}, true, 77);
}

} // namespace
