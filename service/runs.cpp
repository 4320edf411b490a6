#include "service/runs.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <utility>

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::int64_t USEC = 1'000'000;

} // namespace

Run& Runs::Add(Run run) {
    const RunId uRun = run.uRun;
    _uGoing += run.bEnded ? 0 : 1;
    _mapChildren[run.pidChild] = uRun;
    return _mapRuns[uRun] = std::move(run);
}

Run* Runs::Find(RunId uRun) {
    const auto it = _mapRuns.find(uRun);
    return it != _mapRuns.end() ? &it->second : nullptr;
}

Run* Runs::FindByChild(pid_t pid) {
    const auto it = _mapChildren.find(pid);
    return it != _mapChildren.end() ? Find(it->second) : nullptr;
}

void Runs::Remove(RunId uRun) {
    const auto it = _mapRuns.find(uRun);
    if (it == _mapRuns.end()) {
        return;
    }
    NoteEnded(it->second);
    const auto itChild = _mapChildren.find(it->second.pidChild);
    if (itChild != _mapChildren.end() && itChild->second == uRun) {
        _mapChildren.erase(itChild);
    }
    _mapRuns.erase(it);
}

void Runs::FollowProgram(Run& run, std::uint64_t uProgramStart) {
    _mapChildren.erase(run.pidChild);
    run.pidChild = run.pidProgram;
    run.uChildStart = uProgramStart;
    run.bAdopted = true;
    _mapChildren[run.pidChild] = run.uRun;
}

void Runs::NoteEnded(Run& run) {
    if (!run.bEnded) {
        run.bEnded = true;
        run.iDeadlineUsec = 0;
        --_uGoing;
    }
}

void Runs::Begin(Run& run, pid_t pidProgram, std::int64_t iNowUsec) {
    if (run.pidProgram != 0) {
        return;
    }
    run.pidProgram = pidProgram;
    if (run.bTermSent) { // TERM found the child, which was past heeding it
        Signal(run, SIGTERM);
    } else if (run.iTimeout > 0 && !run.bEnded) {
        // One that was adopted may have begun before this clock did, which stands still while the machine sleeps.
        run.iDeadlineUsec = std::max<std::int64_t>(1, iNowUsec + run.iTimeout * USEC);
    }
}

void Runs::Terminate(Run& run, std::int64_t iNowUsec) {
    if (run.bEnded || run.bTermSent) {
        return;
    }
    run.bTermSent = true;
    run.iDeadlineUsec = iNowUsec + GRACE_USEC;
    Signal(run, SIGTERM);
}

std::optional<std::int64_t> Runs::NextDeadlineUsec() const {
    std::optional<std::int64_t> next;
    for (const auto& [uRun, run] : _mapRuns) {
        if (run.iDeadlineUsec != 0 && (!next || run.iDeadlineUsec < *next)) {
            next = run.iDeadlineUsec;
        }
    }
    return next;
}

std::vector<const Run*> Runs::Expire(std::int64_t iNowUsec) {
    std::vector<const Run*> vecExpired;
    for (auto& [uRun, run] : _mapRuns) {
        if (run.iDeadlineUsec == 0 || run.iDeadlineUsec > iNowUsec) {
            continue;
        }
        if (!run.bTermSent) {
            Terminate(run, iNowUsec);
            vecExpired.push_back(&run);
        } else {
            run.iDeadlineUsec = iNowUsec + GRACE_USEC; // somebody may have been stopped in the midst of a fork
            Signal(run, SIGKILL);
        }
    }
    return vecExpired;
}

/// A child that still waits out its delay heeds TERM; once it has begun it does not, and the program's group is meant.
void Runs::Signal(const Run& run, int iSignal) {
    if (run.pidProgram > 0) {
        (void)kill(-run.pidProgram, iSignal);
    } else if (iSignal == SIGTERM && run.pidChild > 0) {
        (void)kill(run.pidChild, iSignal);
    }
}

RunEnd LostEnd() {
    RunEnd end;
    end.eKind = EndKind::Lost;
    end.iEndedUsec = std::int64_t{time(nullptr)} * USEC;
    return end;
}

} // namespace VUKO::VUKOCrond::Service
