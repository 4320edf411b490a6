#include "service/engine/simulator.h"

#include <algorithm>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::time_t UNDISTURBED_SEC = 4 * 3600;

} // namespace

std::optional<ClockReading> ReadingAt(std::time_t tInstant) {
    std::tm tmLocal = {};
    return localtime_r(&tInstant, &tmLocal) == nullptr ? std::nullopt : MakeReading(tInstant, tmLocal);
}

void Simulator::Run(std::time_t tFrom, std::time_t tTo, const std::vector<SimEvent>& vecEvents, const Told& told) {
    _tNow = tFrom - UNDISTURBED_SEC;
    auto itEvent = vecEvents.begin();
    bool bMinuteBegins = true;
    bool bBegun = false;
    // The clock may be set back past the end again and again, but each event happens once, so this ends.
    while (_bGoesOn && _tNow <= tTo) {
        const std::optional<ClockReading> reading = ReadingAt(_tNow);
        if (!reading) {
            return;
        }
        bBegun = bBegun || _tNow >= tFrom;
        if (bMinuteBegins || reading->iSecond == 0) {
            if (bBegun) {
                Tick(*reading, told);
            } else {
                PassUndisturbed(*reading);
            }
        }
        const std::time_t tNext = reading->NextMinute();
        bMinuteBegins = itEvent == vecEvents.end() || itEvent->tInstant > std::min(tNext, tTo);
        if (bMinuteBegins) {
            _tNow = tNext;
            continue;
        }
        // What happens at the very beginning of a minute is there when the minute is looked at.
        const std::time_t tEvent = std::max(_tNow, itEvent->tInstant);
        for (_tNow = tEvent; itEvent != vecEvents.end() && itEvent->tInstant <= tEvent; ++itEvent) {
            Happen(*itEvent);
        }
    }
}

void Simulator::Happen(const SimEvent& event) {
    switch (event.eKind) {
    case SimEvent::Kind::Clock:
        _tNow += event.iSeconds;
        _tDownUntil += event.iSeconds;
        _tAsleepUntil += event.iSeconds;
        break;
    case SimEvent::Kind::Down:
        _tDownUntil = _tNow + event.iSeconds;
        break;
    case SimEvent::Kind::Hibernate:
        _tAsleepUntil = _tNow + event.iSeconds;
        break;
    case SimEvent::Kind::Passive:
        _bPassive = true;
        break;
    case SimEvent::Kind::Active:
        _bPassive = false;
        break;
    }
}

/// Nothing but the clock is left behind by the hours before: what the jobs did then, their stamps tell.
void Simulator::PassUndisturbed(const ClockReading& reading) {
    if (!_bHasTicked || reading.iLocalMinute != _iLastMinute) {
        const std::int64_t iBefore = _bHasTicked ? _iWorkedUpTo : reading.iLocalMinute - 1;
        _iWorkedUpTo = WindowOf(_settings.ePolicy, iBefore, reading.iLocalMinute).iWorkedUpTo;
        _iLastMinute = reading.iLocalMinute;
        _bHasTicked = true;
    }
}

void Simulator::Tick(const ClockReading& reading, const Told& told) {
    if (_bHasTicked && reading.iLocalMinute == _iLastMinute) {
        return;
    }
    if (_bHasTicked && _tNow < _tDownUntil) {
        _eGapCause = SkipReason::ServiceDown;
        return;
    }
    TickInput input;
    input.reading = reading;
    input.ePolicy = _settings.ePolicy;
    input.iWorkedUpTo = _bHasTicked ? _iWorkedUpTo : reading.iLocalMinute - 1;
    input.eGapCause = _eGapCause;
    input.bHibernating = _tNow < _tAsleepUntil;
    input.bPassive = _bPassive;
    _bLookForFuture = _bLookForFuture || reading.tNow < _tLastTick;
    input.bLookForFuture = _bLookForFuture;
    input.iMaxDelay = _settings.iMaxDelay;
    const Decision decision = Decide(input, _table);
    _bHasTicked = true;
    _iLastMinute = reading.iLocalMinute;
    _tLastTick = reading.tNow;
    _bLookForFuture = input.bHibernating && input.bLookForFuture; // nothing was looked for then
    _iWorkedUpTo = decision.iWorkedUpTo;
    _eGapCause = input.bHibernating ? SkipReason::Hibernating : SkipReason::ClockStep;
    for (const JobIndex uJob : decision.vecFuture) {
        _table.Modify(uJob, [&](Job& job) {
            (job.iLastExecution == Job::NEVER ? job.iStartup : job.iLastExecution) = reading.tNow;
        });
    }
    for (const JobIndex uJob : decision.vecOverdue) {
        _table.Modify(uJob, [](Job& job) { job.bOverdueReported = true; });
    }
    for (const Start& start : decision.vecStarts) {
        _table.Modify(start.uJob, [&](Job& job) {
            job.iLastExecution = reading.tNow;
            job.bOverdueReported = false;
        });
    }
    if (!decision.IsIdle()) {
        _bGoesOn = told(reading, decision, _table);
    }
}

} // namespace VUKO::VUKOCrond::Service
