"""Machines to test on: namespaces of their own, with a real systemd as the first process, or without one.

A machine sees this machine's files, but nothing that is done in it is seen outside or outlives it, except in the
folders that it shares. Each has a name of its own, so tests may run side by side.
"""

import json
import os
import select
import signal
import subprocess
import sys
import tempfile
import time
import uuid

_SUPERVISOR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "supervisor.py")
_PATIENCE = 60.0
_ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "TERM": "dumb", "HOME": "/root", "LC_ALL": "C.UTF-8"}
_UNITS = "/etc/systemd/system"


class MachineError(Exception):
    """A machine did not do what a test is built on."""


def poll(question, what, patience=_PATIENCE, pause=0.02):
    """Asks until the answer is true, and returns it; tells `what` was waited for when it never is."""
    deadline = time.monotonic() + patience
    while True:
        answer = question()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise MachineError(f"waited {patience:g} s in vain: {what}")
        time.sleep(pause)


def text_of(path):
    """What a file holds; nothing when there is none."""
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except FileNotFoundError:
        return ""


class Machine:
    """A machine, from `with Machine() as machine:` to the end of the block, or until poweroff().

    folders: inside path -> (outside path, whether the machine may write to it).
    units:   the name of a unit -> its text; they are there, and wanted, from the beginning of the boot.
    systemd: False for a machine without a service manager (its first process does nothing).
    """

    def __init__(self, *, folders=None, units=None, systemd=True):
        self.name = f"vukocrond-test-{uuid.uuid4().hex[:12]}"
        self.pid = None
        self._systemd = systemd
        self._order = {"name": self.name, "folders": folders or {}, "units": units or {}, "systemd": systemd}
        self._life = self._status = None
        self._told = b""
        self._last_words = ""
        self._console = tempfile.TemporaryFile()

    def __enter__(self):
        try:
            self._start_supervisor()
            self.pid = int(self._expect("pid"))
            poll(self._is_ready, "the machine has booted")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        """Returns when nothing of the machine is left."""
        if self._life is not None:
            os.close(self._life)
            self._life = None
        if self._status is not None:
            while self._read_status():
                pass
            os.close(self._status)
            self._status = self.pid = None
        self._last_words = self._console_text()
        self._console.close()

    def run(self, *command, check=True, text=None, patience=30.0):
        """Runs a command inside, with `text` as its input; its output is text, too."""
        done = subprocess.run(self._inside(command), env=_ENVIRONMENT, input=text, capture_output=True, text=True,
                              check=False, timeout=patience, stdin=None if text is not None else subprocess.DEVNULL)
        if check and done.returncode != 0:
            raise MachineError(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
        return done

    def spawn(self, *command, **options):
        """Starts a command inside and returns its Popen, which stands for `nsenter`."""
        return subprocess.Popen(self._inside(command), env=_ENVIRONMENT, stdin=subprocess.DEVNULL, text=True, **options)

    def write(self, path, text, mode="644"):
        """Makes a file inside, and the folders on its way."""
        self.run("install", "-D", f"--mode={mode}", "/dev/stdin", path, text=text)

    def read(self, path):
        """What a file inside holds; nothing when there is none."""
        done = self.run("cat", path, check=False)
        return done.stdout if done.returncode == 0 else ""

    def add_unit(self, name, text):
        """Adds or replaces a unit; starting it is up to the caller."""
        self.write(f"{_UNITS}/{name}", text)
        self.run("systemctl", "daemon-reload")

    def remove_unit(self, name):
        self.run("systemctl", "stop", name, check=False)
        self.run("rm", "--force", f"{_UNITS}/{name}")
        self.run("systemctl", "daemon-reload")

    def settle(self):
        """Waits until systemd has nothing left to do: whatever was asked for by now has been done then."""
        poll(lambda: not self.run("systemctl", "list-jobs", "--no-legend").stdout.strip(), "all jobs are done")

    def journal(self, *matches):
        """The journal's entries, each a dictionary, after everything that was logged by now has reached it."""
        self.run("journalctl", "--sync")
        output = self.run("journalctl", "--output=json", "--no-pager", *matches).stdout
        return [json.loads(line) for line in output.splitlines()]

    def poweroff(self):
        """Shuts down in order, and returns when the machine is off and nothing of it is left."""
        self.run("systemctl", "poweroff", "--no-block")
        self.wait_until_off()

    def wait_until_off(self):
        # The kernel ends the first process of a pid namespace that powers off as by SIGINT.
        ended = int(self._expect("ended"))
        if ended != -signal.SIGINT:
            raise MachineError(f"the machine was not powered off: its first process ended with {ended}")

    def diagnosis(self):
        """What may tell why a test failed; of a machine that is gone, only what it said on its console."""
        journal = ""
        if self._systemd and self.pid is not None:
            journal = self.run("journalctl", "--no-pager", "--lines=200", check=False).stdout
        return f"--- journal of {self.name}\n{journal}--- console\n{self._console_text()}"

    def _inside(self, command):
        if self.pid is None:
            raise MachineError(f"{self.name} is gone")
        return ["nsenter", f"--target={self.pid}", "--all", "--root", "--wd", *command]

    def _start_supervisor(self):
        life, self._life = os.pipe()
        self._status, status = os.pipe()
        try:
            subprocess.run([sys.executable, "-B", _SUPERVISOR, str(life), str(status), json.dumps(self._order)],
                           pass_fds=(life, status), stdin=subprocess.DEVNULL, stdout=self._console,
                           stderr=self._console, check=True)
        finally:
            os.close(life)
            os.close(status)

    def _is_ready(self):
        if not self._systemd:
            return True
        if select.select([self._status], [], [], 0)[0]:
            self._read_status()
            raise MachineError(f"the machine ended while it booted:\n{self._console_text()}")
        state = self.run("systemctl", "is-system-running", check=False).stdout.strip()
        return state in ("running", "degraded")

    def _expect(self, what):
        """The rest of the supervisor's line that begins with `what`."""
        while True:
            for line in self._told.decode().splitlines():
                word, _, rest = line.partition(" ")
                if word == what:
                    return rest
            if not self._read_status():
                raise MachineError(f"the supervisor ended without telling '{what}':\n{self._console_text()}")

    def _read_status(self):
        """Takes in what the supervisor tells; False when it has ended."""
        if not select.select([self._status], [], [], _PATIENCE)[0]:
            raise MachineError(f"{self.name}: nothing heard of the supervisor for {_PATIENCE:g} s")
        told = os.read(self._status, 4096)
        self._told += told
        return bool(told)

    def _console_text(self):
        if self._console.closed:
            return self._last_words
        # Not by seeking: the descriptor shares its position with the machine, which writes there.
        return os.pread(self._console.fileno(), 1 << 16, 0).decode(errors="replace")
