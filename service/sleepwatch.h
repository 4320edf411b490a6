#pragma once

#include <functional>
#include <memory>
#include <string>

struct sd_event;

namespace VUKO::VUKOCrond::Service {

/// Hears of the machine's sleep (suspend and hibernation) before it comes, from logind on the system bus, and holds it
/// up for as long as it takes to save. Without a bus or without logind it hears nothing and does no harm; it never
/// waits for either.
class SleepWatch {
public:
    /// Both are called from the loop. What they throw ends nothing; TakeProblem() tells.
    struct Callbacks {
        std::function<void()> onSleep; ///< the machine sleeps as soon as this has returned
        std::function<void()> onWake;
    };

    /// Begins to connect.
    SleepWatch(sd_event* pEvent, Callbacks callbacks);
    ~SleepWatch();
    SleepWatch(const SleepWatch&) = delete;
    SleepWatch& operator=(const SleepWatch&) = delete;

    /// Tries again whatever has failed since; does nothing where all is well or under way. To be called every minute or
    /// so. (A logind that comes later is met without it.)
    void Retry();

    /// Whether the machine's sleep would wait for this.
    bool HoldsSleep() const;

    /// Why it hears nothing, fit for a log line, once for each new reason; empty when there is none. That there is no
    /// bus or no logind is no problem.
    std::string TakeProblem();

private:
    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
