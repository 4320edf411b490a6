#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <limits>
#include <vector>

#include "service/engine/engine.h"

namespace VUKO::VUKOCrond::Service {

/// Something that happens to the machine at an instant of the virtual clock.
struct SimEvent {
    enum class Kind {
        Clock,     ///< the clock is set by so many seconds, on or back
        Down,      ///< the service is down for so many seconds
        Hibernate, ///< the machine hibernates for so many seconds
        Passive,   ///< the role becomes passive
        Active     ///< the role becomes active
    };
    std::time_t tInstant = 0;
    Kind eKind = Kind::Clock;
    std::int64_t iSeconds = 0;
};

/// Runs the service's decisions on a virtual clock, without starting anything: every start succeeds at once, and ends
/// at once. The zone is the process's.
///
/// The service has run undisturbed for four hours when the time that is asked about begins.
class Simulator {
public:
    struct Settings {
        ClockPolicy ePolicy = ClockPolicy::CatchUp;
        int iMaxDelay = 0;
    };
    /// Told of each tick that decides something, in order. @return false to end the simulation.
    using Told = std::function<bool(const ClockReading& reading, const Decision& decision, const JobTable& table)>;

    Simulator(const Settings& settings, JobTable table) : _settings(settings), _table(std::move(table)) {}

    /// @param tFrom      the jobs are as they were given at that instant; no event may lie before it.
    /// @param tTo        the last instant that is looked at.
    /// @param vecEvents  in the order of their instants.
    void Run(std::time_t tFrom, std::time_t tTo, const std::vector<SimEvent>& vecEvents, const Told& told);

    const JobTable& Jobs() const { return _table; }

private:
    /// Before any instant, and with room for what is added.
    static constexpr std::time_t NOT_YET = std::numeric_limits<std::time_t>::min() / 2;

    void Happen(const SimEvent& event);
    void PassUndisturbed(const ClockReading& reading);
    void Tick(const ClockReading& reading, const Told& told);

    Settings _settings;
    JobTable _table;
    std::time_t _tNow = 0;
    std::time_t _tDownUntil = NOT_YET;
    std::time_t _tAsleepUntil = NOT_YET;
    std::time_t _tLastTick = 0;
    std::int64_t _iWorkedUpTo = 0;
    std::int64_t _iLastMinute = 0;
    SkipReason _eGapCause = SkipReason::ClockStep;
    bool _bPassive = false;
    bool _bHasTicked = false;
    bool _bLookForFuture = true;
    bool _bGoesOn = true;
};

/// The reading that the service would make at an instant, by the zone of the process.
///
/// @return nothing when the time cannot be converted.
std::optional<ClockReading> ReadingAt(std::time_t tInstant);

} // namespace VUKO::VUKOCrond::Service
