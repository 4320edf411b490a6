#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "crond/cronjob.h"

namespace sim {

using VUKO::VUKOCrond::CronJob;

/// What became of one minute of one job at one tick.
struct ModelOutcome {
    std::time_t tTick = 0;
    std::string strJob;
    std::int64_t iMinute = 0; ///< the due minute, counted on the wall clock
    std::string strWhat;      ///< "due", "made-up", "assure", "overdue", or the reason against a start

    auto operator<=>(const ModelOutcome&) const = default;
};

struct ModelEvent {
    std::time_t tInstant = 0;
    std::string strWhat; ///< "clock", "down", "hibernate", "passive", "active"
    std::int64_t iSeconds = 0;
};

/// The rules of the clock in the plainest form: minute by minute, job by job, each job asked whether it matches. Slow,
/// and made without a look at how the service does it, so that the two do not share their mistakes. Every start
/// succeeds and ends at once; the zone is the process's, and its offset has no seconds.
class NaiveModel {
public:
    NaiveModel(bool bLiteral, const std::vector<CronJob>& vecRecords);

    /// What happens from `tFrom` to `tTo`, both included, to a service that has run undisturbed for four hours before;
    /// in order.
    std::vector<ModelOutcome> Run(std::time_t tFrom, std::time_t tTo, const std::vector<ModelEvent>& vecEvents);

protected:
    struct ModelJob {
        std::string strName;
        std::array<std::vector<bool>, 5> avecMatches; ///< by field and value, as the library answers
        bool bWildcard = false;
        bool bEnabled = true;
        bool bRunOnPassive = false;
        bool bAssureRun = false;
        std::int64_t iAssureSec = 0;
        std::int64_t iBase = 0; ///< what its guarantee counts from
        bool bReported = false;
        bool bInvalid = false;    ///< its file is refused for now
        bool bBusy = false;       ///< a run of it is going on,
        bool bBusyMatters = true; ///< and stands in the way of another
    };

    static ModelJob ModelOf(const CronJob& record);
    static bool Matches(const ModelJob& job, std::int64_t iMinute);
    void Happen(const ModelEvent& event);
    void LookBeforehand();
    void Look();
    void LookAtJob(ModelJob& job, std::int64_t iMinute, std::int64_t iPassed);
    void LookAtGuarantee(ModelJob& job, std::int64_t iMinute, bool bHadTurn);
    std::vector<std::int64_t> DueMinutes(const ModelJob& job, std::int64_t iMinute, std::int64_t iPassed) const;
    std::vector<std::int64_t> PassedOver(const ModelJob& job, std::int64_t iMinute, std::int64_t iPassed) const;
    std::string WhyNot(const ModelJob& job) const;
    void Tell(const ModelJob& job, std::int64_t iMinute, const std::string& strWhat);

    bool _bLiteral;
    std::vector<ModelJob> _vecJobs;
    std::vector<ModelOutcome> _vecOutcomes;
    std::time_t _tClock = 0;
    std::time_t _tUpAgain = 0;
    std::time_t _tAwakeAgain = 0;
    bool _bPassive = false;
    bool _bSettled = true; ///< the boot has; guarantees wait for it
    bool _bLooked = false;
    std::int64_t _iLastLook = 0;
    std::int64_t _iWorkedUpTo = 0;
    std::string _strCause;
};

} // namespace sim
