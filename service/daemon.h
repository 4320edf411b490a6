#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "service/jobstore.h"
#include "service/minuteclock.h"
#include "service/minutetimer.h"
#include "service/options.h"

struct sd_event;
struct sd_event_source;
struct signalfd_siginfo;

namespace VUKO::VUKOCrond::Service {

/// The service at work: one thread that sleeps until a minute begins, a signal arrives or a child ends. It holds the
/// descriptors and calls the parts that decide, start and reap; it decides nothing itself.
class Daemon {
public:
    /// Takes hold of the signals (which are to be blocked already) and the clock.
    ///
    /// @throws std::system_error when the kernel refuses one of them.
    explicit Daemon(const Options& options);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// Loads the jobs and works until it is told to stop. Running jobs are left running then.
    ExitStatus Run();

private:
    static int OnTimer(sd_event_source* pSource, int iFd, std::uint32_t uEvents, void* pDaemon);
    static int OnSignal(sd_event_source* pSource, const signalfd_siginfo* pInfo, void* pDaemon);

    void HandleTimer();
    void HandleSignal(int iSignal);
    void Load();
    void Reload();
    void Tick(const ClockReading& reading);
    void ArmTimer(const std::optional<ClockReading>& reading);

    Options _options;
    JobStore _store;
    MinuteTimer _timer;
    MinuteClock _clock;
    std::unique_ptr<sd_event, void (*)(sd_event*)> _event;
};

} // namespace VUKO::VUKOCrond::Service
