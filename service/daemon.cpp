#include "service/daemon.h"

#include <sys/syscall.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <ctime>
#include <exception>
#include <iostream>
#include <system_error>

#include "base/syslog_line.h"
#include "crond/utils.h"
#include "service/bootid.h"
#include "service/control/requests.h"
#include "service/coremetrics.h"
#include "service/launch/reaper.h"
#include "service/logtext.h"
#include "service/memory.h"
#include "service/notify.h"
#include "service/paths.h"
#include "service/report.h"
#include "service/trustedpath.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "daemon";

constexpr std::int64_t USEC = 1'000'000;
/// After the first sign of a change: whoever changes one file mostly changes more.
constexpr std::int64_t SETTLE_USEC = 200'000;
/// Whoever changes files without end must not have the service read them without end: so much of its time at most.
constexpr std::int64_t READING_SHARE = 10;
/// Nothing that takes long is begun so shortly before a minute.
constexpr int BUSY_FROM_SECOND = 58;
constexpr std::int64_t RESCAN_USEC = 15 * 60 * USEC;
constexpr std::int64_t SAVE_SEC = 600;
/// While the service waits for jobs to end, the service manager is told so once a minute.
constexpr const char* szStillWaiting = "EXTEND_TIMEOUT_USEC=180000000";

void Check(int iResult, const char* szWhat) {
    if (iResult < 0) {
        throw std::system_error(-iResult, std::generic_category(), szWhat);
    }
}

sd_event* NewEventLoop() {
    sd_event* pEvent = nullptr;
    Check(sd_event_new(&pEvent), "sd_event_new");
    return pEvent;
}

/// Runs the body of a callback. Whatever goes wrong in one must neither leave it, as it is called from C, nor end the
/// service.
template <typename Body>
int Guarded(const char* szWhat, const Body& body) {
    try {
        body();
    } catch (const std::exception& exception) {
        VUKO_LOG_PLAIN(LOG_ERR, 1, "%s: %s", szWhat, Escaped(exception.what()).c_str());
    }
    return 0;
}

/// Below a root folder everything stays there, jobs' output included.
Launcher::Settings LauncherSettings(const Options& options, const RootDir& root) {
    return {root.Path(Path::RUN_TABLE), root.Path(Path::OUTPUT_FOLDER), BootId(), options.strRoot.empty()};
}

void TellNotes(const std::vector<std::string>& vecNotes) {
    for (const std::string& strNote : vecNotes) {
        VUKO_LOG_PLAIN(LOG_WARNING, 11, "%s", Escaped(strNote).c_str());
    }
}

} // namespace

Daemon::Daemon(const Options& options, const RootDir& root)
    : _options(options), _event(NewEventLoop()), _store(SZF_CRON_RUNTIME_CONFIG_MIRROR, SZF_CRON_RUNTIME_CONFIG),
      _launcher(LauncherSettings(options, root)),
      _template(SZF_CRON_SCHEDULE_TEMPLATE_CONFIG, SZF_CRON_SCHEDULE_TEMPLATE_CONFIG_MIRROR, !isHibernating()),
      _role(options.strRoleFile.empty() ? root.Path(Path::ROLE_FILE) : options.strRoleFile),
      _core({options.ePolicy, BootId(), isHibernating}, _store, _launcher, _template, _role) {
    TellNotes(_store.Notes());
    TellNotes(_template.TakeNotes());
    TellNotes(SecureLogStaging());
    _minuteSource = WatchDescriptor<&Daemon::HandleMinute>(_timer.Descriptor(), SD_EVENT_PRIORITY_IMPORTANT);
    _reportSource = WatchDescriptor<&Daemon::HandleReports>(_launcher.ReportDescriptor(), SD_EVENT_PRIORITY_NORMAL);
    _folderSource = WatchDescriptor<&Daemon::HandleFolders>(_folders.Descriptor(), SD_EVENT_PRIORITY_NORMAL);
    _roleSource = WatchDescriptor<&Daemon::HandleRole>(_role.Descriptor(), SD_EVENT_PRIORITY_NORMAL);
    _reloadTimer = MakeTimer<&Daemon::HandleReload>();
    _deadlineTimer = MakeTimer<&Daemon::HandleDeadline>();
    for (const int iSignal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
        Check(sd_event_add_signal(_event.get(), nullptr, iSignal, OnSignal, this), "sd_event_add_signal");
    }
    _sleep = std::make_unique<SleepWatch>(_event.get(), SleepWatch::Callbacks{[this] { _core.PrepareSleep(); }, [] {}});
    _control = std::make_unique<ControlServer>(_event.get(), root.Path(Protocol::SOCKET_PATH),
                                               MakeRequestHandler(_core, [this] { Reload("on request"); }),
                                               ControlServer::Limits());
}

Daemon::~Daemon() = default;

ExitStatus Daemon::Run() {
    if (geteuid() != 0) {
        VUKO_LOG_PLAIN(LOG_WARNING, 2, "not running as root: every job runs as uid %u, whatever account it names",
                       static_cast<unsigned>(geteuid()));
    }
    Load(true);
    _core.Recover(time(nullptr));
    HandleAdopted();
    ArmDeadline();
    (void)sd_event_set_watchdog(_event.get(), 1);
    VUKO_LOG_PLAIN(LOG_NOTICE, 3, "vukocrond " VUKO_VERSION " is ready");
    Notify::Ready(StatusText());
    Reap(); // whoever ended before the signals were watched
    GiveBackCode();
    ArmMinute(ReadClock());
    const int iStatus = sd_event_loop(_event.get());
    Check(iStatus, "sd_event_loop");
    _core.Save();
    if (_core.IsQuiet()) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 10, "stopped");
    } else {
        VUKO_LOG_PLAIN(LOG_NOTICE, 4, "stopped, running jobs are left running");
    }
    return iStatus == 0 ? EXIT_ORDERLY : EXIT_FAILED;
}

template <void (Daemon::*Handle)()>
int Daemon::OnReadable(sd_event_source* /*pSource*/, int /*iFd*/, std::uint32_t /*uEvents*/, void* pDaemon) {
    return Guarded("event", [pDaemon] { (static_cast<Daemon*>(pDaemon)->*Handle)(); });
}

template <void (Daemon::*Handle)()>
int Daemon::OnTime(sd_event_source* /*pSource*/, std::uint64_t /*uUsec*/, void* pDaemon) {
    return Guarded("timer", [pDaemon] { (static_cast<Daemon*>(pDaemon)->*Handle)(); });
}

int Daemon::OnSignal(sd_event_source* /*pSource*/, const signalfd_siginfo* pInfo, void* pDaemon) {
    const int iSignal = static_cast<int>(pInfo->ssi_signo);
    return Guarded("signal", [pDaemon, iSignal] { static_cast<Daemon*>(pDaemon)->HandleSignal(iSignal); });
}

template <void (Daemon::*Handle)()>
Daemon::EventSource Daemon::WatchDescriptor(int iFd, std::int64_t iPriority) {
    sd_event_source* pSource = nullptr;
    Check(sd_event_add_io(_event.get(), &pSource, iFd, EPOLLIN, OnReadable<Handle>, this), "sd_event_add_io");
    EventSource source(pSource);
    Check(sd_event_source_set_priority(pSource, iPriority), "sd_event_source_set_priority");
    return source;
}

template <void (Daemon::*Handle)()>
Daemon::EventSource Daemon::MakeTimer() {
    sd_event_source* pSource = nullptr;
    Check(sd_event_add_time(_event.get(), &pSource, CLOCK_MONOTONIC, 0, 1, OnTime<Handle>, this), "sd_event_add_time");
    EventSource source(pSource);
    Check(sd_event_source_set_enabled(pSource, SD_EVENT_OFF), "sd_event_source_set_enabled");
    return source;
}

/// When the clock was set, the middle of a minute is no tick: it only means that the next one begins at another
/// instant than the timer knows. But it may have been set to the very beginning of one. Nor is the last moment of a
/// minute a tick, in which time() still lags behind the timer.
void Daemon::HandleMinute() {
    const MinuteTimer::Event eEvent = _timer.Consume();
    const std::optional<ClockReading> reading = ReadClock();
    const bool bExpired = eEvent == MinuteTimer::Event::Expired;
    const bool bBegins = reading && (bExpired ? reading->tNow >= _tNextMinute : reading->iSecond == 0);
    try {
        ArmMinute(reading); // first: nothing that a job does may cost the next tick
    } catch (const std::exception&) {
        sd_event_exit(_event.get(), EXIT_FAILED); // a service that lives and never ticks again is worse than none
        throw;
    }
    if (bBegins) {
        const std::uint64_t uTicks = _core.Count().uTicks;
        _core.Tick(*reading, UptimeSec());
        if (_core.Count().uTicks != uTicks) {
            AfterTick();
        }
    }
}

/// What is done once a minute, after the jobs have been started.
void Daemon::AfterTick() {
    ArmDeadline();
    HandleRole(); // a change that was announced may have come
    _core.LookAtAdopted();
    _sleep->Retry();
    if (const std::string strProblem = _sleep->TakeProblem(); !strProblem.empty()) {
        VUKO_LOG_PLAIN(LOG_WARNING, 17, "%s", strProblem.c_str());
    }
    if (_bStopping) {
        sd_notify(0, szStillWaiting);
    }
    if (MonotonicUsec() - _iLastScanUsec >= RESCAN_USEC) {
        ScheduleReload(5 * USEC);
    }
    const std::int64_t iSinceSaved = time(nullptr) - _core.LastSavedAt();
    if (_core.IsWorthSaving() && (iSinceSaved >= SAVE_SEC || iSinceSaved < 0)) { // below 0: the clock was set back
        _core.Save();
    }
    Notify::Status(StatusText());
    PublishMetrics();
    Settle();
}

void Daemon::HandleReports() {
    _core.TakeReports();
    ArmDeadline();
    Settle();
}

void Daemon::HandleFolders() {
    if (_folders.Consume()) {
        ScheduleReload(std::max(SETTLE_USEC, _iLastScanUsec + _iScanTookUsec * READING_SHARE - MonotonicUsec()));
    }
}

void Daemon::HandleReload() {
    const std::optional<ClockReading> reading = ReadClock();
    if (reading && reading->iSecond >= BUSY_FROM_SECOND) {
        ScheduleReload((61 - reading->iSecond) * USEC);
        return;
    }
    Load(false);
    Notify::Status(StatusText());
}

void Daemon::HandleRole() {
    if (_role.Consume()) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 12, "the role is %s now", ToText(_role.RoleAt(RealtimeUsec())));
        Notify::Status(StatusText());
    }
    if (const std::string strProblem = _role.TakeProblem(); !strProblem.empty()) {
        VUKO_LOG_PLAIN(LOG_ERR, 13, "%s", strProblem.c_str());
    }
}

void Daemon::HandleDeadline() {
    _core.ExpireTimeouts();
    ArmDeadline();
}

void Daemon::HandleAdopted() {
    _core.LookAtAdopted();
    std::erase_if(_mapAdopted,
                  [this](const auto& adopted) { return _core.Going().FindByChild(adopted.first) == nullptr; });
    WatchAdopted();
    Settle();
}

void Daemon::HandleSignal(int iSignal) {
    switch (iSignal) {
    case SIGCHLD:
        Reap();
        break;
    case SIGHUP:
        Reload("on SIGHUP");
        break;
    default:
        Stop(iSignal);
        break;
    }
}

void Daemon::Reap() {
    _core.TakeReports(); // what a child told before its end
    for (const ReapedChild& child : ReapChildren()) {
        LogEnd(child, _core.ChildEnded(child.pid));
    }
    WatchAdopted();
    ArmDeadline();
    Settle();
}

void Daemon::Reload(const char* szWhy) {
    VUKO_LOG_PLAIN(LOG_INFO, 14, "reloading %s", szWhy);
    Notify::Reloading();
    Guarded("reload", [this] { Load(true); });
    Notify::Ready(StatusText()); // also after a failure: the service works on with what it has
}

/// The folders are watched before they are read, so that no change falls between the two.
void Daemon::Load(bool bTell) {
    _folders.Renew();
    TellNotes(_folders.TakeProblems());
    const bool bFirst = _core.Count().uLoads == 0;
    _iLastScanUsec = MonotonicUsec();
    const LoadReport report = _core.Load(ScanDefinitions(), time(nullptr));
    GiveBackHeap();
    _iScanTookUsec = MonotonicUsec() - _iLastScanUsec;
    if (bTell || report.HasChanged()) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 7, "loaded %s", Summary(report).c_str());
    }
    if (!bFirst && report.HasChanged()) {
        _core.Save();
    }
    if (_options.bPrintSchedule && (bTell || report.HasChanged())) {
        PrintSchedule(std::cout, _core.Jobs());
    }
}

void Daemon::ScheduleReload(std::int64_t iWaitUsec) {
    int iEnabled = SD_EVENT_OFF;
    sd_event_source_get_enabled(_reloadTimer.get(), &iEnabled);
    if (iEnabled == SD_EVENT_OFF) { // else it comes soon enough: whoever keeps changing files cannot put it off
        Check(sd_event_source_set_time_relative(_reloadTimer.get(), static_cast<std::uint64_t>(iWaitUsec)),
              "sd_event_source_set_time_relative");
        Check(sd_event_source_set_enabled(_reloadTimer.get(), SD_EVENT_ONESHOT), "sd_event_source_set_enabled");
    }
}

void Daemon::WatchAdopted() {
    for (const pid_t pid : _core.TakeAdopted()) {
        UniqueFd fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
        if (fd) { // else it is gone, or each tick looks
            EventSource source = WatchDescriptor<&Daemon::HandleAdopted>(fd.Get(), SD_EVENT_PRIORITY_NORMAL);
            _mapAdopted.insert_or_assign(pid, std::make_pair(std::move(fd), std::move(source)));
        }
    }
}

/// The first signal begins the stop; a second one ends it, whatever is still going.
void Daemon::Stop(int iSignal) {
    VUKO_LOG_PLAIN(LOG_NOTICE, 5, "stopping on SIG%s", sigabbrev_np(iSignal));
    if (_bStopping) {
        sd_event_exit(_event.get(), EXIT_ORDERLY);
        return;
    }
    _bStopping = true;
    Notify::Stopping();
    _core.BeginStop(_options.eOnStop);
    ArmDeadline();
    if (_options.eOnStop == OnStop::Leave) {
        sd_event_exit(_event.get(), EXIT_ORDERLY);
    } else if (!_core.IsQuiet()) {
        VUKO_LOG_PLAIN(LOG_NOTICE, 15, "waiting for %zu running jobs", _core.Going().Going());
    }
    Settle();
}

/// Ends a stop that has nothing left to wait for.
void Daemon::Settle() {
    if (_bStopping && _core.IsQuiet()) {
        sd_event_exit(_event.get(), EXIT_ORDERLY);
    }
}

void Daemon::ArmMinute(const std::optional<ClockReading>& reading) {
    if (!reading) {
        VUKO_LOG_PLAIN(LOG_ERR, 9, "the time cannot be converted to local time");
    }
    _tNextMinute = reading ? reading->NextMinute() : time(nullptr) + SLEEP_TIME;
    _timer.Arm(_tNextMinute);
}

void Daemon::ArmDeadline() {
    const std::optional<std::int64_t> next = _core.NextDeadlineUsec();
    if (next) {
        Check(sd_event_source_set_time(_deadlineTimer.get(), static_cast<std::uint64_t>(*next)),
              "sd_event_source_set_time");
    }
    Check(sd_event_source_set_enabled(_deadlineTimer.get(), next ? SD_EVENT_ONESHOT : SD_EVENT_OFF),
          "sd_event_source_set_enabled");
}

std::string Daemon::StatusText() {
    const Role eRole = _role.RoleAt(RealtimeUsec());
    return std::string(ToText(eRole)) + ", " + std::to_string(_core.Jobs().Size()) + " jobs, " +
           std::to_string(_core.Going().Going()) + " running, " + std::to_string(_core.Refusals().size()) + " refused";
}

void Daemon::PublishMetrics() {
    if (_options.strMetricsFile.empty() || _core.Hibernates()) { // the disk may be asleep
        return;
    }
    const std::string strReason = WriteMetrics(_options.strMetricsFile, TakeMetrics(_core, _iStarted));
    if (!strReason.empty()) {
        VUKO_LOG_PLAIN(LOG_ERR, 16, "%s", strReason.c_str());
    }
}

} // namespace VUKO::VUKOCrond::Service
