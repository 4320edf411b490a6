#pragma once

#include <string>

#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

/// The service's PID file, held by a lock on it for as long as the service lives: two instances can not hold it, and
/// one that was killed holds nothing.
///
/// The lock is a POSIX record lock, which a child does not inherit: jobs that outlive the service do not keep the next
/// one from starting. It is lost when this process closes any descriptor of the file, so nothing else here may open it.
class PidFile {
public:
    /// Takes the file and writes this process's id into it, or says in WhyNot() why it could not.
    explicit PidFile(const std::string& strPath);
    /// Removes the file, unless somebody has put another one in its place.
    ~PidFile();
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;

    bool IsHeld() const { return static_cast<bool>(_fd); }
    /// Fit for a log line; names the process that holds the file when there is one.
    const std::string& WhyNot() const { return _strWhyNot; }

private:
    bool TakeOnce();
    bool Fail(const char* szWhat);
    bool IsStillOurs(int iFd) const;

    std::string _strPath;
    std::string _strWhyNot;
    UniqueFd _fd;
};

} // namespace VUKO::VUKOCrond::Service
