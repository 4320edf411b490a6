#!/usr/bin/env -S python3 -B
"""What bash and zsh write when somebody presses Tab behind `vukocronctl`.

usage: completion_test.py SOURCE_FOLDER TOOL SERVICE
"""

import json
import os
import pathlib
import pty
import select
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE, TOOL, SERVICE = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
FILES = SOURCE / "packaging/completion"
BASH_COMPLETION = pathlib.Path("/usr/share/bash-completion/bash_completion")
PATIENCE = 60
MARK = "\x02"  # Ctrl-B shows the line, see below
BASH = f"""
source {FILES}/vukocronctl.bash
bind 'set bell-style none'; bind 'set show-all-if-ambiguous on'; bind 'set completion-query-items 0'
bind 'set page-completions off'; bind 'set enable-bracketed-paste off'; bind 'set completion-display-width 0'
_show() {{ printf '<LINE>%s<END>' "$READLINE_LINE"; READLINE_LINE=; READLINE_POINT=0; }}
bind -x '"\\C-b": _show'
"""
ZSH = f"""
fpath=({FILES} $fpath)
autoload -Uz compinit; compinit -D -u
zstyle ':completion:*' list-separator '--'
LISTMAX=10000; unsetopt beep list_beep; PS1='$ '
_show() {{ printf '<LINE>%s<END>' "$BUFFER"; BUFFER= }}
zle -N _show; bindkey '^B' _show; bindkey '^I' complete-word
"""


class Shell:
    """A shell in a terminal of its own, with the tool as the first thing in its PATH."""

    def __init__(self, command, folder, start):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execvpe(command[0], command, {"PATH": f"{TOOL.parent}:/usr/bin:/bin", "TERM": "dumb", "LC_ALL": "C.UTF-8", "PS1": "$ ",
                                             "HOME": str(folder), "COLUMNS": "200", "LINES": "1000", "ZDOTDIR": str(folder)})
        subprocess.run(["stty", "-F", os.ttyname(self.terminal) if os.isatty(self.terminal) else "", "cols", "200"],
                       check=False, capture_output=True)
        self.send(start + "\necho 'REA''DY'\n")
        self.read_until("READY\r")

    def send(self, text):
        os.write(self.terminal, text.encode())

    def read_until(self, end):
        text, deadline = "", time.monotonic() + PATIENCE
        while end not in text:
            if not select.select([self.terminal], [], [], max(0, deadline - time.monotonic()))[0]:
                raise AssertionError(f"no {end!r} in {text!r}")
            text += os.read(self.terminal, 65536).decode(errors="replace")
        return text

    def press_tab(self, line):
        """The line after Tab behind it, and all that the shell wrote meanwhile."""
        self.send(line + "\t" + MARK)
        text = self.read_until("<END>")
        shown, _, after = text.rpartition("<LINE>")
        return after.partition("<END>")[0], shown

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.pid, 0)


class Folder(unittest.TestCase):
    """A folder with files, and a service below one of its own whose jobs have odd names."""

    NAMES = ["backup", "back up", "it's", 'a"b$c', "nightly:one", "nightly:two", "-dash", "twice"]

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="vuko completion ")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        for name in ("some file.conf", "other.conf"):
            (cls.folder / name).write_text("{}", encoding="utf-8")
        cls.root = cls.folder / "root"
        for place, names in (("usr/vuko/share/vukocron.d", cls.NAMES), ("usr/local/etc/vukocron.d", ["twice"])):
            (cls.root / place).mkdir(parents=True, mode=0o755)
            file = cls.root / place / "jobs.conf"
            file.write_text(json.dumps([{"name": name, "user": "root", "period": "c", "crontab": "0 0 1 1 *", "cmd": "/bin/true"}
                                        for name in names]), encoding="utf-8")
            file.chmod(0o644)
        cls.service = subprocess.Popen([SERVICE, "--root", cls.root], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL)
        cls.addClassCleanup(cls.end_service)
        deadline = time.monotonic() + PATIENCE
        while subprocess.run([TOOL, "--root", cls.root, "list"], capture_output=True, check=False).returncode != 0:
            assert time.monotonic() < deadline and cls.service.poll() is None
            time.sleep(0.02)

    @classmethod
    def end_service(cls):
        cls.service.terminate()
        cls.service.wait(PATIENCE)

    def start(self, command, text):
        shell = Shell(command, self.folder, text)
        self.addCleanup(shell.close)
        return shell

    def assert_lines(self, shell, cases):
        for line, completed in cases:
            with self.subTest(line):
                self.assertEqual(shell.press_tab(line)[0], completed)


class Bash(Folder):
    CASES = [("vukocronctl expl", "vukocronctl explain "), ("vukocronctl --ro", "vukocronctl --root "),
             ("vukocronctl next --pol", "vukocronctl next --policy "), ("vukocronctl next --policy l", "vukocronctl next --policy literal "),
             ("vukocronctl next --policy=l", "vukocronctl next --policy=literal "),
             ("vukocronctl next --tz Europe/Berl", "vukocronctl next --tz Europe/Berlin "),
             ("vukocronctl template sho", "vukocronctl template show "), ("vukocronctl role pas", "vukocronctl role passive "),
             ("vukocronctl check oth", "vukocronctl check other.conf "), ("vukocronctl check so", "vukocronctl check some\\ file.conf "),
             ("vukocronctl add --daily -- vukocronc", "vukocronctl add --daily -- vukocronctl "),
             ("vukocronctl add --daily -- cat oth", "vukocronctl add --daily -- cat other.conf "),
             ("vukocronctl next --file=oth", "vukocronctl next --file=other.conf "), ("vukocronctl --root roo", "vukocronctl --root root/"),
             ("vukocronctl --root root show backu", "vukocronctl --root root show backup "),
             ("vukocronctl show --root=root 'back ", "vukocronctl show --root=root 'back up' "),
             ('vukocronctl --root root show "back ', 'vukocronctl --root root show "back up" '),
             ("vukocronctl --root root show back\\ ", "vukocronctl --root root show back\\ up "),
             ("vukocronctl --root root show it", "vukocronctl --root root show it\\'s "),
             ("vukocronctl --root root show a", 'vukocronctl --root root show a\\"b\\$c '),
             ("vukocronctl --root root show nightly:o", "vukocronctl --root root show nightly:one "),
             ("vukocronctl --root root show nig", "vukocronctl --root root show nightly:"),
             ("vukocronctl --root root show builtin/-", "vukocronctl --root root show builtin/-dash "),
             ("vukocronctl --root root show pkg", "vukocronctl --root root show pkg/twice ")]

    def test_with_and_without_the_common_completions(self):
        self.assertTrue(BASH_COMPLETION.is_file())
        for before in ("", f"source {BASH_COMPLETION}\n"):
            shell = self.start(["bash", "--norc", "--noprofile", "-i"], before + BASH)
            self.assert_lines(shell, self.CASES)

    def test_lists_what_there_is(self):
        shell = self.start(["bash", "--norc", "--noprofile", "-i"], BASH)
        commands = subprocess.run([TOOL, "--help"], capture_output=True, text=True, check=True).stdout.partition("Subcommands:\n")[2]
        _, shown = shell.press_tab("vukocronctl ")
        words = shown.split()
        for line in commands.splitlines():
            if line.startswith("  ") and line[2] != " ":
                self.assertIn(line.split()[0], words)
        shown = shell.press_tab("vukocronctl --root root show ")[1]
        for name in ("backup", "back\\ up", "nightly:one", "builtin/-dash", "builtin/twice", "pkg/twice"):
            self.assertIn(name, shown)

    def test_is_silent_without_a_service(self):
        shell = self.start(["bash", "--norc", "--noprofile", "-i"], BASH)
        for root in ("/no/such/folder", str(self.folder).replace(" ", "\\ ")):
            line = f"vukocronctl --root {root} show x"
            begin = time.monotonic()
            completed, shown = shell.press_tab(line)
            self.assertLess(time.monotonic() - begin, 10)
            self.assertEqual(completed, line)
            self.assertNotIn("vukocronctl:", shown)


class Zsh(Folder):
    def test_completes_as_bash_does(self):
        shell = self.start(["zsh", "-f", "-i"], ZSH)
        self.assert_lines(shell, [case for case in Bash.CASES if "nig" not in case[0] and '"' not in case[0] and "\\" not in case[0]])
        self.assert_lines(shell, [("vukocronctl --root root show nightly:o", "vukocronctl --root root show nightly:one "),
                                  ("vukocronctl --root root show nig", "vukocronctl --root root show nightly:")])

    def test_lists_what_there_is_and_what_it_means(self):
        shell = self.start(["zsh", "-f", "-i"], ZSH)
        shown = shell.press_tab("vukocronctl re")[1]
        self.assertRegex(shown, r"reload +-- +Read the definitions again")
        shown = shell.press_tab("vukocronctl --root root show ")[1]
        for name in ("backup", "back up", "nightly:one", "builtin/-dash", "pkg/twice"):
            self.assertIn(name, shown)
        line = "vukocronctl --root /no/such show x"
        completed, shown = shell.press_tab(line)
        self.assertEqual(completed, line)
        self.assertNotIn("vukocronctl:", shown)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
