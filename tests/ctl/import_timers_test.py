#!/usr/bin/env -S python3 -B
"""Calendar timers of systemd become definitions: the same instants as systemd itself tells of each expression, and all
that the units say besides.

usage: import_timers_test.py TOOL
"""

import datetime
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import classic

TOOL = sys.argv[1]
ENVIRONMENT = {"PATH": "/nowhere", "LC_ALL": "C.UTF-8", "TZ": "UTC"}  # nothing of systemd's is to be found
BASE = datetime.datetime(2026, 11, 21, 12, 34)
ITERATIONS = 25

# Not "0/15:0": systemd 252 leaves out midnight of the first of each month there, against its own manual.
SAID = ["minutely", "hourly", "daily", "Daily", "weekly", "monthly", "quarterly", "semiannually", "bi-annually", "yearly",
        "annually", "*:0/15", "*:2/3", "1/7:0", "06,18:00", "*-*-* 6,18:00", "Sun *-*-* 03:10:00", "Mon..Fri 9..17/2:30",
        "Mon-Fri 05:00", "Sat,Thu,Mon..Wed,Sat..Sun", "Wed, 17:48", "Wed..Wed,Wed *-1", "monday *-12-* 17:00", "10-15",
        "03-05 08:05", "*-*-7 0:0:0", "12,14,13,12:20,10,30", "12..14:10,20,30", "Mon,Fri *-01/2-01,3 *:30", "*-1/3-1..7 4:0",
        "*-*-31", "*-*-01..05/2 00:00", "2:3/3,4", "*-04,06~01 12:00", "*-05~07/1", "Mon *-05~07/1", "*-01,03~01..03 1:1", "*-03~04..09/2",
        "*-12~10/3", "*-*-* *:*:00", "daily UTC", "*-*-* 4:00 Etc/UTC", "Fri *-*-13", "02-29", "Sun *-*-1..7 05:00", "23..23/1:59"]

UNSAID = {"*-*-* *:*:*": "seconds", "*-*-* 1:2:0/30": "seconds", "1:2:3.5": "seconds", "*:*:10,40": "seconds", "2027-01-01": "years",
          "2027..2030-1-1 1:00": "years", "*-*~01": "February", "*-02~03": "February", "daily Europe/Berlin": "Europe/Berlin",
          "*-*-* 1:00 Asia/Tokyo": "Asia/Tokyo", "@1700000000": "single instant", "%H:00": "specifier"}

WRONG = ["Sat..Mon", "*/2:00", "*-*-*/2", "12", "22..2:00", "*-*-1/0", "*:0/90", "*-*-31/2", "fortnightly", "24:00", "*-13-1", "*-*-32",
         "*-0-1", "1:60", "Mon..", "Mo 1:00", "1:00:00:00", "*-*-* 1", "1-2-3-4", "*-07~31", "1:00 x", "-", "..", "1,:00"]


def tool(folders, *arguments, root=None, zone="UTC"):
    command = [TOOL] + (["--root", root] if root else []) + ["import", "timers", "--json"]
    command += [word for folder in folders for word in ("--unit-dir", folder)] + list(arguments)
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False, env={**ENVIRONMENT, "TZ": zone})
    assert done.returncode in (0, 1) and done.stdout, done.stderr
    return {item["where"]: item for item in json.loads(done.stdout)["items"]}


def starts(texts):
    """The first minutes after BASE that five fields match, each as often as a text matches it."""
    found = []
    parts = [[sorted(classic.here_values(text, field)) for field, text in enumerate(one.split())] for one in texts]
    for days in range(366 * 105):
        day = BASE.date() + datetime.timedelta(days=days)
        for part in parts:
            if classic.here_matches(part, day):
                found += [datetime.datetime(day.year, day.month, day.day, hour, minute) for hour in part[1] for minute in part[0]]
        found = [moment for moment in found if moment > BASE]
        if len(found) >= ITERATIONS:
            break
    return sorted(found)[:ITERATIONS]


def systemd_starts(expressions):
    """What systemd tells of each expression."""
    done = subprocess.run(["systemd-analyze", "calendar", f"--iterations={ITERATIONS}", f"--base-time={BASE} UTC", *expressions],
                          capture_output=True, text=True, timeout=60, check=True, env={"PATH": "/usr/bin:/bin", "TZ": "UTC", "LC_ALL": "C"})
    stamps = re.compile(r"^ *(?:Next elapse|Iter[^:]*): \w+ ([\d-]+ [\d:]+) UTC$", re.M)
    return [[datetime.datetime.fromisoformat(stamp) for stamp in stamps.findall(block)] for block in done.stdout.split("\n\n")]


class Timers(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = self.folder.name + "/root"
        self.units = self.folder.name + "/lib"
        self.own = self.folder.name + "/etc"
        for path in (self.root, self.units, self.own + "/timers.target.wants"):
            os.makedirs(path)

    def write(self, name, text, folder=None):
        path = os.path.join(folder or self.units, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def timer(self, name, *settings, service="Type=oneshot", wanted=True, install=True):
        self.write(name + ".timer", "[Timer]\n" + "\n".join(settings) + ("\n[Install]\nWantedBy=timers.target\n" if install else "\n"))
        if service is not None:
            self.write(name + ".service", "[Service]\n" + service + "\nExecStart=/bin/true\n")
        if wanted:
            os.symlink(f"{self.units}/{name}.timer", f"{self.own}/timers.target.wants/{name}.timer")

    def items(self, *arguments, **options):
        return tool([self.own, self.units], "--dry-run", *arguments, root=self.root, **options)

    def item(self, name, *arguments, **options):
        return self.items(*arguments, **options)[name + ".timer"]

    def only(self, *settings, **options):
        """The definition, and the codes of the notes, of a timer with these settings."""
        self.timer("a", *settings, **options)
        item = self.item("a", "--unit", "a")
        self.assertEqual(item["result"], "converted", item)
        return item["jobs"][0]["definition"], [note["code"] for note in item["notes"] if note["code"] not in ("twice", "not-enabled")]


class Calendars(Timers):
    def expressions(self, expressions):
        for number, expression in enumerate(expressions):
            self.timer(f"t{number:03}", "OnCalendar=" + expression)
        return list(self.items().values())

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_start_when_systemd_says(self):
        told = systemd_starts(SAID)
        self.assertEqual(len(told), len(SAID))
        for expression, item, expected in zip(SAID, self.expressions(SAID), told):
            with self.subTest(expression):
                self.assertEqual(item["result"], "converted", item)
                self.assertGreater(len(expected), 5)
                self.assertEqual(starts([job["definition"]["crontab"] for job in item["jobs"]])[:len(expected)], expected, item)

    def test_what_cannot_be_said_is_refused_with_its_reason(self):
        for item, (expression, reason) in zip(self.expressions(UNSAID), UNSAID.items()):
            with self.subTest(expression):
                self.assertEqual((item["result"], item["jobs"]), ("cannot be expressed", []))
                self.assertIn(reason, item["reason"])

    def test_what_systemd_refuses_is_refused(self):
        for item, expression in zip(self.expressions(WRONG), WRONG):
            with self.subTest(expression):
                self.assertEqual((item["result"], item["jobs"]), ("cannot be expressed", []), item)
                self.assertIn("no calendar expression", item["reason"])

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_systemd_does_refuse_these(self):
        done = subprocess.run(["systemd-analyze", "calendar", *WRONG], capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((done.returncode, done.stdout.strip(), done.stderr.count("Failed to parse")), (1, "", len(WRONG)), done.stderr)

    def test_several_calendars_start_a_job_once_a_minute(self):
        settings = ["OnCalendar=2:00", "OnCalendar=", "OnCalendar=Mon 06:00", "OnCalendar=Tue 06:00", "OnCalendar=*-*-1 6..7:0",
                    "OnCalendar=*-*-* 18:00"]
        self.timer("a", *settings)
        texts = [job["definition"]["crontab"] for job in self.item("a")["jobs"]]
        values = [[classic.here_values(text, field) for field, text in enumerate(one.split())] for one in texts]
        for day in classic.DAYS:
            weekday = day.isoweekday() % 7
            for hour in range(24):
                expected = hour == 18 or hour == 6 and (weekday in (1, 2) or day.day == 1) or hour == 7 and day.day == 1
                found = sum(classic.here_matches(one, day) and hour in one[1] for one in values)
                self.assertEqual(found, int(expected), f"{texts} {day} {hour}")
        self.assertTrue(all(one[0] == {0} for one in values))

    def test_one_text_where_one_will_do(self):
        self.assertEqual(self.only("OnCalendar=6:00", "OnCalendar=18:00")[0]["crontab"], "0 6,18 * * *")

    def test_a_zone_is_no_matter_where_it_is_the_systems_own(self):
        self.timer("a", "OnCalendar=4:00 Europe/Berlin")
        self.assertEqual(self.item("a", zone="Europe/Berlin")["jobs"][0]["definition"]["crontab"], "0 4 * * *")
        self.assertEqual(self.item("a")["result"], "cannot be expressed")

    def test_a_second_is_left_out_with_a_word(self):
        definition, codes = self.only("OnCalendar=5:10:30")
        self.assertEqual((definition["crontab"], codes), ("10 5 * * *", ["seconds"]))


class Units(Timers):
    def test_the_job_starts_the_unit_and_waits_for_its_end(self):
        self.assertEqual(self.only("OnCalendar=daily")[0]["cmd_list"], ["/usr/bin/systemctl", "start", "--wait", "--", "a.service"])
        self.timer("b", "OnCalendar=daily", "Unit=other.service", service=None)
        self.write("other.service", "[Service]\nType=oneshot\nRemainAfterExit=yes\nExecStart=/bin/true\n")
        item = self.item("b")
        self.assertEqual(item["jobs"][0]["definition"]["cmd_list"], ["/usr/bin/systemctl", "start", "--", "other.service"])
        self.assertEqual([note["code"] for note in item["notes"]], ["no-wait", "twice"])
        self.timer("c", "OnCalendar=daily", service=None)
        self.assertEqual([note["code"] for note in self.item("c")["notes"]], ["no-unit", "no-wait", "twice"])

    def test_random_delays_become_random_times_where_that_is_within_them(self):
        for calendar, delay, text in [("daily", "12h", "0~59 0~11 * * *"), ("weekly", "6000", "0~59 0 * * 1"), ("6,18:00", "12h", "0~59 6,18 * * *"),
                                      ("Sun 03:10", "60", "10~11 3 * * 0"), ("4:30", "1h", "30~59 4 * * *"), ("20:00", "1d", "0~59 20~23 * * *"),
                                      ("*:0/15", "5min", "0,15,30,45 * * * *"), ("4:00", "30s", "0 4 * * *"), ("4:00", "1h 30min", "0~59 4 * * *"),
                                      ("4:00", "0", "0 4 * * *"), ("4:00", "xyz", "0 4 * * *")]:
            with self.subTest((calendar, delay)):
                shutil.rmtree(self.own + "/timers.target.wants")
                os.mkdir(self.own + "/timers.target.wants")
                definition, codes = self.only("OnCalendar=" + calendar, "RandomizedDelaySec=" + delay)
                self.assertEqual((definition["crontab"], codes), (text, [] if delay == "0" else ["random-delay"]))

    def test_persistent_is_a_guarantee_of_a_little_more_than_the_longest_gap(self):
        for calendar, hours in [("daily", 25), ("weekly", 169), ("6,18:00", 13), ("Mon..Fri 9:00", 73), ("monthly", 31 * 24 + 1),
                                ("*:0/10", 2), ("02-29", (8 * 365 + 1) * 24 + 1)]:
            with self.subTest(calendar):
                shutil.rmtree(self.own + "/timers.target.wants")
                os.mkdir(self.own + "/timers.target.wants")
                definition, codes = self.only("OnCalendar=" + calendar, "Persistent=true")
                self.assertEqual((definition["assure_execute"], definition["assure_execute_action"], codes), (hours, "run", ["persistent"]))

    def test_persistent_is_a_guarantee_of_each_of_several(self):
        self.timer("a", "OnCalendar=Mon..Fri 9:00", "OnCalendar=Sat 10:30", "Persistent=true")
        item = self.item("a")
        self.assertEqual(sorted(job["definition"]["assure_execute"] for job in item["jobs"]), [73, 169])
        self.assertIn("within 73, 169 hours (assure_execute), else each of them", item["notes"][1]["text"])

    def test_what_else_is_lost_is_told(self):
        self.write("a.timer.d/more.conf", "[Unit]\nConditionACPower=true\nAssertPathExists=/x\n")
        self.assertEqual(self.only("OnCalendar=daily", "WakeSystem=yes")[1], ["wake", "condition", "condition"])

    def test_drop_ins_apply_by_name_and_the_winning_folder(self):
        self.timer("foo-bar", "OnCalendar=1:00")
        self.write("foo-bar.timer.d/10.conf", "[Timer]\nOnCalendar=\nOnCalendar=2:00\n")
        self.write("foo-.timer.d/20.conf", "[Timer]\n# comment\nOnCalendar=\nOnCalendar= \\\n; within\n 3:00\n")
        self.assertEqual(self.item("foo-bar")["jobs"][0]["definition"]["crontab"], "0 3 * * *")
        os.makedirs(self.own + "/foo-.timer.d")
        os.symlink("/dev/null", self.own + "/foo-.timer.d/20.conf")
        self.assertEqual(self.item("foo-bar")["jobs"][0]["definition"]["crontab"], "0 2 * * *")
        self.write("foo-bar.timer", "[Timer]\nOnCalendar=4:00\n", self.own)
        self.write("foo-bar.timer.d/10.conf", "", self.own)
        self.assertEqual(self.item("foo-bar")["jobs"][0]["definition"]["crontab"], "0 4 * * *")

    def test_only_what_is_enabled_is_imported_without_being_named(self):
        self.timer("on", "OnCalendar=daily")
        self.timer("off", "OnCalendar=daily", wanted=False)
        self.timer("boot", "OnBootSec=15min", "OnUnitActiveSec=1d")
        self.timer("both", "OnCalendar=daily", "OnBootSec=1")
        self.timer("masked", "OnCalendar=daily")
        os.symlink("/dev/null", self.own + "/masked.timer")
        os.symlink(self.units + "/on.timer", self.own + "/alias.timer")
        self.timer("dump@", "OnCalendar=daily", wanted=False)
        os.symlink(self.units + "/dump@.timer", self.own + "/timers.target.wants/dump@x.timer")
        results = {name: item["result"] for name, item in self.items().items()}
        self.assertEqual(results, {"on.timer": "converted", "off.timer": "passed over", "boot.timer": "passed over",
                                   "both.timer": "cannot be expressed", "masked.timer": "passed over", "dump@.timer": "passed over",
                                   "dump@x.timer": "converted"})
        self.assertEqual(self.items()["dump@x.timer"]["jobs"][0]["definition"]["cmd_list"][-1], "dump@x.service")
        self.assertEqual(self.item("off", "--unit", "off", "alias")["result"], "converted")
        self.assertEqual(self.item("on", "--unit", "off", "alias")["result"], "converted")
        self.assertEqual(self.item("boot", "--unit", "boot.timer")["result"], "cannot be expressed")
        self.assertIn("it is a template: name an instance", self.item("dump@", "--unit", "dump@.timer")["reason"])

    def test_says_how_the_timer_is_put_to_rest(self):
        for install, verb in [(True, "disable"), (False, "mask")]:
            shutil.rmtree(self.own + "/timers.target.wants")
            os.mkdir(self.own + "/timers.target.wants")
            self.timer("a", "OnCalendar=daily", install=install)
            self.assertIn(f"systemctl {verb} --now a.timer", self.item("a")["notes"][-1]["text"])

    def test_a_timer_that_is_not_there(self):
        done = subprocess.run([TOOL, "import", "timers", "--unit-dir", self.units, "--unit", "nobody", "--dry-run"], capture_output=True,
                              text=True, timeout=60, check=False)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("there is no timer nobody.timer", done.stderr)

    def test_stores_what_it_tells(self):
        os.makedirs(self.root + "/usr/vuko/etc/vukocron.d")
        self.timer("a", "OnCalendar=daily")
        item = tool([self.own, self.units], root=self.root)["a.timer"]
        with open(self.root + "/usr/vuko/etc/vukocron.d/a.conf", encoding="utf-8") as file:
            self.assertEqual(json.load(file), item["jobs"][0]["definition"])
        self.assertEqual(self.items()["a.timer"]["jobs"][0]["result"], "existing")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
