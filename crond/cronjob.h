#pragma once

#include <json/json.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/export.h"
#include "logger/memorylogger.h"

namespace VUKO {
namespace VUKOCrond {

/// Keys and paths. Each is a pointer that may be set anew: every later call of the library then uses the new value.
/// (The paths of the execution log are read once, when the library is loaded; set the members of CronJob::gLogger.)
///
/// The five schedule field keys. A field's rules are chosen by the first character of its key alone, which is why the
/// minute key keeps its capital M: it tells "Minute" from "month". They are also keys in stored documents.
VUKO_API extern const char* SZK_MINUTE;
VUKO_API extern const char* SZK_HOUR;
VUKO_API extern const char* SZK_DAY;
VUKO_API extern const char* SZK_MONTH;
VUKO_API extern const char* SZK_WEEK;

/// The service that a job store asks to reload.
VUKO_API extern const char* SZK_SERVICE_NAME;

/// Keys of the four definition folders, in the service's own records.
VUKO_API extern const char* SZK_CRON_FOLDER_BUILT_IN;
VUKO_API extern const char* SZK_CRON_FOLDER_BUILT_IN_DYN;
VUKO_API extern const char* SZK_CRON_FOLDER_PKG;
VUKO_API extern const char* SZK_CRON_FOLDER_PKG_NONROOT;

/// The four definition folders: shipped with the system, changed at run time, packages that run as root, and packages
/// that run as their own account (one sub-folder each).
VUKO_API extern const char* SZF_CRON_FOLDER_BUILT_IN;
VUKO_API extern const char* SZF_CRON_FOLDER_BUILT_IN_DYN;
VUKO_API extern const char* SZF_CRON_FOLDER_PKG;
VUKO_API extern const char* SZF_CRON_FOLDER_PKG_NONROOT;

/// The service's runtime configuration and the schedule template, each with its volatile mirror.
VUKO_API extern const char* SZF_CRON_RUNTIME_CONFIG;
VUKO_API extern const char* SZF_CRON_RUNTIME_CONFIG_MIRROR;
VUKO_API extern const char* SZF_CRON_SCHEDULE_TEMPLATE_CONFIG;
VUKO_API extern const char* SZF_CRON_SCHEDULE_TEMPLATE_CONFIG_MIRROR;

/// The service's PID file, the two files of the execution log, and the folder for staged programs.
VUKO_API extern const char* SZF_PIDPATH;
VUKO_API extern const char* SZF_CRON_MEMLOG;
VUKO_API extern const char* SZF_CRON_LOG_EXEC;
VUKO_API extern const char* SZF_TMP_BIN_FOLDER;

/// Seconds between two ticks of the service.
VUKO_API extern const std::int32_t SLEEP_TIME;
/// Seconds over which jobs with a random minute are spread, unless a schedule template says otherwise.
VUKO_API extern const std::int32_t MAX_DELAY_BETWEEN_JOBS;

/// One scheduled job: its definition, what its five schedule fields allow, and its runtime state.
///
/// It is built from a job document: a JSON object whose member "config" is the definition ("name", "user",
/// "package_username", "period", "crontab", "cmd", "cmd_list", "assure_execute", "assure_execute_action",
/// "run_on_passive"). The other top-level members are runtime keys that the library writes ("startup",
/// "lastExecution", "expireTime", "schedule", "cmd_list", "cmd_str").
///
/// Failures are logged to syslog at LOG_ERR as "cronjob:NUMBER text", with " (%m)" added while errno is set. A record
/// is a plain value: copyable, owned by the caller, used by one thread at a time. Nothing but the reading of the
/// members may be done with a record whose `_bValid` is false.
class VUKO_API CronJob {
public:
    /// One comma-separated item of a schedule field.
    struct Range {
        std::int32_t kind = 0;  ///< 0: the single value `from`; 1: one random value in from..to; 2: any value
        std::int32_t from = -1; ///< lower bound, or the value
        std::int32_t to = -1;   ///< upper bound, inclusive
    };

    /// Builds a record: fills the defaults, tests the required keys, parses the period and the command.
    ///
    /// A definition that is no good gives a record with `_bValid` false and messages, the last of which is "crontab
    /// format error" (a key is missing or of a wrong kind) or "parse error" (a value is wrong). `_jsJob` and
    /// `_mapRanges` then hold whatever was written before the failure.
    ///
    /// @param jsJob  the document, an object (or null). The caller's own is not changed. "startup" is kept when it is
    ///               there; "cmd_list" and "cmd_str" are always built anew from "config".
    /// @throws Json::LogicError for a document that is neither an object nor null.
    CronJob(Json::Value jsJob);
    ~CronJob();
    CronJob(const CronJob&) = default;
    CronJob& operator=(const CronJob&) = default;
    CronJob(CronJob&&) = default;
    CronJob& operator=(CronJob&&) = default;

    /// First stage of construction, called by the constructor alone: tests the required keys in "config" and writes
    /// "startup" and the defaults of the optional ones.
    ///
    /// @return false at the first key that is missing or of a wrong kind, after one message with the failed condition.
    bool InitDefaultConfig();

    /// Second stage of construction, called by the constructor alone: turns "period" into five fields, parses each, and
    /// builds "cmd_list" and "cmd_str".
    ///
    /// @return false when the period or the command was not accepted. Logged: "error period"; the messages of
    ///         ParsePeriodByType(); an empty "cmd_list". A period without exactly five fields is refused silently.
    /// @throws Json::LogicError when a value is of a kind that the JSON library cannot convert (the constructor turns
    ///         that into an invalid record).
    bool Parse();

    /// Parses one schedule field and appends an item for each comma-separated piece to `_mapRanges[type]`.
    ///
    /// A piece is "~" (one random value of the whole field), "A~B" (one random value in A..B), "*" (any value) or a
    /// number; what follows a leading "~" or "*" is ignored. Empty pieces are dropped.
    ///
    /// @param type   a schedule field key; its first character chooses the rules.
    /// @param field  the field's text.
    /// @return false at the first bad piece; the items before it stay. Logged: "... is not a valid number" and
    ///         "range.from[..] cannot greater than range.to[..]"; a value outside the field's domain is refused
    ///         silently.
    bool ParsePeriodByType(const char* type, const std::string& field);

    /// @return true when a field may hold the value: "M" 0..59, "h" 0..23, "d" 1..31, "m" 1..12, "w" 0..6 (0 is
    ///         Sunday); any value for any other first character.
    bool IsTimeValid(const char* type, int value);

    /// Makes `range` the random range of a whole field: as IsTimeValid() has it, but days stop at 28, so that a random
    /// day exists in every month. For an unknown field only `kind` is set.
    void GetBoundsByType(CronJob::Range& range, const char* type);

    /// The five schedule field keys, in the order minute, hour, day, month, week. Built from the key constants on the
    /// first call.
    static const std::vector<std::string>& GetAllScheduleTypes();

    /// Draws the schedule of one field anew into `_jsJob["schedule"][type]`: one value per item, -1 for any value.
    ///
    /// @param preferred  used for each random item whose range holds it; -1 for none. A value that the field cannot
    ///                   hold is ignored.
    void GenerateSchedule(const std::string& type, int preferred);

    /// @return the generated values of one field; empty when there are none or when one of them is no integer.
    /// @throws Json::LogicError when one is an integer beyond an int; only a document that was spoilt by hand holds
    /// one.
    std::vector<int> GetGeneratedScheduleByType(const std::string& type) const;

    /// @param schedule  a generated schedule, as in `_jsJob["schedule"]`.
    /// @return true when the field's values hold `value` or -1.
    /// @throws Json::LogicError when an element that is looked at cannot be read as an int (a text, an array).
    bool IsTypeReady(const Json::Value& schedule, const std::string& type, int value) const;

    /// @return true when the current local minute matches all five fields (the two day fields are joined by AND). A
    ///         field without values never matches. Only this minute is looked at: a minute in which nobody asked is
    ///         not made up for, and asking twice in a minute is answered twice. Logged: "Failed to get localtime".
    /// @throws what IsTypeReady() throws, for a schedule that was spoilt by hand.
    bool IsOnScheduled() const;

    /// When the job is on schedule, marks it ready: "expireTime" becomes now and `_strReadyCrontab` the rendered line.
    ///
    /// @return what IsOnScheduled() said; on false nothing has changed.
    bool SetReadyIfScheduled();

    /// @return true when the job has to run within `_iAssureExecute` hours and its last start ("startup" if it never
    ///         ran) is longer ago. The hours become seconds in 32 bits, which wrap above 596523 hours.
    /// @throws Json::LogicError when the stamp that counts is no number.
    bool IsExpiredAssure() const;

    /// The generated schedule as one line, minute to week: values joined by ",", fields by one blank, "X" for a field
    /// without values. Any value stays "-1": the line is a record and no text to be parsed again.
    std::string ToCurrentCrontabString() const;

    /// Starts the job in a child process and returns without waiting for it.
    ///
    /// Stamps "lastExecution" and "expireTime" first, so the stamps hold even if no child could be made; the job then
    /// stays ready ("Failed to fork()" is logged), and a later call may try again. `iDelaySec` is slept in the child;
    /// zero or less means at once. The child does what RunChild() says.
    ///
    /// Returns in the child too when the job's account is unknown or memory ran out: compare getpid() before going on,
    /// and end the child with _exit(). The JSON library's exception for a "cmd_list" element that is no string comes
    /// out in the child as well. The caller reaps. Nothing here tells whether the program ran: the execution log does.
    ///
    /// @param strArg  a label for the start line in the execution log; empty for none.
    void Run(int iDelaySec, std::string strArg);

    /// The child's part of Run(): writes the start line to the execution log, takes on the job's account (initgroups,
    /// setgid, setuid), runs the program with "cmd_list" as its arguments, waits for its end, logs a failure to start
    /// it, and ends the process with _exit(0). Each line is flushed before the next step. Everything else (folder,
    /// environment, umask, descriptors) is inherited.
    ///
    /// An identity that could not be taken on is logged and does not stop the program: a service without root's rights
    /// runs its jobs as itself.
    ///
    /// Returns, having logged the reason to syslog, only when the account is unknown or memory ran out.
    void RunChild(const std::string& strArg);

    /// Stages the job's program; MoveBinaryToTmp().
    bool Init();

    /// Copies the program, "cmd_list"[0], to SZF_TMP_BIN_FOLDER/NAME, points "cmd_list"[0] at the copy, and gives the
    /// copy to the job's account with mode 0700, so that later runs start the private copy.
    ///
    /// The folder must be there, and its owner must be trusted. The copy is made by /usr/bin/cp -af, which replaces an
    /// older one; two jobs of one name share it.
    ///
    /// A trap: a symbolic link is copied as a link, while ownership and mode are set through it, on what it points
    /// to. Whoever can choose the program of a job can so have a file of their choice made 0700 and given to the job's
    /// account. Do not stage programs that others than root can replace by a link. Nor may the folder hold a folder of
    /// the job's name: cp would copy into it.
    ///
    /// @return false when a step failed: "missing binary", "Failed to cp", "Failed to chown if permissions are
    ///         incorrect" (after its cause), "Failed to chmod". Once the copy is made, "cmd_list" stays pointed at it.
    /// @throws Json::LogicError when "cmd_list" is an object, which only a definition that spells it so makes it.
    bool MoveBinaryToTmp();

    /// Writes out what the execution log holds in memory; gLogger.FlushAll().
    static void FlushLog();

    bool _bValid;                                         ///< construction succeeded
    std::int32_t _iAssureExecute;                         ///< hours within which the job must have run; 0: no guarantee
    std::int32_t _iAssureExecuteAction;                   ///< 1: run an overdue job; 0: let it wait for its next minute
    bool _bRunOnPassive;                                  ///< the job also runs where the service is passive
    Json::Value _jsJob;                                   ///< the job document
    std::string _strReadyCrontab;                         ///< not empty while the job is due and has not been started
    std::map<std::string, std::vector<Range>> _mapRanges; ///< what each schedule field allows, by its key

    /// The execution log. Ready before main(); its destructor does not flush.
    static MemoryLogger gLogger;
};

/// A job of random fields only ("~ ~ ~ ~ ~") whose values, drawn once and kept in a file, are the whole system's:
/// handed to CronJob::GenerateSchedule() as the preferred values, they let random jobs land on the same times.
class VUKO_API ScheduleTemplate : public CronJob {
public:
    /// Builds the default template and draws a value for each field. Logged, should that ever be invalid: "Default
    /// scheduled template config format invalid".
    ScheduleTemplate();

    /// Replaces the template by the one stored in a file: its job document, values included, and "maxDelay" where that
    /// is an integer and not negative.
    ///
    /// @return false when the file cannot be read or is not JSON (silently) or holds no valid job ("Failed to parse
    ///         schedule template from [...]"): the template is then as it was.
    bool fromFile(const std::string& path);

    /// Writes the template to a file: its job document, unknown members included, and "maxDelay" where `_iMaxDelay`
    /// is not MAX_DELAY_BETWEEN_JOBS.
    ///
    /// @return false when it cannot be written; the old file is then as it was.
    bool toFile(const std::string& path) const;

    /// Draws the value of one field anew.
    void GenerateSchedule(const std::string& type);

    /// @return the value of one field, ready to be passed on as a preferred value; -1 when the template does not hold
    ///         exactly one.
    int GetGeneratedSchedule(const std::string& type) const;

    std::int32_t _iMaxDelay; ///< seconds over which the service may spread jobs
};

} // namespace VUKOCrond
} // namespace VUKO
