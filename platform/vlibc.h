#pragma once

/// The appliance's C utility library: processes, files and the last platform error.
///
/// Every function here is reached through its dynamic symbol, so that a program may define its own in its place. A
/// success leaves errno as it was before the call.

#include <sys/types.h>

#include "base/export.h"

extern "C" {

/// Forks. The child starts with no signal blocked, whatever the caller blocked (an event loop that reads its signals
/// from a descriptor blocks them, and no program expects to inherit that); dispositions, descriptors, folder, umask
/// and environment are inherited as they are.
///
/// @param flags  the appliance's child set-up word. On Linux every value asks for the set-up described above.
/// @return -1 on failure (errno says why, and it is the last platform error), 0 in the child, the child's pid in the
///         parent. The caller reaps.
VUKO_API pid_t VLIBCProcForkEx(int flags);

/// Runs the program at `path` itself: no search of PATH, no shell; environment, folder and signal mask are the
/// caller's.
///
/// @param path  the program; a null pointer is an error (EFAULT), as is an argv that is null.
/// @param argv  its arguments, argv[0] included, closed by a null pointer.
/// @param wait  non-zero: wait for the program's end, however often a signal interrupts the waiting.
/// @return < 0: the program could not be started, or could not be waited for (ECHILD where SIGCHLD is ignored): errno
///         holds the reason (that of execve(2) in the child, for a program that could not be started), which is also
///         the last platform error. Otherwise, with `wait`: its exit status, or 128 + N when signal N ended it.
///         Without `wait`: its pid, which the caller reaps.
VUKO_API int VLIBCExecv(const char* path, char* const argv[], int wait);

/// Runs `prog` with the arguments listed, up to a null pointer (its argv[0] is `prog`), and waits for its end.
///
/// @return 0: it ran and exited with 0. Anything else: what VLIBCExecv() returns with `wait`. A status that is not 0 is
///         the last platform error too, with the status as its code; errno is then as before, since no call failed.
VUKO_API int VLIBCExec(const char* prog, ...) __attribute__((sentinel));

/// @return 1 when something exists at `path` (a symbolic link counts by what it points to); 0 when not, or when that
///         cannot be told: errno says why. Only the latter, or a null path (EFAULT), is a platform error.
VUKO_API int VLIBCFileExist(const char* path);

/// @return non-zero when `path` is a directory, also through a symbolic link; 0 when not, or when that cannot be told,
///         as for VLIBCFileExist(). errno is ENOTDIR where something else is there.
VUKO_API int VLIBCFileCheckDir(const char* path);

/// The calling thread's last platform error: the errno value of the step that failed (after VLIBCExec() it may be a
/// program's status instead); 0 before any failure. A success does not reset it.
VUKO_API unsigned VLIBCErrGet(void);

/// Name of the source file in which the calling thread's last platform error arose; never null, empty before any.
VUKO_API const char* VLIBCErrorGetFile(void);

/// Line in that source file; 0 before any failure.
VUKO_API int VLIBCErrorGetLine(void);

} // extern "C"
