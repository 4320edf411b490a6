#include "tests/sim/core_life.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

using namespace VUKO::VUKOCrond;
using namespace VUKO::VUKOCrond::Service;

namespace sim {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t USEC = 1'000'000;
constexpr const char* szFolder = "pkg";

/// In memory where that can be had: the state is written at every tick.
std::string ParentFolder() {
    const char* const szMemory = "/dev/shm";
    return access(szMemory, W_OK | X_OK) == 0 ? szMemory : fs::temp_directory_path().string();
}

std::string TextOf(const Outcome& outcome) {
    char szTime[16];
    std::snprintf(szTime, sizeof(szTime), "%02d:%02d", static_cast<int>(outcome.iMinute / 60 % 24),
                  static_cast<int>(outcome.iMinute % 60));
    std::string strText = std::string(szTime) + " " + ToText(outcome.eKind);
    if (outcome.eKind == OutcomeKind::Skipped) {
        strText += std::string(": ") + ToText(outcome.eReason);
    }
    return strText + (outcome.strLabel.empty() ? "" : " (" + outcome.strLabel + ")");
}

} // namespace

ScopedFullDisk::ScopedFullDisk() {
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    _uFormer = limit.rlim_cur;
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_FSIZE, &limit);
}

ScopedFullDisk::~ScopedFullDisk() {
    struct rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = _uFormer;
    setrlimit(RLIMIT_FSIZE, &limit);
}

Json::Value DefinitionOf(const std::string& strName, const std::string& strCrontab) {
    Json::Value jsDefinition;
    jsDefinition["name"] = strName;
    jsDefinition["user"] = "root";
    jsDefinition["period"] = "crontab";
    jsDefinition["crontab"] = strCrontab;
    jsDefinition["cmd"] = "/bin/true";
    return jsDefinition;
}

CoreLife::CoreLife(std::time_t tStart) : _dir(ParentFolder()), _root(_dir.Path()), _clock(tStart) {
    if (const std::string strReason = _root.MakeFolders(); !strReason.empty()) {
        throw std::runtime_error(strReason);
    }
    fs::create_directory(_dir / "memory");
    fs::create_directory(_dir / "disk");
}

CoreLife::~CoreLife() = default;

void CoreLife::Put(const Json::Value& jsDefinition) {
    mapFiles["/" + jsDefinition["name"].asString() + ".conf"] = {{jsDefinition}, false};
}

void CoreLife::Start() {
    const std::string strBootId = "boot " + std::to_string(iBoot);
    _store = std::make_unique<StateStore>(_dir / "memory/state", _dir / "disk/state");
    _launcher = std::make_unique<Launcher>(Launcher::Settings{_dir / "memory/runs", _dir / "output", strBootId, false});
    _keeper = std::make_unique<TemplateKeeper>(_dir / "disk/template", _dir / "memory/template", !bHibernating);
    _role = std::make_unique<RoleFile>(_dir / "role", [this] { return std::int64_t{_clock.Now()} * USEC; });
    _core =
        std::make_unique<Service::Core>(Service::Core::Settings{ePolicy, strBootId, [this] { return bHibernating; }},
                                        *_store, *_launcher, *_keeper, *_role);
    Load();
    _core->Recover(_clock.Now());
    Settle();
}

void CoreLife::Stop(OnStop eOnStop) {
    _core->BeginStop(eOnStop);
    Settle();
    _core->Save();
    _core.reset();
    _role.reset();
    _keeper.reset();
    _launcher.reset();
    _store.reset();
}

/// The state's files are put back to what they were when the service was ended: their owner tidies them up.
void CoreLife::Kill() {
    fs::copy(_dir / "memory", _dir / "memory.left");
    fs::copy(_dir / "disk", _dir / "disk.left");
    _core.reset();
    _role.reset();
    _keeper.reset();
    _launcher.reset();
    _store.reset();
    for (const char* const szName : {"memory", "disk"}) {
        fs::remove_all(_dir / szName);
        fs::rename(_dir / (std::string(szName) + ".left"), _dir / szName);
    }
}

void CoreLife::Reboot() {
    ++iBoot;
    _machine.Reboot();
    fs::remove_all(_dir / "memory");
    fs::create_directory(_dir / "memory");
}

DefinitionScan CoreLife::Scan() const {
    DefinitionScan scan;
    for (const auto& [strFile, text] : mapFiles) {
        if (text.bRefused) {
            scan.vecRefusals.push_back({strFile, strFile + ": is no definition", 1});
        }
        for (const Json::Value& jsDefinition : text.vecDefinitions) {
            scan.vecDefinitions.push_back({{szFolder, "", jsDefinition["name"].asString()},
                                           strFile,
                                           strFile,
                                           jsDefinition,
                                           DefinitionToText(jsDefinition)});
        }
    }
    return scan;
}

LoadReport CoreLife::Load() {
    return _core->Load(Scan(), _clock.Now());
}

JobIndex CoreLife::IndexOf(const std::string& strName) {
    return _core->Jobs().IndexOf(JobId{szFolder, "", strName});
}

Job CoreLife::Job(const std::string& strName) {
    const Service::Job* const pJob = _core->Jobs().Find(JobId{szFolder, "", strName});
    if (pJob == nullptr) {
        throw std::out_of_range("no job " + strName);
    }
    return *pJob;
}

void CoreLife::Pass(std::int64_t iSeconds) {
    _clock.Set(_clock.Now() + iSeconds);
    _monotonic.Advance(iSeconds * USEC);
    iUptimeSec += iSeconds;
}

ClockReading CoreLife::Reading() const {
    return ReadClock().value();
}

void CoreLife::Settle() {
    _machine.Proceed();
    if (!IsUp()) {
        return;
    }
    _core->TakeReports();
    for (const pid_t pid : _machine.TakeDead()) {
        _core->ChildEnded(pid);
    }
    _core->LookAtAdopted();
    _core->TakeAdopted();
    _core->ExpireTimeouts();
}

void CoreLife::Tick() {
    _core->Tick(Reading(), iUptimeSec);
}

void CoreLife::RunMinutes(int iMinutes) {
    for (int i = 0; i < iMinutes; ++i) {
        Pass(Reading().NextMinute() - Now());
        Settle();
        if (IsUp()) {
            Tick();
        }
        Settle();
    }
}

std::vector<Outcome> CoreLife::History(const std::string& strName) {
    std::vector<Outcome> vecOutcomes = _core->History(Job(strName).iKey, StateStore::LEDGER_DEPTH);
    std::reverse(vecOutcomes.begin(), vecOutcomes.end());
    return vecOutcomes;
}

std::vector<std::string> CoreLife::Ledger(const std::string& strName) {
    std::vector<std::string> vecTexts;
    for (const Outcome& outcome : History(strName)) {
        vecTexts.push_back(TextOf(outcome));
    }
    return vecTexts;
}

void CoreLife::SetRole(const std::string& strText) const {
    support::WriteFile(_dir / "role", strText);
    chmod((_dir / "role").c_str(), 0644);
}

} // namespace sim
