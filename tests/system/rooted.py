"""The service as an ordinary process, with all its folders below one of the test's own."""

import json
import os
import struct
import subprocess

from control import Control
from machine import poll, text_of
from zones import MINUTE

PROGRAM = os.path.join(os.environ["VUKO_BUILD_DIR"], "bin", "vukocrond")

FOLDER = "usr/vuko/share/vukocron.d"
# The run table's file: what stands before the slots, and a slot, whose first word holds the stage in its lowest bits.
_TABLE_HEAD, _SLOT, _STAGE_MASK = 128, 128, 7


class Root:
    """The folders of one service."""

    def __init__(self, folder):
        self.folder = str(folder)
        self.control = Control(self.path("var/run/vukocrond.sock"))
        os.makedirs(self.path(FOLDER), exist_ok=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def read(self, name):
        return text_of(self.path(name))

    def define(self, name, crontab, command, folder=FOLDER, **members):
        """Puts a definition in its place, whole."""
        definition = {"name": name, "user": "root", "period": "crontab", "crontab": crontab, **members}
        definition["cmd_list" if isinstance(command, list) else "cmd"] = command
        put(os.path.join(self.path(folder), f"{name}.conf"), json.dumps(definition))

    def stages(self):
        """Where the launches in the run table stand; free slots are left out."""
        with open(self.path("var/run/vukocrond.runs"), "rb") as file:
            table = file.read()
        words = (struct.unpack_from("<Q", table, at)[0] for at in range(_TABLE_HEAD, len(table), _SLOT))
        return [word & _STAGE_MASK for word in words if word]

    def has_worked_up_to(self, minute):
        """Whether a local minute, and so each one before it, has had its tick."""
        return self.control.ask("status")["workedUpTo"] >= minute.number

    def is_quiet(self):
        return all(job["state"] != "running" for job in self.control.jobs().values())


def put(path, text, mode=0o644):
    """Makes or replaces a file as a whole."""
    with open(f"{path}.new", "w", encoding="utf-8") as file:
        os.fchmod(file.fileno(), mode)
        file.write(text)
    os.rename(f"{path}.new", path)


class Service:
    """A running service; killed at the end of its block, if it still runs."""

    def __init__(self, root, *options, prefix=(), zone=None, **environment):
        self.root = root
        self._log = root.path(f"messages-{len(os.listdir(root.folder))}")
        environment = {**os.environ, **environment, **({"TZ": zone} if zone else {})}
        with open(self._log, "wb") as log:
            self.process = subprocess.Popen([*prefix, PROGRAM, "--root", root.folder, *options], env=environment,
                                            stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def __enter__(self):
        try:
            poll(self._is_ready, "the service is ready", pause=0.01)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def _is_ready(self):
        if self.process.poll() is not None:
            raise AssertionError(f"the service ended with {self.process.returncode}:\n{self.messages()}")
        return " is ready" in self.messages() and self.root.control.answers()

    def messages(self):
        with open(self._log, encoding="utf-8", errors="replace") as file:
            return file.read()

    def kill(self):
        """As by SIGKILL; returns when it is dead."""
        self.__exit__()

    def stop(self, patience=MINUTE):
        """In order. Its exit status."""
        self.process.terminate()
        return self.process.wait(patience)
