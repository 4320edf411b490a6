#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <optional>

#include "service/control/server.h"
#include "service/core.h"
#include "service/definitions/folderwatch.h"
#include "service/minutetimer.h"
#include "service/options.h"
#include "service/rootdir.h"
#include "service/sleepwatch.h"
#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

/// The service at work: one thread that sleeps until a minute begins, a signal arrives, a child ends, a file changes or
/// somebody asks. It holds the descriptors and passes on what they tell; it decides nothing itself.
class Daemon {
public:
    /// Takes hold of the state, the signals (which are to be blocked already) and the clock.
    ///
    /// @throws std::exception when something cannot be had that it cannot work without.
    Daemon(const Options& options, const RootDir& root);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// Loads the jobs and works until it is told to stop.
    ExitStatus Run();

private:
    struct Unref {
        void operator()(sd_event* pEvent) const { sd_event_unref(pEvent); }
        void operator()(sd_event_source* pSource) const { sd_event_source_disable_unref(pSource); }
    };
    using EventLoop = std::unique_ptr<sd_event, Unref>;
    using EventSource = std::unique_ptr<sd_event_source, Unref>;

    template <void (Daemon::*Handle)()>
    static int OnReadable(sd_event_source* pSource, int iFd, std::uint32_t uEvents, void* pDaemon);
    template <void (Daemon::*Handle)()>
    static int OnTime(sd_event_source* pSource, std::uint64_t uUsec, void* pDaemon);
    static int OnSignal(sd_event_source* pSource, const signalfd_siginfo* pInfo, void* pDaemon);

    template <void (Daemon::*Handle)()>
    EventSource WatchDescriptor(int iFd, std::int64_t iPriority);
    template <void (Daemon::*Handle)()>
    EventSource MakeTimer();

    void HandleMinute();
    void HandleReports();
    void HandleFolders();
    void HandleReload();
    void HandleRole();
    void HandleDeadline();
    void HandleAdopted();
    void HandleSignal(int iSignal);

    void AfterTick();
    void Reload(const char* szWhy);
    /// @param bTell  also where nothing has changed.
    void Load(bool bTell);
    void ScheduleReload(std::int64_t iWaitUsec);
    void WatchAdopted();
    void Reap();
    void Stop(int iSignal);
    void Settle();
    void ArmMinute(const std::optional<ClockReading>& reading);
    void ArmDeadline();
    std::string StatusText();
    void PublishMetrics();

    Options _options;
    EventLoop _event;
    StateStore _store;
    Launcher _launcher;
    TemplateKeeper _template;
    RoleFile _role;
    Core _core;
    FolderWatch _folders;
    MinuteTimer _timer;
    EventSource _minuteSource;
    EventSource _reportSource;
    EventSource _folderSource;
    EventSource _roleSource;
    EventSource _reloadTimer;
    EventSource _deadlineTimer;
    std::map<pid_t, std::pair<UniqueFd, EventSource>> _mapAdopted;
    std::unique_ptr<SleepWatch> _sleep;
    std::unique_ptr<ControlServer> _control;
    std::int64_t _iLastScanUsec = 0;
    std::int64_t _iScanTookUsec = 0;
    std::int64_t _iStarted = time(nullptr);
    std::time_t _tNextMinute = 0;
    bool _bStopping = false;
};

} // namespace VUKO::VUKOCrond::Service
