#pragma once

/// The appliance's SDK: accounts, folders and the state of the system. A success leaves errno as it was before the
/// call.

#include <sys/types.h>

#include "base/export.h"

extern "C" {

/// Looks an account up by name, in every source that the system is set up with (NSS).
///
/// @param name  the account's name.
/// @param uid, gid  receive its user id and primary group id; untouched unless the result is 0.
/// @return 0, or -1: there is no such account (errno is then as it was before the call; the last platform error is
///         ENOENT), or an argument is null (EFAULT), the sources could not be asked, or one of the ids is the number
///         that means "none" (EINVAL): errno says why and is the last platform error.
VUKO_API int VUKOUserGetUGID(const char* name, uid_t* uid, gid_t* gid);

/// Makes a folder and its missing parents. Each folder that is made gets exactly this owner and mode, whatever the
/// umask, or is removed again; folders that were there, or that somebody else makes meanwhile, stay as they are.
///
/// @param path  absolute, or relative to the working directory.
/// @param iReserved1, iReserved2  of use on the appliance only.
/// @param uid, gid, mode  owner, group and permission bits of what is made.
/// @return 0 when the folder is there now; -1 otherwise: errno says why and is the last platform error (ENOTDIR when a
///         part of the path is no folder). Parents made before the failure stay.
VUKO_API int VUKOFSMkdirP(const char* path, int iReserved1, int iReserved2, uid_t uid, gid_t gid, mode_t mode);

/// Asks for a state of the system.
///
/// @param what    1: hibernation; anything else is an error (EINVAL).
/// @param status  receives, for selector 1: 2 while the system goes into or comes out of sleep or hibernation (logind
///                prepares for sleep), else 1. Where no logind answers on the system bus, nothing can hibernate in an
///                orderly way: the answer is a plain 1. DBUS_SYSTEM_BUS_ADDRESS may name another bus.
/// @return 0, or -1 when the bus is there and the question failed, or could not be put (EINVAL, EFAULT): errno says why
///         and is the last platform error, `status` is untouched. Never waits longer than a few seconds.
VUKO_API int VUKOEvmgrStatusGet(int what, int* status);

/// The stage of boot or shutdown.
///
/// @return 5 while the system is shutting down; 1 while it is still booting; 3 while it runs. Where systemd does not
///         run as the first process there is no stage to ask for, and where it does not answer the stage is not known:
///         both give a plain 3, the latter with the reason as the last platform error. Root is answered to the very end
///         of a shutdown; others are not any more once the system bus has been stopped. Never waits longer than a few
///         seconds, errno is as it was before the call.
VUKO_API int VUKOSystemGetBootStep(void);

} // extern "C"
