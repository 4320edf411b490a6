"""The root folder of a machine: this machine's own, with everything that is written kept in memory and apart."""

import os
import shutil
import uuid

import kernel

TARGET = "machine.target"

# What the targets of a boot ask for on their own accord and a machine has a use for; the rest (devices, kernel
# modules, consoles, swap) belongs to the machine around it.
_KEPT_UNITS = {
    "dbus.socket",
    "systemd-journald-dev-log.socket",
    "systemd-journald.service",
    "systemd-journald.socket",
    "systemd-tmpfiles-setup.service",
}
_TRIMMED_TARGETS = ("local-fs", "sockets", "sysinit", "timers")
_VENDOR_UNITS = "/usr/lib/systemd/system"
_LOCAL_UNITS = "/etc/systemd/system"

_TARGET_TEXT = """[Unit]
Description=Everything that a machine under test has
Requires=basic.target dbus.socket
After=basic.target dbus.socket {units}
Wants={units}
AllowIsolate=yes
"""

# A unit that cannot stop must not hold a test up for the usual minute and a half.
_MANAGER_SETTINGS = """[Manager]
DefaultTimeoutStopSec=20s
DefaultTimeoutStartSec=20s
"""

# What this machine may have of the product or left from its own boots, and no machine under test should see.
_FORGOTTEN = ("var/log/journal", "usr/vuko", "usr/local/etc/vukocron.d", "usr/local/etc/vukocron_nonroot.d",
              "var/log/vukocrond-execute.log")

_DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
_DEVICE_LINKS = {"fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2"}


def build(tree, host_name, folders, units):
    """Builds a root below the folder `tree` and returns it. To be called in the machine's own namespaces.

    folders: inside path -> (outside path, whether it may be written to); units: the name of a unit -> its text.
    """
    root = os.path.join(tree, "root")
    for name in ("upper", "work", "root"):
        os.mkdir(os.path.join(tree, name))
    kernel.mount("overlay", root, "overlay", options=f"lowerdir=/,upperdir={tree}/upper,workdir={tree}/work")
    _mount_kernel_folders(root)
    _make_devices(os.path.join(root, "dev"))
    _make_volatile_folders(root)
    for path, (outside, writable) in folders.items():
        inside = root + path
        os.makedirs(inside, exist_ok=True)
        kernel.bind(outside, inside, writable)
    _forget_this_machine(root, host_name)
    _write_units(root, units)
    return root


def enter(root):
    """Makes `root` the root folder of this mount namespace and takes all else out of sight."""
    os.chdir(root)
    os.makedirs("old-root", exist_ok=True)
    kernel.pivot_root(".", "old-root")
    kernel.unmount("/old-root")
    os.rmdir("/old-root")
    os.chdir("/")


def _mount_kernel_folders(root):
    kernel.mount("proc", f"{root}/proc", "proc")
    kernel.mount("sysfs", f"{root}/sys", "sysfs", kernel.MS_RDONLY)
    kernel.mount("cgroup2", f"{root}/sys/fs/cgroup", "cgroup2")


def _mount_memory(path, mode):
    os.makedirs(path, exist_ok=True)
    kernel.mount("tmpfs", path, "tmpfs", kernel.MS_NOSUID, f"mode={mode}")


def _make_devices(folder):
    _mount_memory(folder, "755")
    for name in _DEVICES:
        path = os.path.join(folder, name)
        with open(path, "wb"):
            pass
        kernel.bind(f"/dev/{name}", path)
    for name, target in _DEVICE_LINKS.items():
        os.symlink(target, os.path.join(folder, name))
    os.symlink("pts/ptmx", os.path.join(folder, "ptmx"))
    os.mkdir(os.path.join(folder, "pts"))
    kernel.mount("devpts", os.path.join(folder, "pts"), "devpts", options="newinstance,ptmxmode=0666,mode=620,gid=5")
    _mount_memory(os.path.join(folder, "shm"), "1777")


def _make_volatile_folders(root):
    _mount_memory(f"{root}/run", "755")
    _mount_memory(f"{root}/tmp", "1777")
    os.mkdir(f"{root}/run/lock")


def _forget_this_machine(root, host_name):
    for path in _FORGOTTEN:
        full = os.path.join(root, path)
        if os.path.isdir(full):
            shutil.rmtree(full)
        elif os.path.exists(full):
            os.unlink(full)
    _write(f"{root}/etc/fstab", "")
    _write(f"{root}/etc/hostname", host_name + "\n")
    _write(f"{root}/etc/machine-id", uuid.uuid4().hex + "\n")


def _write_units(root, units):
    local = root + _LOCAL_UNITS
    shutil.rmtree(local, ignore_errors=True)
    os.makedirs(local)
    for name in _unwanted_units(root):
        os.symlink("/dev/null", os.path.join(local, name))
    for name, text in units.items():
        _write(os.path.join(local, name), text)
    _write(os.path.join(local, TARGET), _TARGET_TEXT.format(units=" ".join(units)))
    os.makedirs(f"{root}/etc/systemd/system.conf.d", exist_ok=True)
    _write(f"{root}/etc/systemd/system.conf.d/machine.conf", _MANAGER_SETTINGS)


def _unwanted_units(root):
    names = set()
    for target in _TRIMMED_TARGETS:
        folder = f"{root}{_VENDOR_UNITS}/{target}.target.wants"
        if os.path.isdir(folder):
            names.update(os.listdir(folder))
    return sorted(names - _KEPT_UNITS)


def _write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
