#!/usr/bin/env -S python3 -B
"""What the packages put beside the programs: the unit, the folders made at boot, the rotation of the logs.

Usage: packaging_test.py PACKAGING_FOLDER PROGRAM LOGWRITER
"""

import gzip
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import unittest

PACKAGING, PROGRAM, LOGWRITER = map(pathlib.Path, sys.argv[1:])
PATIENCE = 60


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout + done.stderr


class InAFolder(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="vuko-packaging-")))


class Unit(InAFolder):
    def setUp(self):
        super().setUp()
        text = (PACKAGING / "vukocrond.service.in").read_text(encoding="utf-8")
        self.unit = self.folder / "vukocrond.service"
        self.unit.write_text(text.replace("@VUKO_SBINDIR@", str(PROGRAM.parent)), encoding="utf-8")

    def verify(self):
        return run("systemd-analyze", "verify", "--man=no", "--recursive-errors=no", self.unit)

    def settings(self):
        return re.findall(r"^[A-Z]\w*=.*$", self.unit.read_text(encoding="utf-8"), re.M)

    def test_is_understood_without_a_complaint(self):
        self.assertEqual(self.verify(), "")

    def test_a_setting_that_does_not_exist_is_complained_of(self):
        with open(self.unit, "a", encoding="utf-8") as file:
            file.write("[Service]\nNoSuchSetting=1\n")
        with self.assertRaisesRegex(AssertionError, "Unknown key 'NoSuchSetting'"):
            self.verify()

    def test_has_no_setting_that_would_reach_the_jobs(self):
        reaching = re.compile(r"(Protect|Private|ReadOnly|ReadWrite|Inaccessible|Capability|Ambient|NoNewPriv|Restrict[SARN]"
                              r"|SystemCall|MemoryDeny|Lock|IPAddress|Device|Limit|CPU|Memory|User=|Group=|UMask|Nice"
                              r"|IOSched|Environment|WorkingDirectory|Root)")
        self.assertEqual([line for line in self.settings() if reaching.match(line)], [])

    def test_lets_running_jobs_be_at_a_stop(self):
        self.assertIn("KillMode=process", self.settings())


class Tmpfiles(InAFolder):
    @unittest.skipUnless(os.geteuid() == 0, "folders of root can be made by root alone")
    def test_makes_the_folders_with_their_modes(self):
        root = self.folder / "root"
        root.mkdir()
        settings = (PACKAGING / "vukocrond.tmpfiles").resolve()
        self.assertEqual(run("systemd-tmpfiles", "--create", f"--root={root}", settings), "")
        modes = {str(path.relative_to(root)): path.stat().st_mode & 0o7777 for path in root.rglob("*")}
        for path, mode in {"usr/vuko/etc/vukocron.d": 0o755, "usr/local/etc/vukocron.d": 0o755,
                           "usr/local/etc/vukocron_nonroot.d": 0o755, "var/log/vukocrond": 0o750,
                           "tmp/vukocrond": 0o711}.items():
            self.assertEqual(modes.get(path), mode, path)


@unittest.skipUnless(os.geteuid() == 0, "the rotation is root's")
class Logrotate(InAFolder):
    def setUp(self):
        super().setUp()
        self.log = self.folder / "vukocrond-execute.log"
        self.output = self.folder / "output"
        self.output.mkdir()
        self.settings = self.folder / "settings"
        text = (PACKAGING / "vukocrond.logrotate").read_text(encoding="utf-8")
        text = text.replace("/var/log/vukocrond-execute.log", str(self.log)).replace("/var/log/vukocrond", str(self.output))
        self.assertNotIn("/var/log", text)
        self.settings.write_text(text, encoding="utf-8")

    def rotate(self, *options):
        return run("logrotate", f"--state={self.folder}/state", *options, self.settings)

    def lines(self):
        """All lines of the log and of what was rotated away, the oldest first."""
        def age(path):
            number = re.search(r"\.(\d+)(\.gz)?$", path.name)
            return int(number[1]) if number else 0

        for file in sorted(self.folder.glob("vukocrond-execute.log*"), key=age, reverse=True):
            with (gzip.open if file.suffix == ".gz" else open)(file, "rt", encoding="utf-8") as stream:
                yield from stream.read().splitlines()

    def await_lines(self):
        """Until the writer has come some lines further, in the file of that name."""
        deadline = time.monotonic() + PATIENCE
        while not self.log.exists() or self.log.stat().st_size < 500:
            self.assertLess(time.monotonic(), deadline, "nobody writes")
            time.sleep(0.005)

    def test_settings_are_understood(self):
        told = self.rotate("--debug")
        self.assertIn("Handling 2 logs", told)
        self.assertNotIn("error", told)

    def test_loses_no_line_of_a_process_that_keeps_writing(self):
        writer = subprocess.Popen([LOGWRITER, self.log, self.folder / "staging"], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True)
        self.addCleanup(writer.kill)
        for _ in range(4):
            self.await_lines()
            self.rotate("--force")
        self.await_lines()
        count = int(writer.communicate(timeout=PATIENCE)[0])
        self.assertEqual(list(self.lines()), [f"line {number} ends" for number in range(count)])
        self.assertEqual(self.log.stat().st_mode & 0o7777, 0o600)
        self.assertEqual({path.name for path in self.folder.glob("*.gz")},
                         {f"vukocrond-execute.log.{number}.gz" for number in (2, 3, 4)})

    def test_keeps_the_output_of_jobs(self):
        (self.output / "backup.log").write_text("said\n", encoding="utf-8")
        self.rotate("--force")
        self.assertEqual((self.output / "backup.log.1").read_text(encoding="utf-8"), "said\n")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
