"""Surroundings in which daemons can be run and measured without touching the machine: namespaces of their own for
mounts and processes, with an empty /run, no crontabs but those of the measurement, and a system log that takes
everything and keeps nothing."""

import os
import socket
import subprocess
import sys

_INSIDE = "VUKO_BENCH_INSIDE"
_DEVICES = ("null", "zero", "full", "random", "urandom")


def enter():
    """Starts this program again as the first process of namespaces of its own. Returns in that one."""
    if os.environ.get(_INSIDE) is None:
        os.environ[_INSIDE] = "1"
        os.execvp("unshare", ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
                              sys.executable, "-B", *sys.argv])
    del os.environ[_INSIDE]
    _replace_dev()
    for folder in ("/run", "/var/spool/cron", "/etc/cron.d"):
        mount_memory(folder)
    with open("/run/empty", "w", encoding="utf-8"):
        pass
    if os.path.exists("/etc/crontab"):
        _mount("--bind", "/run/empty", "/etc/crontab")
    os.mkdir("/var/spool/cron/crontabs")
    return _SystemLog()


def mount_memory(folder):
    _mount("-t", "tmpfs", "-o", "mode=0755", "tmpfs", folder)


def _mount(*words):
    subprocess.run(["mount", *words], check=True)


def _replace_dev():
    """For the socket of the system log: the machine's own /dev is everybody's."""
    mount_memory("/run")
    os.mkdir("/run/dev")
    _mount("--rbind", "/dev", "/run/dev")
    mount_memory("/dev")
    for name in _DEVICES:
        with open(f"/dev/{name}", "w", encoding="utf-8"):
            pass
        _mount("--bind", f"/run/dev/{name}", f"/dev/{name}")
    os.mkdir("/dev/shm")
    mount_memory("/dev/shm")


class _SystemLog:
    """Takes messages, in a process of its own."""

    def __init__(self):
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        listener.bind("/dev/log")
        self._pid = os.fork()
        if self._pid == 0:
            buffer = bytearray(8192)
            while True:
                listener.recv_into(buffer)
        listener.close()

    def is_alive(self):
        return os.waitpid(self._pid, os.WNOHANG) == (0, 0)


def reap_orphans():
    """What daemons leave behind becomes children of the first process."""
    try:
        while os.waitpid(-1, os.WNOHANG)[0] > 0:
            pass
    except ChildProcessError:
        pass
