#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "service/launch/launcher.h"

namespace sim {

namespace Service = VUKO::VUKOCrond::Service;

/// Thrown into the service to end it as a kill would: nothing that it catches for its own sake is a base of it.
struct Crash {};

/// Where the service is when somebody looks, or ends it.
enum class Step {
    Account, ///< it asks for an account
    Start,   ///< it is about to make a child
    Started, ///< the child is made, and it does not know yet
    Reports  ///< it asks what the launches have told
};

/// One launch as the machine knows it: its child, and its program.
struct Launch {
    Service::RunId uRun = 0;
    std::string strJob;
    std::string strLabel;
    std::uint64_t uSlot = 0; ///< which of the table's slots of this number its child was given
    unsigned uLife = 0;      ///< of the service that forked it
    pid_t pidChild = 0;
    pid_t pidProgram = 0; ///< 0: not begun
    std::int64_t iForkedUsec = 0;
    std::int64_t iBeginsUsec = 0; ///< when its delay is over, by the monotonic clock
    std::int64_t iBegunUsec = 0;
    bool bChildThere = true;
    bool bProgramThere = false;
    bool bHeedsTerm = true;
};

/// The machine below the service: processes, the run table, accounts. It stays when the service ends; the processes and
/// the table go with the boot. The launcher, the run table and the questions about processes and accounts are answered
/// out of it. One at a time.
class Machine {
public:
    Machine();
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    /// Called at each step of the service; may throw Crash.
    std::function<void(Step, const std::string& strWhat)> onStep;
    std::function<void(const Launch&)> onBegun;
    int iForksToFail = 0; ///< so many of the next forks make no child
    std::map<std::string, uid_t> mapAccounts = {{"root", 0}};
    std::set<std::string> setRefused; ///< accounts that the service cannot become

    /// Every launch of this boot whose child or program is there, and those that ended since the last Forget().
    std::vector<Launch>& Launches() { return _vecLaunches; }
    Launch* Find(Service::RunId uRun);
    /// Lets the children that were forked take their launches, and begin those whose delay is over.
    void Proceed();
    /// The program ends, and its child with it.
    void End(Launch& launch, Service::EndKind eKind, int iCode);
    /// The child is killed. A program goes on alone.
    void KillChild(Launch& launch);
    /// The pids of the service's children that have ended, each once.
    std::vector<pid_t> TakeDead();
    /// Drops what has ended.
    void Forget();
    /// Processes and table are gone.
    void Reboot();
    /// The table is gone, the processes are not.
    void LoseTable();
    /// Signals that were sent: to whom as kill() has it, and which.
    std::vector<std::pair<pid_t, int>> TakeSignals() { return std::exchange(_vecSignals, {}); }
    unsigned Life() const { return _uLife; }
    std::size_t SlotsTaken() const { return _mapSlots.size(); }

private:
    friend class Service::RunTable;
    friend class Service::Launcher;
    friend struct Fakes;

    struct Slot {
        std::uint64_t uSlot = 0;
        Service::RunRecord record;
    };

    void Tell(const Service::RunReport& report) { _vecTold.push_back(report); }
    Slot* SlotOf(const Launch& launch);
    void Signal(pid_t pid, int iSignal);

    std::map<Service::RunId, Slot> _mapSlots;
    std::vector<Launch> _vecLaunches;
    std::vector<Service::RunReport> _vecTold; ///< lies in the pipe
    std::vector<pid_t> _vecDead;
    std::vector<std::pair<pid_t, int>> _vecSignals;
    std::string _strTableBoot; ///< of the table that is there; empty: none
    std::uint64_t _uSlots = 0;
    unsigned _uLife = 0;
    pid_t _pidNext = 1000;
};

} // namespace sim
