"""docs/TUTORIAL.md, walked through on a machine with the installed service, and what the README shows of one.

Environment: VUKO_BUILD_DIR. With VUKO_DOCS_REWRITE=1 the page is given the outputs that came, for whoever has changed
them and then looks at the difference.
"""

import os
import pathlib
import re
import tempfile
import time

import walk
from control import Control
from installed import local_folders, unit_of
from machine import Machine, poll
from store import INSIDE_DIR, MachineTest, folders, main

SOURCE = pathlib.Path(__file__).resolve().parents[2]
ACCOUNT = "photos"
PLACE = f"/home/{ACCOUNT}"
PATIENCE = 10


class Tutorial(MachineTest):
    @classmethod
    def setUpClass(cls):
        stage = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="vukocrond-walk-"))
        shown = {**local_folders(stage), **folders()}
        cls.machine = cls.enterClassContext(Machine(folders=shown))
        cls.machine.run("systemd-tmpfiles", "--create", "/usr/local/lib/tmpfiles.d/vukocrond.conf")
        cls.machine.add_unit("vukocrond.service", unit_of(stage))
        cls.machine.run("systemctl", "start", "vukocrond")
        cls.machine.run("ldconfig")
        cls.machine.run("mkdir", "--mode=755", PLACE)
        # What the package's author has compiled from the page's program.
        cls.machine.run("ln", "-s", f"{INSIDE_DIR}/bin/tutorial_job", f"{PLACE}/tutorial_job")
        poll(Control(f"/proc/{cls.machine.pid}/root/run/vukocrond.sock").answers, "the service answers")

    def do(self, command, last):
        """Runs it with the status of the one before as $?. @return the lines that it printed, and its status."""
        as_whom = ["runuser", "-u", ACCOUNT, "--"] if command.who == "account" else []
        done = self.machine.run("env", f"--chdir={PLACE}", f"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/bin:{PLACE}",
                                *as_whom, "bash", "-c", f"exec 2>&1; (exit {last})\n{command.text}", check=False)
        return done.stdout.splitlines(), done.returncode

    def until_as_shown(self, command, last):
        """Some of what a page shows comes a moment after the command before. Only what changes nothing is run again."""
        deadline = time.monotonic() + PATIENCE
        asks = re.match(r"vukocronctl (list|show|history|why|status|next)\b|journalctl\b", command.text)
        while True:
            printed, status = self.do(command, last)
            if not asks or walk.is_as_shown(command.shown, printed) or time.monotonic() > deadline:
                return printed, status
            time.sleep(0.2)

    def test_it_does_what_it_shows(self):
        page = SOURCE / "docs/TUTORIAL.md"
        text = page.read_text(encoding="utf-8")
        last, outputs = 0, []
        for step in walk.steps(text):
            if isinstance(step, walk.File):
                self.machine.write(f"{PLACE}/{step.name}", step.text)
                continue
            printed, last = self.until_as_shown(step, last)
            outputs.append(printed)
            if "VUKO_DOCS_REWRITE" not in os.environ:
                with self.subTest(step.text):
                    self.assertTrue(walk.is_as_shown(step.shown, printed), "\n".join(
                        ["shown:", *step.shown, "printed:", *printed]))
        self.assertGreater(len(outputs), 20)
        if "VUKO_DOCS_REWRITE" in os.environ:
            page.write_text(walk.with_what_was_printed(text, outputs), encoding="utf-8")

    def test_the_readme_shows_what_is_printed(self):
        """Of the list its columns, as the jobs are others here; the first one is added by what comes after it."""
        self.machine.write(f"{PLACE}/backup", "#!/bin/sh\n", mode="755")
        looks, *changes = walk.steps((SOURCE / "README.md").read_text(encoding="utf-8"))
        self.assertGreater(len(changes), 1)
        for command in changes:
            printed, _ = self.do(command, 0)
            self.assertTrue(walk.is_as_shown(command.shown, printed), [command.shown, printed])
        looks.who = "root"
        printed, _ = self.do(looks, 0)
        self.assertEqual(walk.form(printed[0]), walk.form(looks.shown[0]))

    def test_its_program_is_the_one_that_was_compiled(self):
        text = (SOURCE / "docs/TUTORIAL.md").read_text(encoding="utf-8")
        (program,) = re.findall(r"^```cpp\n(.*?)^```", text, re.M | re.S)
        self.assertEqual(program, (SOURCE / "tests/docs/tutorial_job.cpp").read_text(encoding="utf-8"))


if __name__ == "__main__":
    main()
