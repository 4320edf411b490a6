#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <random>

#include "platform/vukorandom.h"
#include "tests/sim/core_life.h"
#include "tests/sim/lifemodel.h"
#include "tests/support/scoped_tz.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;
using sim::Crash;
using sim::Step;

namespace {

std::mt19937_64 g_random;

int Draw(int iFrom, int iTo) {
    return std::uniform_int_distribution<int>(iFrom, iTo)(g_random);
}

bool OneIn(int iMany) {
    return Draw(1, iMany) == 1;
}

} // namespace

/// The values that the service draws are the seed's, too.
int VUKO::RANDOM::VUKORandomBase::random(int low, int high) {
    return high <= low ? low : Draw(low, high - 1);
}

namespace {

constexpr int MINUTE = 60;
constexpr int HOUR = 3600;
constexpr int JOBS = 8;

const char* const ZONES[] = {
    "UTC", "Europe/Berlin", "Australia/Lord_Howe", "America/St_Johns", "Asia/Kathmandu", "America/Sao_Paulo"};

/// A world in which everything happens to a service that can: the invariants are looked at after each step.
class World {
public:
    World(std::uint64_t uSeed, bool bLiteral);
    void Run(int iMinutes);
    std::size_t Outcomes() const { return _uOutcomes; }
    std::size_t Crashes() const { return _uCrashes; }

private:
    static std::string Field(int iFirst, int iLast, bool bOften);
    static Json::Value SomeDefinition(const std::string& strName);
    void Edit();
    void Reload();
    void Happen();
    void StepClock();
    void PowerLoss();
    void Die(bool bAtRest);
    void Start();
    void Minute();
    void Tick();
    void MoveProcesses();
    void Hear();
    using Entries = std::vector<std::pair<std::int64_t, std::string>>;
    Entries NewestEntries(const std::string& strName, std::size_t uMany);
    void Compare(const std::vector<sim::ModelOutcome>& vecExpected);
    void CompareJob(const std::string& strName, const std::vector<sim::ModelOutcome>& vecExpected);
    void CheckProcesses();
    void CheckEveryStartBegan();
    void CheckValues();
    void TakeJobs();
    bool IsLive(const std::string& strName);
    std::map<std::string, std::string> Kept();
    std::string Where() const;

    std::uint64_t _uSeed;
    std::optional<support::ScopedTz> _zone;
    sim::CoreLife _life;
    sim::LifeModel _model;
    std::map<std::string, std::string> _mapDefinitions;                    ///< last valid ones
    std::map<std::string, std::pair<std::string, std::string>> _mapValues; ///< by job: its fields, and their values
    std::set<RunId> _setBegun;
    std::set<std::string> _setPending; ///< jobs that had a start to be tried again at the last tick
    std::map<std::string, std::string> _mapKept;
    bool _bBegun = false;
    bool _bPassive = false;
    bool _bDiskWasFull = false;
    int _iDownFor = 0;
    std::time_t _tLatest = 0;
    bool _bBeenHere = false;  ///< this instant was there before the clock went back
    std::int64_t _iAhead = 0; ///< of the clock
    std::size_t _uOutcomes = 0;
    std::size_t _uCrashes = 0;
};

World::World(std::uint64_t uSeed, bool bLiteral)
    : _uSeed(uSeed), _zone(ZONES[uSeed % std::size(ZONES)]),
      _life(1'774'000'800 + static_cast<std::time_t>(uSeed % 5) * 86'400 + 30), _model(bLiteral) {
    _life.ePolicy = bLiteral ? ClockPolicy::Literal : ClockPolicy::CatchUp;
    _life.Machine().onBegun = [this](const sim::Launch& launch) {
        EXPECT_TRUE(_setBegun.insert(launch.uRun).second) << Where() << " begun twice: " << launch.strJob;
    };
    for (int i = 0; i < JOBS; ++i) {
        _life.Put(SomeDefinition("job" + std::to_string(i)));
    }
    _life.Put(sim::DefinitionOf("job0", "* * * * *")); // there is always something to do at first
    Start();
    _life.Core().Template().SetMaxDelay(Draw(0, 200));
}

std::string World::Where() const {
    return "VUKO_SEED=" + std::to_string(_uSeed) + " at " + std::to_string(_life.Now());
}

std::string World::Field(int iFirst, int iLast, bool bOften) {
    const int iOne = Draw(iFirst, iLast);
    switch (Draw(0, bOften ? 3 : 6)) {
    case 0:
    case 1:
        return "*";
    case 2:
        return std::to_string(iOne) + "," + std::to_string(Draw(iFirst, iLast));
    case 3:
        return std::to_string(iFirst) + "~" + std::to_string(iLast);
    case 4:
        return std::to_string(Draw(iFirst, iOne)) + "~" + std::to_string(iOne);
    default:
        return std::to_string(iOne);
    }
}

Json::Value World::SomeDefinition(const std::string& strName) {
    Json::Value jsDefinition = sim::DefinitionOf(strName, Field(0, 59, false) + " " + Field(0, 23, false) + " * * " +
                                                              (OneIn(4) ? Field(0, 6, true) : "*"));
    jsDefinition["enabled"] = !OneIn(10);
    jsDefinition["run_on_passive"] = OneIn(3);
    jsDefinition["overlap"] = OneIn(4) ? "allow" : "skip";
    if (OneIn(3)) {
        jsDefinition["assure_execute"] = Draw(1, 30);
        jsDefinition["assure_execute_action"] = OneIn(2) ? "run" : "wait";
    }
    if (OneIn(4)) {
        jsDefinition["timeout"] = Draw(1, 300);
    }
    return jsDefinition;
}

/// Files come, go, change, break, and are as before.
void World::Edit() {
    const std::string strName = "job" + std::to_string(Draw(0, JOBS - 1));
    const std::string strFile = "/" + strName + ".conf";
    switch (Draw(0, 5)) {
    case 0:
        _life.mapFiles.erase(strFile);
        break;
    case 1:
        _life.mapFiles[strFile] = {{}, true};
        break;
    case 2:
        _life.Put(SomeDefinition(strName));
        break;
    default:
        if (const auto it = _life.mapFiles.find(strFile); it != _life.mapFiles.end() && !it->second.bRefused) {
            it->second.vecDefinitions.front()["timeout"] = Draw(0, 300);
        } else {
            _life.Put(SomeDefinition(strName));
        }
    }
}

/// The model takes over which values were drawn, and what the jobs' stamps are; that they are kept is checked apart.
void World::TakeJobs() {
    std::vector<Service::Job> vecJobs = _life.Core().Jobs().Jobs();
    for (Service::Job& job : vecJobs) {
        std::string& strDefinition = _mapDefinitions[job.id.strName];
        strDefinition = job.bInvalid ? strDefinition : job.strDefinition;
        job.strDefinition = strDefinition;
    }
    _model.Take(vecJobs);
    for (const Service::Job& job : vecJobs) {
        if (job.bInvalid) {
            _model.Invalidate(job, job.strDefinition);
        }
    }
}

void World::Reload() {
    if (_life.Load().HasChanged()) {
        _life.Core().Save();
    }
    TakeJobs();
    CheckValues();
}

void World::CheckValues() {
    for (const Service::Job& job : _life.Core().Jobs().Jobs()) {
        const auto [it, bIsNew] = _mapValues.try_emplace(job.id.strName, job.strFields, job.strSchedule);
        if (bIsNew) {
            continue;
        }
        const std::vector<std::string> vecFields = SplitFields(it->second.first);
        const std::vector<std::string> vecNow = SplitFields(job.strFields);
        for (std::size_t uField = 0; uField < vecFields.size(); ++uField) {
            if (vecFields[uField] == vecNow[uField]) {
                EXPECT_EQ(ScheduleValues(it->second.second)[uField], ScheduleValues(job.strSchedule)[uField])
                    << Where() << " " << job.id.strName;
            }
        }
        it->second = {job.strFields, job.strSchedule};
    }
}

std::map<std::string, std::string> World::Kept() {
    std::map<std::string, std::string> mapKept;
    for (const Service::Job& job : _life.Core().Jobs().Jobs()) {
        mapKept[job.id.strName] = job.strSchedule + " " + std::to_string(job.iStartup) + " " +
                                  std::to_string(job.iLastExecution) + " " + std::to_string(job.bOverdueReported) +
                                  " " + std::to_string(job.bInvalid);
    }
    return mapKept;
}

/// What a service at rest has of its jobs is what the next one finds.
void World::Die(bool bAtRest) {
    ++_uCrashes;
    _mapKept = bAtRest && !_bDiskWasFull ? Kept() : std::map<std::string, std::string>();
    _life.Kill();
    _iDownFor = OneIn(2) ? 0 : Draw(1, OneIn(4) ? 400 : 8);
}

void World::Start() {
    const bool bFirst = !std::exchange(_bBegun, true);
    _life.Machine().onStep = nullptr;
    _life.Start();
    Hear();
    if (!bFirst) {
        _model.Restart();
    }
    TakeJobs();
    CheckValues();
    CheckProcesses();
    if (const std::map<std::string, std::string> mapKept = std::exchange(_mapKept, {}); !mapKept.empty()) {
        EXPECT_EQ(Kept(), mapKept) << Where();
    }
    _bDiskWasFull = false;
}

void World::PowerLoss() {
    _life.Core().Save();
    ++_uCrashes;
    _mapKept.clear();
    if (_life.bHibernating) {
        _mapValues.clear(); // the disk slept: what was drawn meanwhile is gone
    }
    _life.Kill();
    _life.Reboot();
    _setBegun.clear();
    _life.Pass(Draw(1, 30) * MINUTE + Draw(0, 59));
    _life.iUptimeSec = Draw(1, 400);
    Start();
    _model.Reboot();
}

void World::StepClock() {
    const int aSteps[] = {Draw(1, 330), HOUR, 3 * HOUR + Draw(-90, 90), Draw(1, 5 * HOUR), 30 * HOUR};
    const int iStep = aSteps[Draw(0, 4)] * (_iAhead > 0 ? -1 : _iAhead < 0 ? 1 : OneIn(2) ? 1 : -1);
    _life.SetClock(iStep);
    _iAhead += iStep;
}

void World::Happen() {
    switch (Draw(0, 9)) {
    case 0:
        StepClock();
        break;
    case 1:
        _bPassive = !_bPassive;
        _life.SetRole(_bPassive ? "passive @0\n" : "active @0\n");
        break;
    case 2:
        _life.bHibernating = !_life.bHibernating;
        break;
    case 3:
        _life.Machine().iForksToFail = Draw(1, 4);
        break;
    case 4:
        Die(true);
        break;
    case 5:
        _zone.emplace(ZONES[Draw(0, static_cast<int>(std::size(ZONES)) - 1)]);
        break;
    case 6:
        OneIn(3) ? PowerLoss() : Reload();
        break;
    case 7: { // it dies in the midst of a tick, or of hearing of an end
        const Step eStep = std::array{Step::Start, Step::Started, Step::Reports}[static_cast<std::size_t>(Draw(0, 2))];
        _life.Machine().onStep = [eStep, iLeft = Draw(1, 3)](Step eNow, const std::string&) mutable {
            if (eNow == eStep && --iLeft == 0) {
                throw Crash();
            }
        };
        break;
    }
    default:
        Edit();
        Reload();
    }
}

/// Programs end, and children are killed.
void World::MoveProcesses() {
    for (sim::Launch& launch : _life.Machine().Launches()) {
        if (launch.bProgramThere && OneIn(4)) {
            _life.Machine().End(launch, OneIn(9) ? EndKind::Signaled : EndKind::Exited, Draw(0, 2));
        }
    }
    _life.Machine().Proceed();
}

/// Of what its own signals have done, too.
void World::Hear() {
    _life.Settle();
    _life.Settle();
}

bool World::IsLive(const std::string& strName) {
    for (const sim::Launch& launch : _life.Machine().Launches()) {
        if (launch.bChildThere && launch.strJob == "pkg/" + strName) {
            return true;
        }
    }
    return false;
}

/// What the service takes for running is what runs.
void World::CheckProcesses() {
    std::map<std::string, unsigned> mapLive;
    for (const sim::Launch& launch : _life.Machine().Launches()) {
        mapLive[launch.strJob] += launch.bChildThere ? 1 : 0;
    }
    for (const Service::Job& job : _life.Core().Jobs().Jobs()) {
        EXPECT_EQ(job.uRunning, mapLive["pkg/" + job.id.strName]) << Where() << " " << job.id.strName;
    }
}

/// Nothing that was decided is lost.
void World::CheckEveryStartBegan() {
    for (const Service::Job& job : _life.Core().Jobs().Jobs()) {
        for (const Outcome& outcome : _life.Core().History(job.iKey, 10)) {
            const sim::Launch* const pLaunch = _life.Machine().Find(outcome.uRun);
            const bool bWaits = pLaunch != nullptr && pLaunch->bChildThere && pLaunch->pidProgram == 0;
            EXPECT_TRUE(outcome.eKind == OutcomeKind::Skipped || outcome.end.eKind == EndKind::Lost ||
                        _setBegun.contains(outcome.uRun) || job.uPendingRun == outcome.uRun || bWaits ||
                        outcome.end.eKind != EndKind::Open)
                << Where() << " " << job.id.strName << " " << outcome.iMinute;
            EXPECT_LE(outcome.iDelaySec, _life.Core().Template().MaxDelay());
        }
    }
}

void World::Compare(const std::vector<sim::ModelOutcome>& vecExpected) {
    std::map<std::string, std::vector<sim::ModelOutcome>> mapExpected;
    for (const sim::ModelOutcome& outcome : vecExpected) {
        if (outcome.strWhat != "overdue") {
            mapExpected[outcome.strJob].push_back(outcome);
        }
    }
    for (const Service::Job& job : _life.Core().Jobs().Jobs()) {
        CompareJob(job.id.strName, mapExpected[job.id.strName]);
    }
}

/// The newest entries, and one more if it is of this tick: there must be none.
World::Entries World::NewestEntries(const std::string& strName, std::size_t uMany) {
    Entries vecFound;
    for (const Outcome& outcome : _life.Core().History(_life.Job(strName).iKey, uMany + 1)) {
        if (outcome.iDecided == _life.Now() && (vecFound.size() < uMany || !_bBeenHere)) {
            vecFound.emplace_back(outcome.iMinute, outcome.eKind == OutcomeKind::Skipped  ? ToText(outcome.eReason)
                                                   : !outcome.strLabel.empty()            ? outcome.strLabel
                                                   : outcome.eKind == OutcomeKind::MadeUp ? "made-up"
                                                                                          : "due");
        }
    }
    std::sort(vecFound.begin(), vecFound.end());
    return vecFound;
}

/// The job's entries of this tick are those that the model has, each once.
void World::CompareJob(const std::string& strName, const std::vector<sim::ModelOutcome>& vecExpected) {
    Entries vecWanted;
    for (const sim::ModelOutcome& outcome : vecExpected) {
        vecWanted.emplace_back(outcome.iMinute, outcome.strWhat);
    }
    std::sort(vecWanted.begin(), vecWanted.end());
    const Entries vecFound = NewestEntries(strName, vecWanted.size());
    _uOutcomes += vecWanted.size();
    if (_setPending.contains(strName)) { // what is tried again takes the place of what else there is to make up for
        EXPECT_LE(vecFound.size(), vecWanted.size()) << Where() << " " << strName;
    } else if (vecWanted.size() < 90) { // a ledger keeps no more than 100
        EXPECT_EQ(vecFound, vecWanted) << Where() << " " << strName << " " << _life.Job(strName).strSchedule;
    }
}

void World::Tick() {
    _setPending.clear();
    for (const Service::Job& job : _life.Core().Jobs().Jobs()) {
        if (job.IsPending()) {
            _setPending.insert(job.id.strName);
        }
    }
    const std::vector<sim::ModelOutcome> vecExpected =
        _model.LookAt(_life.Now(), _bPassive, _life.bHibernating, _life.iUptimeSec >= 300,
                      [this](const std::string& strName) { return IsLive(strName); });
    _bBeenHere = _life.Now() <= _tLatest;
    _tLatest = std::max(_tLatest, _life.Now());
    if (OneIn(600)) {
        const sim::ScopedFullDisk full;
        _life.Machine().onStep = nullptr; // a start that could not be written down may be made again after a crash
        _life.Tick();
        _bDiskWasFull = true;
    } else {
        _life.Tick();
        Compare(vecExpected);
    }
    for (const std::string& strName : _setPending) { // what was tried again is younger than the model knows
        _model.SetStamp(strName, _life.Job(strName).AssureBase());
    }
}

void World::Minute() {
    const std::optional<ClockReading> reading = ReadClock();
    if (_iDownFor > 0 || !_life.IsUp()) {
        _life.Pass(reading->NextMinute() - _life.Now());
        MoveProcesses();
        if (--_iDownFor <= 0) {
            _life.Pass(Draw(1, 40));
            Start();
        }
        return;
    }
    const std::int64_t iWait = reading->NextMinute() - _life.Now();
    const std::int64_t iFirst = Draw(0, static_cast<int>(iWait) - 1);
    _life.bHibernating = _life.bHibernating && !OneIn(60);
    try {
        _life.Pass(iFirst);
        MoveProcesses();
        _life.Settle();
        if (OneIn(25)) {
            Happen();
        }
        if (!_life.IsUp()) {
            return;
        }
        _life.Pass(ReadClock()->NextMinute() - _life.Now());
        MoveProcesses();
        Hear();
        Tick();
        MoveProcesses();
        Hear();
        CheckProcesses();
    } catch (const Crash&) {
        _life.Machine().onStep = nullptr;
        Die(false);
    }
}

void World::Run(int iMinutes) {
    for (int i = 0; i < iMinutes && !::testing::Test::HasFailure(); ++i) {
        Minute();
        if (i % 20 == 0 && _life.IsUp()) {
            CheckEveryStartBegan();
        }
        if (i % 500 == 0) {
            _life.Machine().Forget();
        }
    }
}

std::optional<std::uint64_t> SeedOfTheEnvironment() {
    const char* const szSeed = std::getenv("VUKO_SEED");
    return szSeed != nullptr ? std::optional<std::uint64_t>(std::strtoull(szSeed, nullptr, 10)) : std::nullopt;
}

void LiveThrough(std::uint64_t uDefaultSeed, bool bLiteral) {
    const char* const szLong = std::getenv("VUKO_LONG");
    const bool bLong = szLong != nullptr && std::string(szLong) == "1";
    const std::uint64_t uSeed = SeedOfTheEnvironment().value_or(uDefaultSeed);
    std::cout << "VUKO_SEED=" << uSeed << std::endl;
    const int iWorlds = bLong ? 12 : 2;
    std::size_t uOutcomes = 0;
    std::size_t uCrashes = 0;
    for (int iWorld = 0; iWorld < iWorlds && !::testing::Test::HasFailure(); ++iWorld) {
        g_random.seed(uSeed + static_cast<std::uint64_t>(iWorld));
        World world(uSeed + static_cast<std::uint64_t>(iWorld), bLiteral);
        world.Run(bLong ? 30 * 24 * 60 : 1000);
        uOutcomes += world.Outcomes();
        uCrashes += world.Crashes();
    }
    std::cout << uOutcomes << " outcomes compared, " << uCrashes << " crashes" << std::endl;
    EXPECT_GT(uOutcomes, 100U);
    EXPECT_GT(uCrashes, 0U);
}

TEST(LifeOfTheService, KeepsItsPromisesWhateverHappens) {
    LiveThrough(20'260'321, false);
}

TEST(LifeOfTheService, KeepsItsPromisesInAWorldThatIsNewEachTime) {
    LiveThrough(std::random_device()(), false);
}

TEST(LifeOfTheService, KeepsItsPromisesUnderTheLiteralPolicy) {
    LiveThrough(31'415, true);
}

} // namespace
