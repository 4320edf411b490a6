"""Runs commands in a terminal, and tells what a person would see: tmux draws it.

    with terminal.Terminals() as terminals:
        shown = terminals.run(["vukocronctl", "list"], width=80)
        shown.status, shown.lines, shown.escapes
        pane = terminals.start(["vukocronctl", "list"], height=5)
        pane.until(lambda text: "lines 1-4" in text)
        pane.keys("q")
"""

import dataclasses
import os
import pathlib
import re
import shlex
import subprocess
import tempfile
import time

PATIENCE_SECONDS = 60


@dataclasses.dataclass
class Shown:
    status: int  # what the command ended with
    text: str  # the screen, without the empty lines at its end
    escapes: str  # the same with the escape sequences that colour it

    @property
    def lines(self):
        return self.text.split("\n")

    @property
    def has_colour(self):
        return "\x1b[" in self.escapes

    def style_of(self, word):
        """The numbers of the escape sequences directly before a word; None where it is not on the screen."""
        found = re.search(r"((?:\x1b\[[\d;]*m)*)" + re.escape(word), self.escapes)
        return found and [int(number) for number in re.findall(r"\d+", found[1])]


class Pane:
    """A command in a terminal of its own."""

    def __init__(self, terminals, name, command, width, height, variables):
        self.terminals, self.name = terminals, name
        self.status_file = pathlib.Path(terminals.folder.name) / name
        settings = [f"{key}={value}" for key, value in variables.items()]  # tmux itself would set TERM anew
        # What is run must not be the pane's last command: the screen would go with it. Ctrl-C is for the command alone.
        text = f"trap : INT; {shlex.join(['env', *settings, *command])}; echo $? >{self.status_file}.part; mv {self.status_file}.part {self.status_file}; cat"
        terminals.tmux("new-session", "-d", "-s", name, "-x", str(width), "-y", str(height), "sh", "-c", text)

    def text(self, *options):
        return self.terminals.tmux("capture-pane", "-p", "-t", f"={self.name}:", *options).rstrip("\n")

    def keys(self, *names):
        self.terminals.tmux("send-keys", "-t", f"={self.name}:", *names)

    def until(self, holds):
        """Waits for something to be true of the text on the screen."""
        deadline = time.monotonic() + PATIENCE_SECONDS
        while not holds(self.text()):
            assert time.monotonic() < deadline, self.text()
            time.sleep(0.02)

    def ended(self):
        return self.status_file.exists()

    def end(self):
        """Waits for the end of the command. @return what is seen then."""
        self.until(lambda text: self.ended())
        shown = Shown(int(self.status_file.read_text()), self.text(), self.text("-e"))
        self.terminals.tmux("kill-session", "-t", f"={self.name}")
        return shown


class Terminals:
    """A tmux server of one's own, gone at the end with everything that runs in it."""

    def __enter__(self):
        self.folder = tempfile.TemporaryDirectory()
        self.count = 0
        self.settings = pathlib.Path(self.folder.name) / "settings"
        self.settings.write_text("set -g status off\nset -g escape-time 0\nset -g exit-empty off\n", encoding="utf-8")
        self.tmux("start-server")
        return self

    def __exit__(self, *_):
        self.tmux("kill-server")
        self.folder.cleanup()

    def tmux(self, *arguments):
        environment = {"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "SHELL": "/bin/sh", "HOME": self.folder.name,
                       "TERM": "xterm"}
        done = subprocess.run(["tmux", "-u", "-S", self.folder.name + "/socket", "-f", self.settings, *arguments],
                              capture_output=True, text=True, env=environment, timeout=PATIENCE_SECONDS, check=False)
        assert done.returncode == 0, f"tmux {arguments}: {done.stderr}"
        return done.stdout

    def start(self, command, width=80, height=50, **variables):
        """Begins a command. @param variables  of its environment, besides LC_ALL=C.UTF-8."""
        self.count += 1
        return Pane(self, f"pane{self.count}", [str(word) for word in command], width, height, variables)

    def run(self, command, **options):
        return self.start(command, **options).end()
