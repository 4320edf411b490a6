#!/usr/bin/env -S python3 -B
"""The control tool on the execution log, and on what jobs have printed.

usage: log_test.py TOOL SERVICE
"""

import json
import os
import signal
import subprocess
import sys
import tempfile
import unittest

import fakeservice
import realservice
import terminal

TOOL, SERVICE = sys.argv[1:3]
NOBODY = 65534
PATIENCE = 30


def tool(root, *arguments, **options):
    return subprocess.run([TOOL, "--root", root, *arguments], capture_output=True, text=True, timeout=60, check=False, **options)


@unittest.skipUnless(os.geteuid() == 0, "needs the log")
class OfAService(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        definitions = {"a": ["/bin/true"], "unended": ["/usr/bin/printf", "one\\ntwo"], "a with command: b": ["/bin/true"], "loud": ["/bin/echo", "\x1b[2Jloud"],
                       "missing": ["/no/such/program"]}
        cls.root = cls.enterClassContext(realservice.RealService(SERVICE, {
            f"{realservice.SHIPPED}/{number}.conf":
                {"name": name, "user": "root", "period": "c", "crontab": "0 0 1 1 *", "cmd_list": command}
            for number, (name, command) in enumerate(definitions.items())})).root
        cls.runs = {name: tool(cls.root, "run", name, "--wait") for name in definitions}

    def test_the_log_of_a_job_and_of_no_other(self):
        self.assertRegex(tool(self.root, "log", "a").stdout, r"^[^\n]* running job: a with command: /bin/true +as user root \(manual\)\n$")
        self.assertRegex(tool(self.root, "log", "builtin/a with command: b").stdout,
                         r"^[^\n]* running job: a with command: b with command: /bin/true +[^\n]*\n$")
        told = json.loads(tool(self.root, "log", "missing", "--json").stdout)
        self.assertEqual(len(told["lines"]), 2)
        self.assertIn(" failed, return code: ", told["lines"][1])
        self.assertEqual(len(tool(self.root, "log", "-n", "1").stdout.splitlines()), 1)
        unknown = tool(self.root, "log", "unknown")
        self.assertEqual((unknown.returncode, unknown.stdout), (1, ""))
        self.assertIn('there is no job "unknown"', unknown.stderr)
        with terminal.Terminals() as terminals:
            for name, has_colour in [("a", False), ("missing", True)]:
                shown = terminals.run([TOOL, "--root", self.root, "log", name], width=200)
                self.assertEqual((shown.status, shown.has_colour), (0, has_colour))

    def test_a_program_that_could_not_be_started(self):
        self.assertEqual((self.runs["missing"].returncode, self.runs["missing"].stdout),
                         (1, "builtin/missing could not be started: No such file or directory\n"))

    def test_jobs_of_one_name_cannot_be_told_apart_which_is_told(self):
        jobs = [fakeservice.job("builtin/a"), fakeservice.job("pkg/a"), fakeservice.job("pkg/b")]
        with fakeservice.FakeService(fakeservice.world(jobs)) as root:
            os.makedirs(root + "/var/log")
            with open(root + "/var/log/vukocrond-execute.log", "w", encoding="utf-8") as file:
                file.write("running job: a with command: x\n")
            for asked, notes in [("pkg/a", "The log names jobs without their folders: lines may be of builtin/a.\n"), ("b", "")]:
                self.assertEqual(tool(root, "log", asked).stderr, notes)
            for count in ("0", "x"):
                done = tool(root, "log", "-n", count)
                self.assertEqual(done.returncode, 2)
                self.assertIn(f'--lines: "{count}": expected a whole number, 1 or more', done.stderr)

    def test_lines_of_a_failed_identity(self):
        with tempfile.TemporaryDirectory() as folder:
            os.makedirs(folder + "/var/log")
            lines = ["2026-11-15T16:30:33+08:00 " + text for text in [
                "Failed to initgroups fora for user alice[Operation not permitted]", "Failed to setgid fora for user alice[x]",
                "Failed to setuid fora for user alice[x]", "Failed to setuid forab for user alice[x]", "running job: ab with command: a",
                "\x1b[2Jrunning job: a with command: /x"]] + ["running job: a with command: without a stamp"]
            with open(folder + "/var/log/vukocrond-execute.log", "w", encoding="utf-8") as file:
                file.write("\n".join(lines) + "\nnot whole")
            self.assertEqual(tool(folder, "log", "a").stdout.splitlines(), lines[:3] + lines[-1:])
            self.assertNotIn("\x1b", tool(folder, "log").stdout)
            self.assertEqual(tool(folder, "log", "a", preexec_fn=lambda: os.setuid(NOBODY)).returncode, 4)

    def test_output_of_a_job(self):
        self.assertEqual(tool(self.root, "log", "loud", "-o").stdout, "\\x1b[2Jloud\n")
        self.assertEqual(tool(self.root, "log", "unended", "-o", "-n", "1").stdout, "two\n")
        done = tool(self.root, "log", "--output", "a with command: b")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(tool(self.root, "log", "-o").returncode, 2)

    def test_who_may_not_read_the_log_is_told_what_he_may(self):
        os.chmod(self.root / "var/log/vukocrond-execute.log", 0o600)
        done = tool(self.root, "log", user=NOBODY)
        self.assertEqual((done.returncode, done.stdout), (4, ""))
        self.assertIn("vukocronctl history", done.stderr)

    def test_nothing_logged_yet(self):
        with tempfile.TemporaryDirectory() as folder:
            done = tool(folder, "log")
        self.assertEqual(done.returncode, 1)
        self.assertIn("is not there: no job has been started yet", done.stderr)


class Followed(unittest.TestCase):
    def setUp(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        os.makedirs(folder + "/var/log")
        self.file = folder + "/var/log/vukocrond-execute.log"
        self.append(*(f"running job: old{n} with command: x" for n in range(12)))
        self.follower = subprocess.Popen([TOOL, "--root", folder, "log", "-f"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.follower.stdout.close)
        self.addCleanup(self.follower.wait, PATIENCE)
        self.addCleanup(self.follower.kill)
        self.expect(*(f"running job: old{n} with command: x" for n in range(2, 12)))

    def append(self, *lines):
        with open(self.file, "a", encoding="utf-8") as file:
            file.write("".join(line + "\n" for line in lines))

    def expect(self, *lines):
        self.assertEqual([self.follower.stdout.readline() for _ in lines], [line + "\n" for line in lines])

    def test_over_rotation_and_truncation_until_interrupted(self):
        self.append("one")
        self.expect("one")
        os.rename(self.file, self.file + ".1")
        self.append("after rotation")
        self.expect("after rotation")
        with open(self.file, "w", encoding="utf-8") as file:
            file.write("new\n")
        self.expect("new")
        self.follower.send_signal(signal.SIGINT)
        self.assertEqual(self.follower.wait(PATIENCE), 0)

    def test_until_nobody_reads(self):
        self.follower.stdout.close()
        self.assertEqual(self.follower.wait(PATIENCE), 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
