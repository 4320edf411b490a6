"""System calls that the standard library of Python 3.11 lacks."""

import ctypes
import os
import signal

CLONE_NEWNS = 0x00020000
CLONE_NEWCGROUP = 0x02000000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_RDONLY = 0x1
MS_NOSUID = 0x2
MS_NODEV = 0x4
MS_REMOUNT = 0x20
MS_BIND = 0x1000
MS_REC = 0x4000
MS_PRIVATE = 0x40000

_MNT_DETACH = 2
_PR_SET_PDEATHSIG = 1

_libc = ctypes.CDLL(None, use_errno=True)


def _checked(result, what):
    if result < 0:
        code = ctypes.get_errno()
        raise OSError(code, os.strerror(code), what)


def _text(value):
    return None if value is None else os.fsencode(value)


def unshare(flags):
    _checked(_libc.unshare(flags), "unshare")


def mount(source, target, fstype=None, flags=0, options=None):
    _checked(_libc.mount(_text(source), _text(target), _text(fstype), ctypes.c_ulong(flags), _text(options)), target)


def bind(source, target, writable=True):
    """Shows a folder or a file at a second place."""
    mount(source, target, flags=MS_BIND)
    if not writable:
        mount(None, target, flags=MS_BIND | MS_REMOUNT | MS_RDONLY)


def unmount(target):
    """Takes a mount out of sight at once; it ends with its last user."""
    _checked(_libc.umount2(_text(target), _MNT_DETACH), target)


def pivot_root(new_root, old_root):
    _checked(_libc.pivot_root(_text(new_root), _text(old_root)), new_root)


def die_with_parent():
    """Has this process killed as soon as its parent ends, however that ends."""
    _checked(_libc.prctl(_PR_SET_PDEATHSIG, ctypes.c_ulong(signal.SIGKILL), 0, 0, 0), "prctl")
