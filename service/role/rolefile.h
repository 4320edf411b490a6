#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace VUKO::VUKOCrond::Service {

enum class Role { Active, Passive };

/// "active", "passive"
const char* ToText(Role eRole);

/// The file by which a cluster manager, or the control tool, tells whether this machine is the active one of several.
///
/// Its first line is "active" or "passive", optionally followed by a blank and "@EPOCH" (seconds since the epoch, with
/// or without a fraction): the instant from which that holds, which may lie ahead. Without it, it holds from the time
/// that the file was changed (from now, should that lie ahead). No file: active. So two machines whose files were
/// changed for the same instant never disagree about a minute, however long each takes to look.
///
/// What is not known of the time before the file's instant is taken to be the other role: a file says that something
/// changes.
class RoleFile {
public:
    /// Microseconds since the epoch.
    using Clock = std::function<std::int64_t()>;

    /// @throws std::system_error when the kernel gives no watch. A folder that is missing is no reason to throw: it is
    ///         watched from when it is found to be there, and until then Consume() has nothing to tell.
    explicit RoleFile(std::string strPath);
    RoleFile(std::string strPath, Clock clock);
    ~RoleFile();
    RoleFile(const RoleFile&) = delete;
    RoleFile& operator=(const RoleFile&) = delete;

    /// Readable when the file may have changed.
    int Descriptor() const;
    /// Takes note of what the descriptor tells, and reads the file. @return whether the role now is another one than at
    /// the call before (or at the beginning).
    bool Consume();

    /// Reads the file anew when it has changed, and tells the role that holds at an instant (microseconds since the
    /// epoch). The last 64 changes are remembered, so that it answers for the past as well; a change that lies ahead
    /// waits for its instant, unless the file is changed again before.
    Role RoleAt(std::int64_t iInstantUsec);

    /// Writes the file, whole or not at all. @return the reason why that failed, fit for a log line; empty when done.
    std::string Write(Role eRole);

    /// One line about a file that could not be made sense of, told once for each change of it; empty when there is
    /// none. Such a file changes nothing: the last good role holds, and passive where there has been none.
    std::string TakeProblem();

private:
    struct Private;
    std::unique_ptr<Private> _p;
};

} // namespace VUKO::VUKOCrond::Service
