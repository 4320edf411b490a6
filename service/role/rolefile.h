#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace VUKO::VUKOCrond::Service {

enum class Role { Active, Passive };

const char* ToText(Role eRole);

/// The file by which a cluster manager, or the control tool, tells whether this machine is the active one of several.
///
/// Its first line is "active" or "passive", optionally followed by a blank and "@EPOCH" (seconds since the epoch, with
/// or without a fraction): the instant from which that holds, which may lie ahead. Without it, it holds from the time
/// that the file was changed. No file: active. So two machines whose files were changed for the same instant never
/// disagree about a minute, however long each takes to look.
class RoleFile {
public:
    /// @throws std::system_error when the kernel gives no watch.
    explicit RoleFile(std::string strPath);
    ~RoleFile();
    RoleFile(const RoleFile&) = delete;
    RoleFile& operator=(const RoleFile&) = delete;

    /// Readable when the file may have changed.
    int Descriptor() const;
    /// Takes note of what the descriptor tells, and reads the file. @return whether the role now is another one.
    bool Consume();

    /// Reads the file anew when it has changed, and tells the role that holds at an instant. The former roles are
    /// remembered as far back as ticks look.
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
