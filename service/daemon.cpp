#include "service/daemon.h"

#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <system_error>

#include "base/syslog_line.h"
#include "service/launch/oldlaunch.h"
#include "service/logtext.h"
#include "service/launch/reaper.h"
#include "service/report.h"
#include "service/scheduler.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr const char* szLogSource = "daemon";

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

void DropEventLoop(sd_event* pEvent) {
    sd_event_unref(pEvent);
}

/// The minute in which the service starts counts as worked on: an instance before this one may have done it.
std::int64_t CurrentMinute() {
    const std::optional<ClockReading> reading = ReadClock();
    return reading ? reading->iLocalMinute : 0;
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

void LogEnds(const std::vector<ReapedChild>& vecReaped) {
    for (const ReapedChild& child : vecReaped) {
        LogEnd(child, std::string());
    }
}

void NotifyReloading() {
    timespec tsNow = {};
    clock_gettime(CLOCK_MONOTONIC, &tsNow);
    const unsigned long long ullMicroseconds = static_cast<unsigned long long>(tsNow.tv_sec) * 1000000ULL +
                                               static_cast<unsigned long long>(tsNow.tv_nsec) / 1000ULL;
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%llu", ullMicroseconds);
}

} // namespace

Daemon::Daemon(const Options& options)
    : _options(options), _clock(CurrentMinute()), _event(NewEventLoop(), DropEventLoop) {
    Check(sd_event_add_io(_event.get(), nullptr, _timer.Descriptor(), EPOLLIN, OnTimer, this), "sd_event_add_io");
    for (const int iSignal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
        Check(sd_event_add_signal(_event.get(), nullptr, iSignal, OnSignal, this), "sd_event_add_signal");
    }
}

Daemon::~Daemon() = default;

ExitStatus Daemon::Run() {
    if (geteuid() != 0) {
        VUKO_LOG_PLAIN(LOG_WARNING, 2, "not running as root: every job runs as uid %u, whatever account it names",
                       static_cast<unsigned>(geteuid()));
    }
    Load();
    VUKO_LOG_PLAIN(LOG_NOTICE, 3, "vukocrond " VUKO_VERSION " is ready");
    sd_notify(0, "READY=1");
    LogEnds(ReapChildren()); // whoever ended before the signals were watched
    ArmTimer(ReadClock());
    const int iStatus = sd_event_loop(_event.get());
    Check(iStatus, "sd_event_loop");
    VUKO_LOG_PLAIN(LOG_NOTICE, 4, "stopped, running jobs are left running");
    return iStatus == 0 ? EXIT_ORDERLY : EXIT_FAILED;
}

int Daemon::OnTimer(sd_event_source* /*pSource*/, int /*iFd*/, std::uint32_t /*uEvents*/, void* pDaemon) {
    return Guarded("tick", [pDaemon] { static_cast<Daemon*>(pDaemon)->HandleTimer(); });
}

int Daemon::OnSignal(sd_event_source* /*pSource*/, const signalfd_siginfo* pInfo, void* pDaemon) {
    const int iSignal = static_cast<int>(pInfo->ssi_signo);
    return Guarded("signal", [pDaemon, iSignal] { static_cast<Daemon*>(pDaemon)->HandleSignal(iSignal); });
}

/// When the clock was set, the middle of a minute is no tick: it only means that the next one begins at another
/// instant than the timer knows.
void Daemon::HandleTimer() {
    const MinuteTimer::Event eEvent = _timer.Consume();
    const std::optional<ClockReading> reading = ReadClock();
    try {
        ArmTimer(reading); // first: nothing that a job does may cost the next tick
    } catch (const std::exception&) {
        sd_event_exit(_event.get(), EXIT_FAILED); // a service that lives and never ticks again is worse than none
        throw;
    }
    if (eEvent == MinuteTimer::Event::Expired && reading) {
        Tick(*reading);
    }
}

void Daemon::HandleSignal(int iSignal) {
    switch (iSignal) {
    case SIGCHLD:
        LogEnds(ReapChildren());
        break;
    case SIGHUP:
        Reload();
        break;
    default:
        VUKO_LOG_PLAIN(LOG_NOTICE, 5, "stopping on SIG%s", sigabbrev_np(iSignal));
        sd_notify(0, "STOPPING=1");
        sd_event_exit(_event.get(), 0);
        break;
    }
}

void Daemon::Load() {
    const LoadReport report = _store.Load(ScanDefinitions());
    for (const std::string& strRefusal : report.vecRefusals) {
        VUKO_LOG_PLAIN(LOG_WARNING, 6, "%s", strRefusal.c_str());
    }
    VUKO_LOG_PLAIN(LOG_NOTICE, 7, "loaded %s", Summary(report).c_str());
    if (_options.bPrintSchedule) {
        PrintSchedule(std::cout, _store.Jobs());
    }
}

void Daemon::Reload() {
    NotifyReloading();
    Guarded("reload", [this] { Load(); });
    sd_notify(0, "READY=1"); // also after a failure: the service works on with what it has
}

void Daemon::Tick(const ClockReading& reading) {
    const Decision decision = Decide(reading, _clock.Advance(reading.iLocalMinute), _store.Jobs());
    for (const Fault& fault : decision.vecFaults) {
        VUKO_LOG_PLAIN(LOG_ERR, 8, "job %s cannot be judged: %s", ToText(fault.id).c_str(),
                       Escaped(fault.strReason).c_str());
    }
    for (const Start& start : decision.vecStarts) {
        Guarded("start", [this, &start, &reading] {
            ScheduledJob& job = _store.Jobs().at(start.id);
            MarkReady(job, start.eReason, reading);
            Launch(job);
        });
    }
}

void Daemon::ArmTimer(const std::optional<ClockReading>& reading) {
    if (!reading) {
        VUKO_LOG_PLAIN(LOG_ERR, 9, "the time cannot be converted to local time");
    }
    _timer.Arm(reading ? reading->NextMinute() : time(nullptr) + SLEEP_TIME);
}

} // namespace VUKO::VUKOCrond::Service
