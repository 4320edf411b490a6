"""The process that owns a machine: starts its first process, waits for its end, and removes all that it left.

It is a process of its own, outside the test's process tree, so that neither a failed test nor one that is killed
(ctest kills a test that takes too long with all its descendants) leaves anything behind. It ends the machine as soon
as nobody holds the other end of its life pipe any more. Should the supervisor itself be killed, the kernel ends the
machine with it.
"""

import errno
import json
import os
import select
import signal
import socket
import sys
import tempfile
import time
import traceback

import kernel
import rootfs

_SYSTEMD = ["/lib/systemd/systemd", "--system", f"--unit={rootfs.TARGET}", "--log-target=journal", "--show-status=0"]
_IDLE = ["/usr/bin/sleep", "infinity"]
_ENVIRONMENT = {"container": "vukocrond-test", "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "TERM": "dumb"}


def main():
    """Arguments: the life pipe's and the status pipe's descriptor, and what to build, as JSON."""
    life, status, order = int(sys.argv[1]), int(sys.argv[2]), json.loads(sys.argv[3])
    if os.fork() != 0:
        os._exit(0)
    os.setsid()
    try:
        with Ground(order["name"]) as ground:
            pid = start(ground, order)
            tell(status, f"pid {pid}")
            end = wait_for_end(pid, life)
        tell(status, f"ended {end}")
        # The dead process is not reaped before nobody wants the machine any more: its number must not become another
        # process's while a test may still enter the machine by it.
        select.select([life], [], [])
    except BaseException:
        traceback.print_exc()
        sys.exit(1)


def tell(status, line):
    try:
        os.write(status, f"{line}\n".encode())
    except BrokenPipeError:
        pass  # nobody is left to be told; what is left is the cleaning up


class Ground:
    """What a machine stands on: a folder, memory mounted below it, and a control group."""

    def __init__(self, name):
        self._base = os.path.join(tempfile.gettempdir(), name)
        self.tree = os.path.join(self._base, "tree")
        self._groups = os.path.join(self._base, "groups")
        self._group = os.path.join(self._groups, name)

    def __enter__(self):
        kernel.unshare(kernel.CLONE_NEWNS)
        kernel.mount(None, "/", flags=kernel.MS_REC | kernel.MS_PRIVATE)
        os.mkdir(self._base, 0o700)
        try:
            for path in (self.tree, self._groups):
                os.mkdir(path)
            kernel.mount("tmpfs", self.tree, "tmpfs", kernel.MS_NOSUID, "mode=755")
            kernel.mount("cgroup2", self._groups, "cgroup2")
            os.mkdir(self._group)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        if os.path.ismount(self._groups):
            remove_group(self._group)
            kernel.unmount(self._groups)
        if os.path.ismount(self.tree):
            kernel.unmount(self.tree)
        # One by one: should a mount have stayed, this fails instead of emptying what is mounted.
        for path in (self.tree, self._groups, self._base):
            if os.path.exists(path):
                os.rmdir(path)

    def take_in(self):
        """Puts the calling process into the control group."""
        with open(os.path.join(self._group, "cgroup.procs"), "w", encoding="ascii") as file:
            file.write("0")


def remove_group(group, patience=5.0):
    """Removes a control group and all below it. A dead process may count as a member for a moment more."""
    deadline = time.monotonic() + patience
    for folder, _, _ in os.walk(group, topdown=False):
        while True:
            try:
                os.rmdir(folder)
                break
            except OSError as error:
                if error.errno != errno.EBUSY or time.monotonic() > deadline:
                    raise
                time.sleep(0.01)


def start(ground, order):
    """Starts the machine's first process and returns its pid, once it has its own program and root."""
    kernel.unshare(kernel.CLONE_NEWPID)
    go, told_to_go = os.pipe()
    failed, tell_failed = os.pipe()
    pid = os.fork()
    if pid == 0:
        os.close(told_to_go)
        try:
            kernel.die_with_parent()
            # A parent that was killed before the line above has taken its end of the pipe along.
            if os.read(go, 1):
                become_machine(ground, order)
        except BaseException:
            traceback.print_exc()
            os.write(tell_failed, b"!")
        os._exit(1)
    os.write(told_to_go, b"!")
    for end in (go, told_to_go, tell_failed):
        os.close(end)
    # The child's end closes as it becomes another program.
    if os.read(failed, 1):
        os.waitpid(pid, 0)
        raise RuntimeError("the machine could not be built")
    os.close(failed)
    return pid


def become_machine(ground, order):
    ground.take_in()
    kernel.unshare(kernel.CLONE_NEWNS | kernel.CLONE_NEWUTS | kernel.CLONE_NEWIPC | kernel.CLONE_NEWNET |
                   kernel.CLONE_NEWCGROUP)
    socket.sethostname(order["name"])
    rootfs.enter(rootfs.build(ground.tree, order["name"], order["folders"], order["units"]))
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    command = _SYSTEMD if order["systemd"] else _IDLE
    os.execve(command[0], command, _ENVIRONMENT)


def wait_for_end(pid, life):
    """Waits for the end of the machine, or of those who want it, and returns its exit code, or minus a signal."""
    process = os.pidfd_open(pid)
    ready, _, _ = select.select([process, life], [], [])
    if process not in ready:
        signal.pidfd_send_signal(process, signal.SIGKILL)
    end = os.waitid(os.P_PID, pid, os.WEXITED | os.WNOWAIT)
    return end.si_status if end.si_code == os.CLD_EXITED else -end.si_status


if __name__ == "__main__":
    main()
