#pragma once

#include <json/json.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "service/core.h"
#include "service/rootdir.h"
#include "tests/sim/fake_launcher.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_monotonic.h"
#include "tests/support/temp_dir.h"

namespace sim {

/// No file of this process grows or changes while it lives, as on a full disk.
class ScopedFullDisk {
public:
    ScopedFullDisk();
    ~ScopedFullDisk();
    ScopedFullDisk(const ScopedFullDisk&) = delete;
    ScopedFullDisk& operator=(const ScopedFullDisk&) = delete;

private:
    std::uint64_t _uFormer;
};

/// A definition file as a scan finds it: what it defines, or that it is refused.
struct DefinitionText {
    std::vector<Json::Value> vecDefinitions;
    bool bRefused = false;
};

/// A definition with that crontab text and everything else at its default.
Json::Value DefinitionOf(const std::string& strName, const std::string& strCrontab);

/// The service's core, with the state in real files, above a machine that is made up; and the lives that it leads
/// there, one after the other.
class CoreLife {
public:
    explicit CoreLife(std::time_t tStart);
    ~CoreLife();

    /// Definition files by path, as the next Load() finds them.
    std::map<std::string, DefinitionText> mapFiles;
    Service::ClockPolicy ePolicy = Service::ClockPolicy::CatchUp;
    bool bHibernating = false;
    int iBoot = 1;

    /// A file of one definition, which is named after it.
    void Put(const Json::Value& jsDefinition);

    /// The service starts: reads its state and the definitions, and takes up what was left behind.
    void Start();
    /// Ends it in good order.
    void Stop(Service::OnStop eOnStop = Service::OnStop::Leave);
    /// Ends it as a kill does: nothing is finished, and the files stay as they are at this moment.
    void Kill();
    /// The machine goes down, and comes up again: what was in memory is gone.
    void Reboot();
    bool IsUp() const { return _core != nullptr; }

    Service::LoadReport Load();
    Service::Core& Core() { return *_core; }
    Service::StateStore& Store() { return *_store; }
    sim::Machine& Machine() { return _machine; }
    Service::Job Job(const std::string& strName);
    Service::JobIndex IndexOf(const std::string& strName);

    /// Time passes.
    void Pass(std::int64_t iSeconds);
    /// The clock is set.
    void SetClock(std::int64_t iSeconds) { _clock.Set(_clock.Now() + iSeconds); }
    std::time_t Now() const { return _clock.Now(); }
    Service::ClockReading Reading() const;
    std::int64_t NowUsec() const { return _monotonic.NowUsec(); }

    /// The machine's processes move on, and the service hears of it.
    void Settle();
    /// One look at the clock.
    void Tick();
    /// Minute after minute: time passes to its beginning, the service ticks, the processes move on.
    void RunMinutes(int iMinutes);

    /// The ledger of a job, oldest first: "10:05 started", "10:06 skipped: overlap".
    std::vector<std::string> Ledger(const std::string& strName);
    std::vector<Service::Outcome> History(const std::string& strName);
    void SetRole(const std::string& strText) const;
    std::string Path(const std::string& strName) const { return _dir / strName; }
    std::int64_t iUptimeSec = 86'400;

private:
    Service::DefinitionScan Scan() const;

    support::TempDir _dir;
    Service::RootDir _root;
    support::FakeClock _clock;
    support::FakeMonotonic _monotonic;
    sim::Machine _machine;
    std::unique_ptr<Service::StateStore> _store;
    std::unique_ptr<Service::Launcher> _launcher;
    std::unique_ptr<Service::TemplateKeeper> _keeper;
    std::unique_ptr<Service::RoleFile> _role;
    std::unique_ptr<Service::Core> _core;
};

} // namespace sim
