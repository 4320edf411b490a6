#pragma once

#include <string>

#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

/// Whether there is anything of that name, a dangling link included.
/// @throws StateError when that cannot be told.
bool IsThere(const std::string& strPath);

/// Why others than root and the service could have written the state in that file, or have it written elsewhere: by its
/// kind, owner, mode and links, and those of SQLite's journals beside it.
///
/// @return the reason, fit for a log line; empty when there is none.
std::string WhyNoStateFile(const std::string& strPath);

/// Gives a file and its journals another name, NAME.damaged-EPOCH, and removes the oldest of those that were set aside
/// before, so that only a handful stays.
///
/// @return the new path.
/// @throws StateError when it cannot be renamed.
std::string SetAside(const std::string& strPath);

/// A file that takes the place of another once it is complete; until then the other one stays as it is. Without Put()
/// it is removed.
class NewFile {
public:
    /// Makes an empty file beside the target, for the service alone. One that was left behind is removed.
    /// @throws StateError.
    explicit NewFile(std::string strTarget);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    const std::string& Path() const { return _strPath; }
    /// @param bDurable  it is on the disk before it takes its place, and is there after a power cut.
    /// @throws StateError; the target may have been replaced then, but is one or the other.
    void Put(bool bDurable);

private:
    std::string _strTarget;
    std::string _strPath;
    UniqueFd _fd;
    bool _bPut = false;
};

} // namespace VUKO::VUKOCrond::Service
