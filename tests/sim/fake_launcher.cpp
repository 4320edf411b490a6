#include "tests/sim/fake_launcher.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <stdexcept>

#include "service/launch/processid.h"
#include "service/runs.h"

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace sim {

namespace {

constexpr std::int64_t USEC = 1'000'000;

Machine* g_pMachine = nullptr;

Machine& TheMachine() {
    if (g_pMachine == nullptr) {
        throw std::logic_error("no machine");
    }
    return *g_pMachine;
}

std::int64_t WallUsec() {
    return std::int64_t{time(nullptr)} * USEC;
}

} // namespace

/// The replaced functions' way into the machine.
struct Fakes {
    static void Step(sim::Step eStep, const std::string& strWhat) {
        if (TheMachine().onStep) {
            TheMachine().onStep(eStep, strWhat);
        }
    }
    static void Signal(pid_t pid, int iSignal) { TheMachine().Signal(pid, iSignal); }
};

Machine::Machine() {
    g_pMachine = this;
}

Machine::~Machine() {
    g_pMachine = nullptr;
}

/// In ticks since boot.
static std::uint64_t ProgramStartOf(const Launch& launch) {
    return static_cast<std::uint64_t>(launch.iBegunUsec / (USEC / 100));
}

Launch* Machine::Find(RunId uRun) {
    const auto it = std::find_if(_vecLaunches.rbegin(), _vecLaunches.rend(),
                                 [uRun](const Launch& launch) { return launch.uRun == uRun; });
    return it != _vecLaunches.rend() ? &*it : nullptr;
}

Machine::Slot* Machine::SlotOf(const Launch& launch) {
    const auto it = _mapSlots.find(launch.uRun);
    return it != _mapSlots.end() && it->second.uSlot == launch.uSlot ? &it->second : nullptr;
}

void Machine::Proceed() {
    for (Launch& launch : _vecLaunches) {
        Slot* const pSlot = SlotOf(launch);
        if (!launch.bChildThere || launch.pidProgram != 0) {
            continue;
        }
        if (pSlot != nullptr && pSlot->record.eStage == RunStage::Offered) {
            pSlot->record.eStage = RunStage::Waiting;
            pSlot->record.pidChild = launch.pidChild;
            pSlot->record.uChildStart = static_cast<std::uint64_t>(launch.iForkedUsec);
        }
        if (pSlot == nullptr || pSlot->record.eStage != RunStage::Waiting) {
            KillChild(launch); // its launch was taken back
        } else if (MonotonicUsec() >= launch.iBeginsUsec) {
            launch.pidProgram = _pidNext++;
            launch.bProgramThere = true;
            launch.iBegunUsec = MonotonicUsec();
            pSlot->record.eStage = RunStage::Begun;
            pSlot->record.pidProgram = launch.pidProgram;
            pSlot->record.uProgramStart = ProgramStartOf(launch);
            Tell({launch.uRun, RunReport::Kind::Begun, launch.pidProgram, {}});
            if (onBegun) {
                onBegun(launch);
            }
        }
    }
}

void Machine::End(Launch& launch, EndKind eKind, int iCode) {
    RunEnd end;
    end.eKind = eKind;
    end.iCode = iCode;
    end.iEndedUsec = WallUsec();
    end.iDurationUsec = MonotonicUsec() - launch.iBegunUsec;
    end.iStartedUsec = std::max<std::int64_t>(1, end.iEndedUsec - end.iDurationUsec);
    launch.bProgramThere = false;
    if (Slot* const pSlot = SlotOf(launch); pSlot != nullptr && launch.bChildThere) {
        pSlot->record.eStage = RunStage::Ended;
        pSlot->record.end = end;
        Tell({launch.uRun, RunReport::Kind::Ended, 0, end});
    }
    KillChild(launch);
}

void Machine::KillChild(Launch& launch) {
    if (std::exchange(launch.bChildThere, false) && launch.uLife == _uLife) {
        _vecDead.push_back(launch.pidChild);
    }
}

std::vector<pid_t> Machine::TakeDead() {
    return std::exchange(_vecDead, {});
}

void Machine::Forget() {
    std::erase_if(_vecLaunches, [](const Launch& launch) { return !launch.bChildThere && !launch.bProgramThere; });
}

void Machine::Reboot() {
    _vecLaunches.clear();
    _vecDead.clear();
    LoseTable();
}

void Machine::LoseTable() {
    _mapSlots.clear();
    _strTableBoot.clear();
}

void Machine::Signal(pid_t pid, int iSignal) {
    _vecSignals.emplace_back(pid, iSignal);
    for (Launch& launch : _vecLaunches) {
        if (pid == -launch.pidProgram && launch.bProgramThere && (iSignal == SIGKILL || launch.bHeedsTerm)) {
            End(launch, EndKind::Signaled, iSignal);
        } else if (pid == launch.pidChild && launch.bChildThere && launch.pidProgram == 0) {
            KillChild(launch);
        }
    }
}

} // namespace sim

extern "C" int kill(pid_t pid, int iSignal) noexcept {
    sim::Fakes::Signal(pid, iSignal);
    return 0;
}

namespace VUKO::VUKOCrond::Service {

using sim::Fakes;
using sim::TheMachine;

struct RunTable::Private {
    bool bNew = false;
};

RunTable::RunTable(const std::string& /*strPath*/, const std::string& strBootId) : _p(std::make_unique<Private>()) {
    _p->bNew = TheMachine()._strTableBoot != strBootId;
    TheMachine()._strTableBoot = strBootId;
}

RunTable::~RunTable() = default;

bool RunTable::IsNew() const {
    return _p->bNew;
}

std::vector<RunRecord> RunTable::Records() const {
    std::vector<RunRecord> vecRecords;
    for (const auto& [uRun, slot] : TheMachine()._mapSlots) {
        vecRecords.push_back(slot.record);
    }
    return vecRecords;
}

std::optional<RunRecord> RunTable::Find(RunId uRun) const {
    const auto it = TheMachine()._mapSlots.find(uRun);
    return it != TheMachine()._mapSlots.end() ? std::optional(it->second.record) : std::nullopt;
}

bool RunTable::Offer(RunId uRun) {
    sim::Machine& machine = TheMachine();
    sim::Machine::Slot slot;
    slot.uSlot = ++machine._uSlots;
    slot.record.uRun = uRun;
    slot.record.eStage = RunStage::Offered;
    return uRun != 0 && machine._mapSlots.emplace(uRun, slot).second;
}

bool RunTable::Revoke(RunId uRun) {
    const auto it = TheMachine()._mapSlots.find(uRun);
    if (it == TheMachine()._mapSlots.end()) {
        return false;
    }
    RunRecord& record = it->second.record;
    const bool bChildGone = record.eStage == RunStage::Waiting && !IsRunning(record.pidChild, record.uChildStart);
    if (record.eStage == RunStage::Offered || bChildGone) {
        record.eStage = RunStage::Revoked;
    }
    return record.eStage == RunStage::Revoked;
}

void RunTable::Release(RunId uRun) {
    TheMachine()._mapSlots.erase(uRun);
}

struct Launcher::Private {
    RunTable table;
    std::set<std::pair<RunId, RunReport::Kind>> setHeard;
    bool bTableRead = false;

    explicit Private(const Settings& settings) : table(settings.strRunTable, settings.strBootId) {}
};

Launcher::Launcher(const Settings& settings) : _p(std::make_unique<Private>(settings)) {
    ++TheMachine()._uLife;
    TheMachine()._vecTold.clear(); // what a former service did not read went with its pipe
    TheMachine()._vecDead.clear();
}

Launcher::~Launcher() = default;

RunTable& Launcher::Table() {
    return _p->table;
}

pid_t Launcher::Start(CronJob& /*job*/, const LaunchOrder& order) {
    sim::Machine& machine = TheMachine();
    Fakes::Step(sim::Step::Start, order.strIdentifier);
    if (machine.iForksToFail > 0) {
        --machine.iForksToFail;
        return -1;
    }
    if (!_p->table.Offer(order.uRun)) {
        return -1;
    }
    sim::Launch launch;
    launch.uRun = order.uRun;
    launch.strJob = order.strIdentifier;
    launch.strLabel = order.strLabel;
    launch.uSlot = machine._uSlots;
    launch.uLife = machine._uLife;
    launch.pidChild = machine._pidNext++;
    launch.iForkedUsec = MonotonicUsec();
    launch.iBeginsUsec = launch.iForkedUsec + order.iDelaySec * sim::USEC;
    machine._vecLaunches.push_back(launch);
    Fakes::Step(sim::Step::Started, order.strIdentifier);
    return launch.pidChild;
}

Surroundings Launcher::SurroundingsOf(const LaunchOrder& order) const {
    Surroundings found;
    found.strAccount = order.account.strName;
    found.uid = order.account.uid;
    found.vecGroups = {4, 7};
    found.vecEnvironment = {"HOME=/a=b"};
    found.strFolder = "/home";
    found.vecLimits = {{"nofile", 1024, Surroundings::Limit::UNLIMITED}};
    found.strOutput = "/log/" + order.strIdentifier;
    return found;
}

int Launcher::ReportDescriptor() const {
    return -1;
}

/// As the real one: each thing once in the life of a service, and nothing of launches that were released.
std::vector<RunReport> Launcher::TakeReports() {
    sim::Machine& machine = TheMachine();
    Fakes::Step(sim::Step::Reports, "");
    std::vector<RunReport> vecTold = std::exchange(machine._vecTold, {});
    if (!std::exchange(_p->bTableRead, true)) {
        for (const auto& [uRun, slot] : machine._mapSlots) {
            if (slot.record.pidProgram != 0) {
                vecTold.push_back({uRun, RunReport::Kind::Begun, slot.record.pidProgram, {}});
            }
            if (slot.record.eStage == RunStage::Ended) {
                vecTold.push_back({uRun, RunReport::Kind::Ended, 0, slot.record.end});
            }
        }
    }
    std::erase_if(vecTold, [&](const RunReport& report) {
        return !machine._mapSlots.contains(report.uRun) || !_p->setHeard.emplace(report.uRun, report.eKind).second;
    });
    return vecTold;
}

std::optional<Account> FindAccount(const std::string& strName) {
    Fakes::Step(sim::Step::Account, strName);
    const auto it = TheMachine().mapAccounts.find(strName);
    if (it == TheMachine().mapAccounts.end()) {
        return std::nullopt;
    }
    return Account{strName, it->second, it->second, "/", "/bin/sh"};
}

bool CanBecome(const Account& account) {
    return !TheMachine().setRefused.contains(account.strName);
}

std::uint64_t StartTimeOf(pid_t pid) {
    for (const sim::Launch& launch : TheMachine().Launches()) {
        if (launch.pidChild == pid) {
            return static_cast<std::uint64_t>(launch.iForkedUsec);
        }
    }
    return 0;
}

bool IsRunning(pid_t pid, std::uint64_t uStartTime) {
    for (const sim::Launch& launch : TheMachine().Launches()) {
        if (launch.pidChild == pid && launch.bChildThere &&
            static_cast<std::uint64_t>(launch.iForkedUsec) == uStartTime) {
            return true;
        }
        if (launch.pidProgram == pid && launch.bProgramThere && sim::ProgramStartOf(launch) == uStartTime) {
            return true;
        }
    }
    return false;
}

} // namespace VUKO::VUKOCrond::Service
