#include "service/engine/engine.h"

#include <algorithm>

namespace VUKO::VUKOCrond::Service {

namespace {

/// Minutes that the clock passed over are told of one by one no further back than that: whoever was down for longer
/// finds the machine's own log.
constexpr std::int64_t MAX_GAP_TOLD = 24 * 60;
/// So many passed-over minutes of all jobs together: the ledger forgets the oldest of each job anyway, and a day's
/// worth of very many jobs must not cost the memory that the machine needs. The youngest are told of.
constexpr std::size_t MAX_PASSED_TOLD = 1'000'000;

/// Makes up one decision. The steps share what they found.
class Decider {
public:
    Decider(const TickInput& input, const JobTable& table)
        : _input(input), _table(table), _window(WindowOf(input.ePolicy, input.iWorkedUpTo, input.reading.iLocalMinute)),
          _vecHadTurn(table.Size(), false) {}

    Decision Take() {
        _decision.iWorkedUpTo = _window.iWorkedUpTo;
        LookAtPending();
        LookAtNow();
        LookBack();
        TellOfLongGap();
        LookAtAssured();
        Order();
        Spread();
        return std::move(_decision);
    }

private:
    void LookAtPending();
    void LookAtNow();
    void LookBack();
    void TellOfLongGap();
    void LookAtAssured();
    void Lapse(JobIndex uJob);
    void Order();
    void Spread();

    template <typename Visit>
    void ForEachMatching(std::int64_t iMinute, const Visit& visit);
    void StartOrSkip(JobIndex uJob, StartReason eReason, std::int64_t iMinute);
    void PassOver(JobIndex uJob, std::int64_t iMinute);

    const TickInput& _input;
    const JobTable& _table;
    const TickWindow _window;
    Decision _decision;
    std::vector<JobIndex> _vecMatching;
    std::vector<bool> _vecHadTurn; ///< by job: it has had its one start, or the reason against it
};

template <typename Visit>
void Decider::ForEachMatching(std::int64_t iMinute, const Visit& visit) {
    _vecMatching.clear();
    _table.Matching(WallMinuteOf(iMinute), _vecMatching);
    for (const JobIndex uJob : _vecMatching) {
        visit(uJob, _table.At(uJob));
    }
}

void Decider::StartOrSkip(JobIndex uJob, StartReason eReason, std::int64_t iMinute) {
    _vecHadTurn[uJob] = true;
    const SkipReason eWhyNot = WhyNotNow(_input, _table.At(uJob));
    if (eWhyNot == SkipReason::None) {
        _decision.vecStarts.push_back({uJob, eReason, iMinute, 0});
    } else {
        _decision.vecSkips.push_back({uJob, eWhyNot, iMinute, eReason == StartReason::Retry});
    }
}

/// A pending start is given up when the job is due again now (that start takes its place) or has been tried often.
void Decider::LookAtPending() {
    if (_table.Pending().empty()) {
        return;
    }
    std::vector<JobIndex> vecDueNow;
    ForEachMatching(_window.iNow, [&](JobIndex uJob, const Job& job) {
        if (job.IsPending() && (_window.bFixedDueNow || job.schedule.IsWildcard())) {
            vecDueNow.push_back(uJob);
        }
    });
    std::sort(vecDueNow.begin(), vecDueNow.end());
    for (const JobIndex uJob : _table.Pending()) {
        const Job& job = _table.At(uJob);
        const bool bDueNow = std::binary_search(vecDueNow.begin(), vecDueNow.end(), uJob);
        if (bDueNow || job.iPendingTicks >= MAX_RETRIES) {
            _decision.vecSkips.push_back({uJob, SkipReason::ForkFailed, job.iPendingMinute, true});
        } else {
            StartOrSkip(uJob, StartReason::Retry, job.iPendingMinute);
        }
    }
}

void Decider::LookAtNow() {
    ForEachMatching(_window.iNow, [this](JobIndex uJob, const Job& job) {
        if (_window.bFixedDueNow || job.schedule.IsWildcard()) {
            StartOrSkip(uJob, StartReason::Due, _window.iNow);
        } else {
            _vecHadTurn[uJob] = true;
            _decision.vecSkips.push_back({uJob, SkipReason::ClockStep, _window.iNow, false});
        }
    });
}

/// Youngest minute first: the start that makes up for several minutes is put down to the last of them, and the others
/// are told of as passed over.
void Decider::LookBack() {
    for (std::int64_t iMinute = _window.iNow - 1; iMinute >= _window.iOldest; --iMinute) {
        ForEachMatching(iMinute, [this, iMinute](JobIndex uJob, const Job& job) {
            if ((_window.bWildcardLooksBack || !job.schedule.IsWildcard()) && !_vecHadTurn[uJob]) {
                StartOrSkip(uJob, StartReason::MadeUp, iMinute);
            } else {
                PassOver(uJob, iMinute);
            }
        });
    }
}

/// What would have kept the job from running in any case is the reason rather than that nobody looked.
void Decider::PassOver(JobIndex uJob, std::int64_t iMinute) {
    if (_decision.vecSkips.size() >= MAX_PASSED_TOLD) {
        return;
    }
    const Job& job = _table.At(uJob);
    const SkipReason eOwn = job.bInvalid    ? SkipReason::DefinitionInvalid
                            : !job.bEnabled ? SkipReason::Disabled
                                            : SkipReason::None;
    _decision.vecSkips.push_back({uJob, eOwn == SkipReason::None ? _input.eGapCause : eOwn, iMinute, false});
}

/// After a long absence no minute is made up for, but each that really passed is told of. A clock that was set passed
/// over nothing: those minutes never were.
void Decider::TellOfLongGap() {
    const std::int64_t iPassed = _window.iNow - _input.iWorkedUpTo;
    if (_window.HasGap() || iPassed <= 1 || _input.ePolicy == ClockPolicy::Literal ||
        _input.eGapCause == SkipReason::ClockStep) {
        return;
    }
    const std::int64_t iOldest = std::max(_input.iWorkedUpTo + 1, _window.iNow - MAX_GAP_TOLD);
    for (std::int64_t iMinute = _window.iNow - 1; iMinute >= iOldest; --iMinute) {
        ForEachMatching(iMinute, [this, iMinute](JobIndex uJob, const Job&) { PassOver(uJob, iMinute); });
    }
}

/// A stamp ahead of the clock counts as now, from which only a negative guarantee has run out.
void Decider::LookAtAssured() {
    const std::int64_t iNow = _input.reading.tNow;
    if (_input.bLookForFuture) {
        _table.ForEachAssured([&](JobIndex uJob) {
            const Job& job = _table.At(uJob);
            if (job.AssureBase() > iNow) {
                _decision.vecFuture.push_back(uJob);
                if (job.AssurePeriod() < 0) {
                    Lapse(uJob);
                }
            }
        });
    }
    _table.ForEachOverdue(iNow, [&](JobIndex uJob) {
        if (_table.At(uJob).AssureBase() <= iNow) {
            Lapse(uJob);
        }
    });
}

void Decider::Lapse(JobIndex uJob) {
    if (_vecHadTurn[uJob] || !_input.bBootSettled) {
        return;
    }
    const Job& job = _table.At(uJob);
    const SkipReason eWhyNot = WhyNotNow(_input, job);
    if (job.bAssureRun) {
        if (eWhyNot == SkipReason::None && job.uRunning == 0 && !job.IsPending()) {
            _decision.vecStarts.push_back({uJob, StartReason::Assure, _window.iNow, 0});
        }
    } else if (!job.bOverdueReported && (eWhyNot == SkipReason::None || eWhyNot == SkipReason::Overlap)) {
        _decision.vecOverdue.push_back(uJob);
    }
}

/// By the order of the jobs, so that what a tick does never depends on how the jobs are found.
void Decider::Order() {
    std::stable_sort(_decision.vecStarts.begin(), _decision.vecStarts.end(), [](const Start& a, const Start& b) {
        const bool bRetryA = a.eReason == StartReason::Retry;
        const bool bRetryB = b.eReason == StartReason::Retry;
        return bRetryA != bRetryB ? bRetryA : a.uJob < b.uJob;
    });
    std::stable_sort(_decision.vecSkips.begin(), _decision.vecSkips.end(), [](const Skip& a, const Skip& b) {
        return a.iMinute != b.iMinute ? a.iMinute < b.iMinute : a.uJob < b.uJob;
    });
}

void Decider::Spread() {
    const auto isSpread = [this](const Start& start) {
        return start.eReason == StartReason::Assure || _table.At(start.uJob).bRandomMinute;
    };
    std::vector<Start>& vecStarts = _decision.vecStarts;
    const auto uCount = static_cast<std::size_t>(std::count_if(vecStarts.begin(), vecStarts.end(), isSpread));
    std::size_t uIndex = 0;
    for (Start& start : vecStarts) {
        if (isSpread(start)) {
            start.iDelaySec = SpreadDelay(uIndex++, uCount, _input.iMaxDelay);
        }
    }
}

} // namespace

const char* ToText(StartReason eReason) {
    switch (eReason) {
    case StartReason::Due:
        return "due";
    case StartReason::MadeUp:
        return "made-up";
    case StartReason::Retry:
        return "retry";
    case StartReason::Assure:
        break;
    }
    return "assure";
}

SkipReason WhyNotNow(const TickInput& input, const Job& job) {
    if (job.bInvalid) {
        return SkipReason::DefinitionInvalid;
    }
    if (!job.bEnabled) {
        return SkipReason::Disabled;
    }
    if (input.bStopping) {
        return SkipReason::Stopping;
    }
    if (input.bHibernating) {
        return SkipReason::Hibernating;
    }
    if (input.bPassive && !job.bRunOnPassive) {
        return SkipReason::Passive;
    }
    if (job.uRunning != 0 && !job.bAllowOverlap) {
        return SkipReason::Overlap;
    }
    return SkipReason::None;
}

int SpreadDelay(std::size_t uIndex, std::size_t uCount, int iMaxDelay) {
    if (iMaxDelay <= 0 || uCount == 0) {
        return 0;
    }
    return static_cast<int>(uIndex * static_cast<std::uint64_t>(iMaxDelay) / uCount);
}

Decision Decide(const TickInput& input, const JobTable& table) {
    if (input.bHibernating && input.ePolicy == ClockPolicy::CatchUp) {
        Decision decision;
        decision.iWorkedUpTo = input.iWorkedUpTo;
        return decision;
    }
    return Decider(input, table).Take();
}

} // namespace VUKO::VUKOCrond::Service
