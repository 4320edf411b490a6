#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "crond/cronjob.h"
#include "service/engine/jobid.h"
#include "service/engine/outcome.h"
#include "service/engine/schedule.h"

namespace VUKO::VUKOCrond::Service {

/// One job as the service holds it: texts and numbers only, because there may be very many. The library's record is
/// built from it for as long as a start takes.
struct Job {
    static constexpr std::int64_t NEVER = -1;

    JobId id;
    std::int64_t iKey = 0;                     ///< the state store's
    std::string strFile;                       ///< where its definition was read
    std::string strDefinition;                 ///< as it was read, before any defaults: JSON in one line
    std::string strFields;                     ///< what its five fields allow, see FieldsToText()
    std::string strSchedule;                   ///< the values drawn for them, see ScheduleToText()
    std::string strAccount;                    ///< name of the account that it runs as
    uid_t uidAccount = static_cast<uid_t>(-1); ///< of that account when it was last looked up; -1: there was none
    Schedule schedule;                         ///< the same values, to be asked
    std::int64_t iStartup = 0;                 ///< since when it is known, seconds since the epoch
    std::int64_t iLastExecution = NEVER;
    std::int32_t iAssureHours = 0;
    std::int32_t iTimeout = 0;   ///< seconds that a run may take; 0: as long as it likes
    bool bAssureRun : 1 = false; ///< an overdue job is started; else it waits for its next minute
    bool bRunOnPassive : 1 = false;
    bool bRandomMinute : 1 = false; ///< its minute was drawn: it takes part in the spread
    bool bEnabled : 1 = true;
    bool bAllowOverlap : 1 = false;
    bool bInvalid : 1 = false; ///< its file holds something that is refused now: known, but never started
    bool bOverdueReported : 1 = false;

    /// A start that was decided and could not be made yet, to be tried again.
    RunId uPendingRun = 0; ///< 0: none
    std::int64_t iPendingMinute = 0;
    std::int64_t iPendingTicks = 0;
    bool bPendingAssure = false;

    std::uint32_t uRunning = 0; ///< launches that are going on
    pid_t pidRunning = 0;       ///< the latest of these,
    std::int64_t iRunningSince = 0;

    RunId uLastRun = 0; ///< the latest launch, and how it ended
    EndKind eLastEnd = EndKind::Open;
    int iLastCode = 0;
    std::int64_t iLastEndUsec = 0;
    std::int64_t iLastDurationUsec = 0;
    std::int64_t iLastSuccessUsec = 0; ///< when the program last ended with 0; 0: not since the service started

    bool IsPending() const { return uPendingRun != 0; }
    bool HasAssure() const { return iAssureHours != 0; }
    /// What the guarantee is counted from.
    std::int64_t AssureBase() const { return iLastExecution == NEVER ? iStartup : iLastExecution; }
    /// The seconds that it holds for. As in CronJob::IsExpiredAssure(): they wrap in 32 bits.
    std::int64_t AssurePeriod() const;
    /// The last instant at which the guarantee holds.
    std::int64_t AssureLimit() const;
};

/// The library's record of a job, with its values, stamps, and a command text that is fit for one log line.
///
/// @return an invalid record when the library refuses the definition.
CronJob BuildRecord(const Job& job);

/// The account that the library would choose for a definition, without its messages: "package_username" where "user"
/// holds "package", else "user" itself when it holds "system" or "root".
///
/// @return the name; empty when there is none.
std::string AccountNameOf(const Json::Value& jsDefinition);

/// Fills what a job takes from its definition: all but identity, file, values and stamps.
///
/// @param record  valid, built from `jsDefinition`.
void TakeDefinition(Job& job, const Json::Value& jsDefinition, const CronJob& record);
/// The same, for whoever has the definition as a text already.
void TakeDefinition(Job& job, const Json::Value& jsDefinition, const CronJob& record, std::string strText);

/// @return the text in one line, as Job::strDefinition has it.
std::string DefinitionToText(const Json::Value& jsDefinition);
/// @return null for a text that is no JSON.
Json::Value DefinitionFromText(const std::string& strText);

} // namespace VUKO::VUKOCrond::Service
