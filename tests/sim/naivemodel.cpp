#include "tests/sim/naivemodel.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::time_t FOUR_HOURS = 4 * 60 * 60;
constexpr const char* szClockStep = "clock step";
constexpr const char* szOverlap = "overlap";

/// The wall clock's minutes since it showed the epoch.
std::int64_t MinuteOnTheWall(std::time_t tClock) {
    std::tm tmLocal = *localtime(&tClock);
    if (tmLocal.tm_sec != 0) {
        throw std::logic_error("an offset with seconds");
    }
    return timegm(&tmLocal) / 60;
}

bool HoldsAny(const Json::Value& jsValues) {
    return std::any_of(jsValues.begin(), jsValues.end(), [](const Json::Value& jsValue) { return jsValue == -1; });
}

} // namespace

NaiveModel::NaiveModel(bool bLiteral, const std::vector<CronJob>& vecRecords) : _bLiteral(bLiteral) {
    for (const CronJob& record : vecRecords) {
        _vecJobs.push_back(ModelOf(record));
    }
}

NaiveModel::ModelJob NaiveModel::ModelOf(const CronJob& record) {
    const Json::Value& jsSchedule = record._jsJob["schedule"];
    const Json::Value& jsConfig = record._jsJob["config"];
    ModelJob job;
    job.strName = jsConfig["name"].asString();
    const std::vector<std::string>& vecTypes = CronJob::GetAllScheduleTypes();
    for (std::size_t uField = 0; uField < job.avecMatches.size(); ++uField) {
        for (int iValue = 0; iValue < 60; ++iValue) {
            job.avecMatches[uField].push_back(record.IsTypeReady(jsSchedule, vecTypes[uField], iValue));
        }
    }
    job.bWildcard = HoldsAny(jsSchedule["Minute"]) || HoldsAny(jsSchedule["hour"]);
    job.bEnabled = !jsConfig.isMember("enabled") || jsConfig["enabled"].asBool();
    job.bRunOnPassive = jsConfig["run_on_passive"].asBool();
    job.bAssureRun = jsConfig["assure_execute_action"].asString() == "run";
    job.iAssureSec = jsConfig["assure_execute"].asInt64() * 3600;
    job.iBase = record._jsJob["startup"].asInt64();
    return job;
}

bool NaiveModel::Matches(const ModelJob& job, std::int64_t iMinute) {
    const std::time_t tWall = iMinute * 60;
    const std::tm tmWall = *gmtime(&tWall);
    const int aiValues[] = {tmWall.tm_min, tmWall.tm_hour, tmWall.tm_mday, tmWall.tm_mon + 1, tmWall.tm_wday};
    for (std::size_t uField = 0; uField < job.avecMatches.size(); ++uField) {
        if (!job.avecMatches[uField][static_cast<std::size_t>(aiValues[uField])]) {
            return false;
        }
    }
    return true;
}

std::vector<ModelOutcome> NaiveModel::Run(std::time_t tFrom, std::time_t tTo,
                                          const std::vector<ModelEvent>& vecEvents) {
    _strCause = szClockStep;
    std::size_t uNextEvent = 0;
    bool bBegun = false;
    // The first whole minute of the undisturbed hours.
    _tClock = (tFrom - FOUR_HOURS + 59) / 60 * 60;
    while (_tClock <= tTo) {
        if (_tClock % 60 == 0) {
            bBegun = bBegun || _tClock >= tFrom;
            if (bBegun) {
                Look();
            } else {
                LookBeforehand();
            }
        }
        const std::time_t tNextMinute = (_tClock / 60 + 1) * 60;
        if (uNextEvent < vecEvents.size() && vecEvents[uNextEvent].tInstant <= std::min(tNextMinute, tTo)) {
            _tClock = std::max(_tClock, vecEvents[uNextEvent].tInstant);
            const std::time_t tInstant = _tClock;
            while (uNextEvent < vecEvents.size() && vecEvents[uNextEvent].tInstant <= tInstant) {
                Happen(vecEvents[uNextEvent++]);
            }
        } else {
            _tClock = tNextMinute;
        }
    }
    std::sort(_vecOutcomes.begin(), _vecOutcomes.end());
    return _vecOutcomes;
}

void NaiveModel::Happen(const ModelEvent& event) {
    if (event.strWhat == "clock") {
        _tClock += event.iSeconds;
        _tUpAgain += event.iSeconds;
        _tAwakeAgain += event.iSeconds;
    } else if (event.strWhat == "down") {
        _tUpAgain = _tClock + event.iSeconds;
    } else if (event.strWhat == "hibernate") {
        _tAwakeAgain = _tClock + event.iSeconds;
    } else {
        _bPassive = event.strWhat == "passive";
    }
}

/// Of the hours before, only how far the clock was worked on counts.
void NaiveModel::LookBeforehand() {
    const std::int64_t iMinute = MinuteOnTheWall(_tClock);
    const std::int64_t iPassed = iMinute - _iWorkedUpTo;
    if (!_bLooked || _bLiteral || iPassed < -180 || iPassed > 0) {
        _iWorkedUpTo = iMinute;
    }
    _bLooked = true;
    _iLastLook = iMinute;
}

/// One tick, at the start of a minute.
void NaiveModel::Look() {
    const std::int64_t iMinute = MinuteOnTheWall(_tClock);
    if (!_bLooked) {
        _iWorkedUpTo = iMinute - 1;
    } else if (iMinute == _iLastLook) {
        return;
    }
    if (_tClock < _tUpAgain) {
        _strCause = "service down";
        return;
    }
    _bLooked = true;
    _iLastLook = iMinute;
    if (_tClock < _tAwakeAgain && !_bLiteral) {
        _strCause = "hibernating";
        return;
    }
    const std::int64_t iPassed = iMinute - _iWorkedUpTo;
    for (ModelJob& job : _vecJobs) {
        LookAtJob(job, iMinute, iPassed);
    }
    if (_bLiteral || iPassed < -180 || iPassed > 0) {
        _iWorkedUpTo = iMinute;
    }
    _strCause = szClockStep;
}

/// The minutes for which a job is due at a tick, youngest first: the table, row by row.
std::vector<std::int64_t> NaiveModel::DueMinutes(const ModelJob& job, std::int64_t iMinute,
                                                 std::int64_t iPassed) const {
    std::int64_t iOldest = iMinute;
    if (!_bLiteral) {
        if (iPassed >= -180 && iPassed <= 0 && !job.bWildcard) {
            return {};
        }
        if (iPassed >= 2 && iPassed <= 5) {
            iOldest = _iWorkedUpTo + 1;
        }
        if (iPassed >= 6 && iPassed <= 180 && !job.bWildcard) {
            iOldest = _iWorkedUpTo + 1;
        }
    }
    std::vector<std::int64_t> vecDue;
    for (std::int64_t i = iMinute; i >= iOldest; --i) {
        if (Matches(job, i)) {
            vecDue.push_back(i);
        }
    }
    return vecDue;
}

/// The minutes that a job matches and that nobody looked at, or that it must not run in again.
std::vector<std::int64_t> NaiveModel::PassedOver(const ModelJob& job, std::int64_t iMinute,
                                                 std::int64_t iPassed) const {
    std::vector<std::int64_t> vecPassed;
    if (_bLiteral) {
        return vecPassed;
    }
    std::int64_t iOldest = _iWorkedUpTo + 1;
    if (iPassed > 180) {
        // Minutes that a clock jumped over never were; of a long absence no more is told than its last day.
        iOldest = _strCause == szClockStep ? iMinute : std::max(iOldest, iMinute - 24 * 60);
    }
    for (std::int64_t i = iOldest; i < iMinute; ++i) {
        if (Matches(job, i)) {
            vecPassed.push_back(i);
        }
    }
    if (iPassed >= -180 && iPassed <= 0 && !job.bWildcard && Matches(job, iMinute)) {
        vecPassed.push_back(iMinute);
    }
    return vecPassed;
}

void NaiveModel::LookAtJob(ModelJob& job, std::int64_t iMinute, std::int64_t iPassed) {
    const std::vector<std::int64_t> vecDue = DueMinutes(job, iMinute, iPassed);
    if (!vecDue.empty()) {
        const std::string strAgainst = WhyNot(job);
        const bool bNow = vecDue.front() == iMinute;
        Tell(job, vecDue.front(), !strAgainst.empty() ? strAgainst : bNow ? "due" : "made-up");
        if (strAgainst.empty()) {
            job.iBase = _tClock;
            job.bReported = false;
        }
    }
    for (const std::int64_t iPassedMinute : PassedOver(job, iMinute, iPassed)) {
        if (vecDue.empty() || iPassedMinute != vecDue.front()) {
            const bool bAgain = iPassedMinute == iMinute;
            Tell(job, iPassedMinute,
                 bAgain          ? szClockStep
                 : job.bInvalid  ? "definition invalid"
                 : !job.bEnabled ? "disabled"
                                 : _strCause);
        }
    }
    LookAtGuarantee(job, iMinute, !vecDue.empty() || (iPassed <= 0 && Matches(job, iMinute)));
}

void NaiveModel::LookAtGuarantee(ModelJob& job, std::int64_t iMinute, bool bHadTurn) {
    if (job.iAssureSec == 0) {
        return;
    }
    job.iBase = std::min<std::int64_t>(job.iBase, _tClock);
    const std::string strAgainst = WhyNot(job);
    if (bHadTurn || !_bSettled || _tClock <= job.iBase + job.iAssureSec ||
        (!strAgainst.empty() && strAgainst != szOverlap) || (job.bBusy && job.bAssureRun)) {
        return;
    }
    if (job.bAssureRun) {
        Tell(job, iMinute, "assure");
        job.iBase = _tClock;
    } else if (!job.bReported) {
        Tell(job, iMinute, "overdue");
        job.bReported = true;
    }
}

std::string NaiveModel::WhyNot(const ModelJob& job) const {
    return job.bInvalid                      ? "definition invalid"
           : !job.bEnabled                   ? "disabled"
           : _tClock < _tAwakeAgain          ? "hibernating"
           : _bPassive && !job.bRunOnPassive ? "passive"
           : job.bBusy && job.bBusyMatters   ? szOverlap
                                             : "";
}

void NaiveModel::Tell(const ModelJob& job, std::int64_t iMinute, const std::string& strWhat) {
    _vecOutcomes.push_back({_tClock, job.strName, iMinute, strWhat});
}

} // namespace sim
