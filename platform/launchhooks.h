#pragma once

/// Hooks into the launch of programs: for a process that starts programs through VLIBCProcForkEx() and VLIBCExecv() and
/// wants to settle what they inherit and to hear of their end, where whoever calls those two leaves that alone.

#include <sys/types.h>

#include "base/export.h"

extern "C" {

/// Each hook may be null, and gets `context` as its first argument. No exception may leave one. errno after a hook is
/// of no account, except where it says so.
struct VLIBCLaunchHooks {
    void* context;

    /// In the parent, once VLIBCProcForkEx() has made a child.
    void (*forkedParent)(void* context, pid_t child);

    /// In the child of VLIBCProcForkEx(), after its set-up, before that returns.
    void (*forkedChild)(void* context);

    /// In the caller of VLIBCExecv(), before it makes the program's process.
    ///
    /// @return 0, or the errno value with which VLIBCExecv() fails instead.
    int (*beforeExec)(void* context, const char* path);

    /// In the program's process, right before it becomes the program: every signal is blocked and none has a handler.
    /// The memory is that of the caller of VLIBCExecv(), which waits meanwhile: only async-signal-safe calls, and
    /// nothing that the caller relies on may be changed.
    void (*inChild)(void* context);

    /// In place of waitpid(2), where VLIBCExecv() waits for the program's end.
    ///
    /// @param status  receives the wait status.
    /// @return 0, or -1 with errno.
    int (*wait)(void* context, pid_t program, int* status);

    /// In the caller of VLIBCExecv(), after beforeExec() had let it go on: the program could not be started.
    ///
    /// @param code  the errno value that VLIBCExecv() fails with.
    void (*notStarted)(void* context, int code);
};

/// Sets the hooks of this process and of the children that it forks from now on. VLIBCExec() knows none. To be called
/// while no other thread forks or starts programs.
///
/// @param hooks  is copied; a null pointer takes the hooks away.
VUKO_API void VLIBCLaunchHooksSet(const struct VLIBCLaunchHooks* hooks);

} // extern "C"
