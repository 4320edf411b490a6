#pragma once

#include <string>
#include <vector>

namespace VUKO::VUKOCrond::Service {

/// Looks at the two places in /tmp that root writes to: the memory log file of the execution log, and the folder of
/// staged programs. Anybody may have put something there first.
///
/// The memory log file may be missing (the library makes and deletes it all the time), or be a regular file of root or
/// of the service's account with one name that group and others cannot write. The folder has to be a folder of such an
/// owner that group and others cannot write; it is made when it is missing, and then nobody but root can put another in
/// its place where /tmp is sticky. Whatever else stands there is moved aside, to NAME.foreign-TIME-NUMBER beside it,
/// without being opened or followed.
///
/// Cheap while all is well: for each start of a job. It does not keep a stranger from putting a file there the moment
/// after it returns; the logger's own look at what it opens does (see StagingLock).
///
/// @return one line, fit for a log, for everything that was not as it should be: what it was, and what became of it.
std::vector<std::string> SecureLogStaging();

} // namespace VUKO::VUKOCrond::Service
