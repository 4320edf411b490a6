#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// System calls that the program which links this makes through wrappers, so that they fail when a test wants them to:
/// fork, vfork, fstat, getrandom, open, write, fsync, fchown, fchmod, renameat.

namespace support {

/// Every call works again, and the record is empty.
void ResetFaults();

/// From now on, the calls of that name fail; the first `iSpared` of them do not.
void Fail(const std::string& strCall, int iErrno, int iSpared = 0);

/// write() takes at most `uBytes` at a time, and every second one is interrupted first.
void WriteInPieces(std::size_t uBytes);

/// Runs behind every fstat().
void AfterFstat(std::function<void()> action);

/// The names of all calls since the reset, in order.
const std::vector<std::string>& Calls();

} // namespace support
