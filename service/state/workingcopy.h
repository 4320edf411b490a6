#pragma once

#include <memory>
#include <string>
#include <vector>

#include "service/state/sqlite.h"

namespace VUKO::VUKOCrond::Service {

/// The working copy, opened and locked for this process.
struct WorkingCopy {
    std::unique_ptr<Connection> connection;
    bool bFresh = false; ///< it was made just now, from the persistent copy or from nothing
    bool bAhead = false; ///< it holds what the persistent copy does not
};

/// Opens the working copy, or makes it. What cannot be used is set aside, with a note.
/// @throws StateError.
WorkingCopy OpenWorkingCopy(const std::string& strWorking, const std::string& strPersistent,
                            std::vector<std::string>& vecNotes);

/// Notes in the working copy that its service is done with it and it is whole.
void MarkClosed(Connection& working);

/// Makes the persistent copy the same as the working copy.
/// @throws StateError; the persistent copy is the old or the new one then.
void WritePersistentCopy(const Connection& working, const std::string& strPersistent);

/// Sets a copy aside and notes why.
/// @throws StateError when that cannot be done.
void SetAsideAndNote(const std::string& strPath, const std::string& strWhy, std::vector<std::string>& vecNotes);

} // namespace VUKO::VUKOCrond::Service
