#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "crond/cronjob.h"
#include "service/engine/outcome.h"
#include "service/launch/runtable.h"
#include "service/launch/surroundings.h"

namespace VUKO::VUKOCrond::Service {

/// An account that jobs run as.
struct Account {
    std::string strName;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string strHome;  ///< empty when the account has none
    std::string strShell; ///< the same
};

/// @return nothing when there is no such account.
std::optional<Account> FindAccount(const std::string& strName);

/// Whether this process may run programs as that account.
bool CanBecome(const Account& account);

/// What a launch needs besides the job itself.
struct LaunchOrder {
    RunId uRun = 0;
    std::string strIdentifier; ///< what the job's output goes by in the journal, or the stem of its output file's name
    Account account;
    int iDelaySec = 0;
    std::string strLabel; ///< for the start line in the execution log; empty for none
};

/// What a process of a launch told. One record each, in the order of their writing.
struct RunReport {
    enum class Kind : std::uint32_t { Begun = 1, Ended = 2 };
    RunId uRun = 0;
    Kind eKind = Kind::Begun;
    pid_t pidProgram = 0; ///< Begun: leader of the program's process group
    RunEnd end;           ///< Ended
};

/// Starts jobs in surroundings of their own, and hears what becomes of them. One in a process: it owns the hooks that
/// the platform calls in a job's child.
class Launcher {
public:
    struct Settings {
        std::string strRunTable;     ///< path of the file behind the run table
        std::string strOutputFolder; ///< where jobs' output goes when there is no journal
        std::string strBootId;
        bool bJournal = true; ///< jobs' output goes to the journal where systemd runs
    };
    /// @throws std::system_error, std::runtime_error
    explicit Launcher(const Settings& settings);
    ~Launcher();
    Launcher(const Launcher&) = delete;
    Launcher& operator=(const Launcher&) = delete;

    RunTable& Table();

    /// Starts a job, at once and without waiting for it, by its Run(). The caller reaps the child.
    ///
    /// @return the child's pid; -1 when no child could be made (which is logged) and the launch has no slot in the
    /// table.
    /// @throws std::bad_alloc: nothing was started then, either
    pid_t Start(CronJob& job, const LaunchOrder& order);

    /// What a program would find around it, were it started now; `uRun` and what is for the log do not count.
    Surroundings SurroundingsOf(const LaunchOrder& order) const;

    /// Readable when a process of a launch has told something. Never blocks its writers.
    int ReportDescriptor() const;
    /// Everything that was told since the last call, each thing once. What a full pipe did not take is looked up in the
    /// run table; so is what became of the launches of a service that was here before, which have no way to make the
    /// descriptor readable: ask now and then. A launch that was released is not told of any more.
    ///
    /// A program's begin comes before its end; there is no begin where nothing was started. A process that is killed
    /// may end without a word: once its child is reaped, what the table says is the last of it.
    std::vector<RunReport> TakeReports();

private:
    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
