#!/usr/bin/env -S python3 -B
"""What the control tool shows of jobs, on a terminal of 80 and of 200 columns, with colour and without.

usage: see_test.py TOOL SERVICE
"""

import json
import os
import subprocess
import sys
import tempfile
import time
import unittest

import fakeservice
import realservice
import terminal
from fakeservice import ended, job, world

TOOL, SERVICE = sys.argv[1:3]
NOBODY = 65534
NOW = fakeservice.STATUS["now"]  # Saturday 2026-11-21 05:10:05 UTC
MINUTE = NOW // 60
RED, GREEN, YELLOW, FAINT = 31, 32, 33, 2


def tool(root, *arguments, **options):
    return subprocess.run([TOOL, "--root", root, *arguments], capture_output=True, text=True, timeout=60, check=False, **options)


JOBS = [job("builtin-dyn/backup", lastExecution=NOW - 129, last={"end": "exited", "code": 3, "durationUsec": 1, "run": 1}),
        job("pkg_nonroot/photos/a-name-that-takes-its-room", account="photos", state="running", schedule="41 -1 -1 -1 -1",
            words="at minute 41 of every hour", lastExecution=NOW - 7, running={"count": 1, "pid": 77, "since": NOW - 7},
            last={"end": "running", "code": 0, "durationUsec": 0, "run": 2}),
        job("pkg/off", enabled=False, state="disabled"), job("pkg/bad", state="invalid")]
RUNS = [{"minute": MINUTE - hours * 60, "decided": NOW - hours * 3600, "outcome": "started", "delay": 0, "run": 90 - hours,
         "end": ended(code=3 if hours == 2 else 0, duration=duration)}
        for hours, duration in enumerate([300000, 600000, 2400000, 1200000])]
SKIP = {"minute": MINUTE - 300, "decided": NOW - 18000, "outcome": "skipped", "reason": "overlap", "pid": 99, "since": NOW - 21600}


class OnAScreen(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.terminals = cls.enterClassContext(terminal.Terminals())

    def see(self, told, *arguments, **options):
        with fakeservice.FakeService(told) as root:
            return self.terminals.run([TOOL, "--root", root, *arguments], **options)

    def test_list_at_80_columns(self):
        shown = self.see(world(JOBS), "list", NO_COLOR="1")
        self.assertFalse(shown.has_colour)
        self.assertEqual(shown.lines, [
            "JOB                   STATE     NEXT              LEFT          LAST",
            "pkg_no…akes-its-room  running   2026-11-21 05:41  in 30min 55s  7s ago, running",
            "builtin-dyn/backup    waiting   2026-11-23 23:30  in 2d 18h     2min ago, exit 3",
            "pkg/off               disabled  -                 -             never",
            "pkg/bad               invalid   -                 -             never", "",
            "4 jobs listed. Accounts and schedules: vukocronctl list --full"])

    def test_list_at_200_columns(self):
        shown = self.see(world(JOBS[:2]), "list", width=200, NO_COLOR="1")
        self.assertEqual(shown.lines, [
            "JOB                                            ACCOUNT  STATE    NEXT              LEFT          LAST              "
            "PASSED    RESULT   SCHEDULE",
            "pkg_nonroot/photos/a-name-that-takes-its-room  photos   running  2026-11-21 05:41  in 30min 55s  2026-11-21 05:09  "
            "7s ago    running  at minute 41 of every hour",
            "builtin-dyn/backup                             root     waiting  2026-11-23 23:30  in 2d 18h     2026-11-21 05:07  "
            "2min ago  exit 3   at 23:30 on Monday", "", "2 jobs listed."])

    def test_list_in_colour(self):
        for width in (80, 200):
            shown = self.see(world(JOBS), "list", width=width)
            for word, colour in [("running", GREEN), ("invalid", RED), ("disabled", FAINT),
                                 ("2min ago, exit 3" if width == 80 else "exit 3", RED)]:
                self.assertIn(colour, shown.style_of(word), word)
            self.assertNotIn(RED, shown.style_of("waiting"))

    def test_status_on_a_screen(self):
        refused = [{"file": "/usr/x.conf", "text": "/usr/x.conf: hour: 25 is not in 0..23"}]
        told = world([], status={"refused": 1, "skips": {"overlap": 3}}, refused=refused)
        for width in (80, 200):
            self.assertEqual(self.see(told, "status", width=width, NO_COLOR="1").lines, [
                "● vukocrond 0.1.0 - job scheduler",
                "    State: running",
                "    Since: Sat 2026-11-21 03:00:00 UTC; 2h 10min ago; process 4711",
                "     Role: active",
                "    Clock: 2026-11-21T05:10:05+00:00, zone UTC (TZ=UTC), policy catchup",
                " Template: minute 56, hour 21, day 28, month 2, weekday 2",
                "   Spread: random minutes over 120 s",
                "     Jobs: 2 (2 waiting)",
                "   Starts: 2 started",
                "    Skips: 3 overlap",
                "    Saved: Sat 2026-11-21 05:09:02 UTC; 1min 3s ago",
                "  Refused: 1 definition",
                "           /usr/x.conf: hour: 25 is not in 0..23"])

    def test_the_dot_of_status_tells_whether_somebody_should_look(self):
        self.assertEqual(self.see(world([]), "status").style_of("●"), [GREEN])
        for change in [{"draining": True}, {"hibernating": True}, {"refused": 1}, {"jobs": {"invalid": 1}}]:
            self.assertEqual(self.see(world([], status=change), "status").style_of("●"), [YELLOW], change)
        self.assertTrue(self.see(world([]), "status", LC_ALL="C").text.startswith("* vukocrond"))

    def test_what_is_too_long_for_a_line_goes_on_below(self):
        told = world([], status={"refused": 1}, refused=[{"file": "/x", "text": "/x: " + "word " * 20 + "中" * 50}])
        self.assertEqual(self.see(told, "status").lines[-4:], [
            "           /x: " + "word " * 12 + "word", "           " + "word " * 6 + "word", "           " + "中" * 34,
            "           " + "中" * 16])

    def test_show_on_a_screen(self):
        shown = self.see(world(JOBS), "show", "backup")
        self.assertEqual(shown.lines[:10], [
            "builtin-dyn/backup - waiting",
            "        File: /usr/builtin-dyn/backup.conf",
            "     Account: root",
            "      Fields: 30 23 * * 1",
            "      Values: 30 23 -1 -1 1 (at 23:30 on Monday)",
            "  Next start: Mon 2026-11-23 23:30:00 UTC; in 2d 18h",
            "  Last start: Sat 2026-11-21 05:07:56 UTC; 2min 9s ago",
            "    Last end: exit 3 after 0ms",
            " Known since: Wed 2026-11-18 11:06:40 UTC",
            "     Overlap: skip"])
        self.assertIn(RED, shown.style_of("exit 3"))

    def test_history_at_80_and_200_columns(self):
        told = world(JOBS, history={"builtin-dyn/backup": RUNS + [SKIP]})
        lines = ["TIME                 OUTCOME                           END     DURATION    CPU   MEMORY",
                 "2026-11-21 05:10:05  started                           exit 0     300ms  795ms  4.9 MiB",
                 "2026-11-21 04:10:05  started                           exit 0     600ms  795ms  4.9 MiB",
                 "2026-11-21 03:10:05  started                           exit 3    2.400s  795ms  4.9 MiB",
                 "2026-11-21 02:10:05  started                           exit 0    1.200s  795ms  4.9 MiB",
                 "2026-11-21 00:10:05  skipped: overlap with process 99  -              -      -        -", "",
                 "Durations of the last 4 runs, oldest first, up to 2.400s; failed: coloured", "  ▅█▃▂"]
        shown = self.see(told, "history", "backup", width=200)
        self.assertEqual(shown.lines, lines)
        self.assertIn(RED, shown.style_of("█"))
        self.assertNotIn(RED, shown.style_of("▃"))
        shown = self.see(told, "history", "backup", NO_COLOR="1")
        self.assertEqual(shown.lines[5:], ["2026-11-21 00:10:05  skipped: overlap with pr…  -              -      -        -", "",
                                           "Durations of the last 4 runs, oldest first, up to 2.400s; failed: !", "  ▅█▃▂", "   !"])
        self.assertEqual(self.see(told, "history", "backup", LC_ALL="C").lines[-1], "  5921")
        shown = self.see(told, "history")
        self.assertEqual(shown.lines[1], "2026-11-21 05:10:05  built…dyn/backup  started         exit 0     300ms  4.9 MiB")
        self.assertLessEqual(max(map(len, shown.lines)), 80)

    def test_history_tells_the_due_minute_where_it_was_decided_in_another(self):
        late = [{**RUNS[0], "minute": MINUTE - 30, "outcome": "made-up"}, {**SKIP, "minute": MINUTE - 24 * 60},
                {**RUNS[1], "end": {**ended("not-started", 2), "durationUsec": 0, "maxRssKib": 0}}]
        self.assertEqual(self.see(world(JOBS, history={"builtin-dyn/backup": late}), "history", "backup", width=100, NO_COLOR="1").lines, [
            "TIME                 DUE               OUTCOME            END               DURATION    CPU   MEMORY",
            "2026-11-21 05:10:05  04:40             made-up            exit 0               300ms  795ms  4.9 MiB",
            "2026-11-21 04:10:05  04:10             started            not started (No…         -      -        -",
            "2026-11-21 00:10:05  2026-11-20 05:10  skipped: overlap…  -                        -      -        -"])

        shown = self.see(world(JOBS, history={"builtin-dyn/backup": late}), "history", NO_COLOR="1")
        self.assertEqual(shown.lines[1], "2026-11-21 05:10:05  04:40             bu…ackup  mad…  exit 0     300ms  4.9 MiB")

    def test_names_are_shown_in_their_own_letters(self):
        named = job("pkg/\\xd0\\xba\\xe5\\x90\\x8d", name="\u043a\u540d")
        told = world([named], history={named["id"]: RUNS[:1]})
        for arguments in (["list"], ["list", "pkg/\u043a*"], ["show", named["id"]], ["history"], ["why", named["id"]], ["next"]):
            self.assertIn("pkg/\u043a\u540d", self.see(told, *arguments, width=200).text, arguments)

    def test_a_narrow_list_is_no_reason_for_a_pager_to_stay(self):
        shown = self.see(world(JOBS, status={"role": "passive"}), "list", width=40, NO_COLOR="1")
        self.assertEqual(shown.lines[-4:], ["4 jobs listed. Accounts and schedules:", "vukocronctl list --full",
                                            "The role is passive: only jobs with", '"run_on_passive" start.'])

    def test_no_name_of_a_job_moves_the_cursor(self):
        evil = job("pkg/\x1b[2J\x07", words="\x1b]0;mine\x07", account="\u202eroot")
        with fakeservice.FakeService(world([evil], history={evil["id"]: RUNS})) as root:
            for arguments in (["list"], ["show", evil["id"]], ["history"], ["why", evil["id"]]):
                done = tool(root, *arguments)
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertNotRegex(done.stdout, "[\x00-\x09\x0b-\x1f\x7f\u202e]")
                self.assertIn("pkg/\\x1b[2J\\x07", done.stdout + "pkg/\\x1b[2J\\x07" * (arguments == ["history"]))


class Lists(unittest.TestCase):
    def listed(self, *arguments, jobs=None):
        with fakeservice.FakeService(world(JOBS if jobs is None else jobs)) as root:
            done = tool(root, "list", *arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def ids(self, *arguments):
        return [one["id"].split("/")[-1] for one in json.loads(self.listed(*arguments, "--json"))["jobs"]]

    def test_those_that_fit_a_name_or_a_pattern(self):
        self.assertEqual(self.ids("backup"), ["backup"])
        self.assertEqual(self.ids("pkg/*", "backup"), ["backup", "off", "bad"])
        self.assertEqual(self.ids("none"), [])

    def test_those_of_a_state(self):
        self.assertEqual(self.ids("--state", "invalid,disabled"), ["off", "bad"])
        self.assertEqual(self.ids("--state", "failed"), ["backup"])

    def test_the_next_start_of_a_schedule_that_is_too_long_for_the_list(self):
        shown = self.listed(jobs=[job("pkg/a", schedule="30" + ",30" * 50 + " 23 -1 -1 1")])
        self.assertIn("  2026-11-23 23:30  in 2d 18h  ", shown)

    def test_an_empty_list_says_what_to_do(self):
        self.assertIn("No job fits.", self.listed("none"))
        self.assertIn("Put a definition into ", self.listed(jobs=[]))

    def test_nothing_is_left_out_with_full(self):
        with terminal.Terminals() as terminals, fakeservice.FakeService(world(JOBS)) as root:
            shown = terminals.run([TOOL, "--root", root, "--no-pager", "list", "--full"])
        self.assertIn("a-name-that-takes-its-room", shown.text)
        self.assertIn("at 23:30 on Monday", shown.text.replace("\n", ""))

    def test_times_are_in_the_zone_of_the_service(self):
        for status, time_of_day in [({"tz": "Asia/Kathmandu", "offset": 20700}, "17:45"), ({"tz": "", "offset": 20700}, "17:45"),
                                    ({"tz": "UTC", "offset": 0}, "12:00"), ({"tz": "", "offset": -12600}, "08:30")]:
            hourly = job("pkg/a", lastExecution=1795262400)  # 12:00 UTC
            with fakeservice.FakeService(world([hourly], status=status)) as root:
                done = tool(root, "list", env={**os.environ, "TZ": "Pacific/Apia"})
                self.assertIn(f" {time_of_day} ", done.stdout, status)
                done = tool(root, "next", "--json", env={**os.environ, "TZ": "Pacific/Apia"})
                self.assertEqual(json.loads(done.stdout)["jobs"][0]["next"][0]["local"][11:16], "23:30", status)

    def test_asking_too_often_is_waited_out(self):
        many = [job(f"pkg/job-{number}") for number in range(3)]
        history = {one["id"]: RUNS for one in many}
        for arguments, told in ((["next"], 3), (["history"], 3 * len(RUNS))):
            with fakeservice.FakeService(world(many, history=history), too_often=(1, 4, 5)) as root:
                done = tool(root, *arguments)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertEqual(done.stdout.count("pkg/job-"), told)

    def test_what_keeps_a_job_from_starting(self):
        for status, text in [({"role": "passive"}, ", but not while this machine is passive\n"),
                             ({"draining": True}, ", but not while the service is drained\n")]:
            with fakeservice.FakeService(world(JOBS, status=status)) as root:
                self.assertIn(text, tool(root, "show", "backup").stdout)
                self.assertIn("\n4 jobs listed.\nThe ", tool(root, "list").stdout)
        with fakeservice.FakeService(world(JOBS)) as root:
            self.assertIn("  pkg/off (disabled)\n", tool(root, "next", "off").stdout)
            done = tool(root, "next", "bad")
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertIn("bad: its definition is refused, see vukocronctl status", done.stderr)

    def test_a_service_that_goes_away_while_a_run_is_waited_for(self):
        with fakeservice.FakeService(world(JOBS)) as root:
            done = tool(root, "run", "backup", "--wait")
        self.assertEqual((done.returncode, done.stdout), (3, ""))
        self.assertIn('what was started goes on, and once the service is back, "vukocronctl show backup" tells of it', done.stderr)

    def test_history_as_much_as_is_asked_for(self):
        with fakeservice.FakeService(world(JOBS, history={"builtin-dyn/backup": RUNS + [SKIP]})) as root:
            for arguments, count in [([], 5), (["-n", "2"], 2), (["--since", f"@{NOW - 3600}"], 2),
                                     (["--until", "2026-11-21T03:10:05"], 3)]:
                told = json.loads(tool(root, "history", "backup", "--json", *arguments).stdout)
                self.assertEqual(len(told["jobs"][0]["outcomes"]), count, arguments)


class Why(unittest.TestCase):
    """Each case of a minute in one sentence with its cause."""

    def why(self, outcome=None, at=None, show=None, others=(), **changes):
        entries = ([outcome] if outcome else []) + list(others)
        one = job("pkg/a", schedule="10 5 -1 -1 -1", words="at 05:10", **changes)
        with fakeservice.FakeService(world([one], history={"pkg/a": entries}, show=show)) as root:
            done = tool(root, "why", "a", *(["--at", at] if at else []))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(done.stdout.count("\n"), 1)
        return done.stdout

    @staticmethod
    def start(outcome="started", **changes):
        return {"minute": MINUTE, "decided": NOW - 5, "outcome": outcome, "delay": 0, "run": 1, "end": ended(), **changes}

    @staticmethod
    def skip(reason, **changes):
        return {"minute": MINUTE, "decided": NOW, "outcome": "skipped", "reason": reason, **changes}

    def test_a_start(self):
        ran = "pkg/a ran for 2026-11-21T05:10"
        for outcome, text in [
                (self.start(), ", started at 2026-11-21T05:10:00+00:00, on time by its schedule: exit 0."),
                (self.start("delayed", delay=7), "put off by 7 s so that jobs of a random minute do not start all at once"),
                (self.start(label="manual"), " (manual), started at 2026-11-21T05:10:00+00:00, because somebody asked for it"),
                (self.start(label="assure"), "to keep its guarantee of a run within 48 h: exit 0."),
                (self.start("made-up", decided=NOW + 600), "made up for because its minute was passed over"),
                (self.start(end=ended("signaled", 9)), ": signal 9.")]:
            told = self.why(outcome)
            self.assertTrue(told.startswith(ran), told)
            self.assertIn(text, told)
        failed = self.why(self.start(end=ended("not-started", 2)))
        self.assertIn("pkg/a was to run for ", failed)
        self.assertIn(": not started (No such file or directory).", failed)

    def test_why_a_start_was_made_up(self):
        for reason, text in [("service down", "the service was not running at its minute"), ("clock step", "the clock was set over its minute")]:
            self.assertIn(f"made up for because {text}: ", self.why(self.start("made-up"), others=[self.skip(reason, decided=NOW - 5, minute=MINUTE - 3)]))
        gap = {"tz": "Europe/Berlin", "offset": 7200, "zone": "CEST", "now": 1774749605}  # 2026-03-29 04:00:05, no 02:30 that day
        outcome = self.start("made-up", minute=(1774749600 + 7200) // 60 - 90, decided=1774746000)
        with fakeservice.FakeService(world([job("pkg/a")], history={"pkg/a": [outcome]}, status=gap)) as root:
            for arguments in ([], ["--at", "2026-03-29T02:30"], ["--at", "2026-03-29T03:00"], ["--at", "@1774746059"]):
                self.assertEqual(tool(root, "why", "a", *arguments).stdout,
                                 "pkg/a ran for 2026-03-29T02:30, started at 2026-03-29T03:00:00+02:00, made up for because the "
                                 "clock left its minute out: exit 0.\n", arguments)

    def test_a_minute_that_came_twice_and_one_that_another_start_stands_for(self):
        first, second = 1792888200, 1792891800  # 2026-10-25 02:30 CEST and CET
        minute = (first + 7200) // 60
        entries = [self.skip("clock step", minute=minute, decided=second), self.start(minute=minute, decided=first),
                   self.skip("service down", minute=minute - 60, decided=first)]
        status = {"tz": "Europe/Berlin", "offset": 3600, "zone": "CET", "now": second + 7200}
        ran = "pkg/a ran for 2026-10-25T02:30, started at 2026-10-25T02:30:00+02:00, on time by its schedule: exit 0.\n"
        with fakeservice.FakeService(world([job("pkg/a")], history={"pkg/a": entries}, status=status)) as root:
            for at, text in [(f"@{second}", "pkg/a did not run again at 2026-10-25T02:30:00+01:00: the clock showed that minute once "
                                            "more, and it had run for it at 2026-10-25T02:30:00+02:00 (clock step).\n"),
                             ("2026-10-25T02:30", ran), (f"@{first}", ran),
                             ("2026-10-25T01:30", "pkg/a did not run at 2026-10-25T01:30: that minute was passed over, and the one start "
                                                  "at 2026-10-25T02:30:00+02:00 stands for it, too (service down).\n")]:
                self.assertEqual(tool(root, "why", "a", "--at", at).stdout, text)

    def test_a_start_that_was_put_off_into_the_minute_that_is_asked_about(self):
        told = self.why(self.start("delayed", delay=90), at="2026-11-21T05:11")
        self.assertIn("pkg/a ran for 2026-11-21T05:10, started at 2026-11-21T05:10:00+00:00, put off by 90 s", told)

    def test_each_reason_of_a_skip(self):
        for reason, text in [
                ("disabled", "it was disabled"), ("passive", "this machine had the passive role"),
                ("hibernating", "the machine was hibernating"), ("clock step", "the clock was set over that minute"),
                ("service down", "the service was not running"), ("fork failed", "no process could be made"),
                ("account unknown", "its account was not there"), ("definition invalid", "its definition was refused"),
                ("stopping", "the service was stopping or drained"), ("identity refused", "the service may not run programs as")]:
            told = self.why(self.skip(reason))
            self.assertIn(f"pkg/a did not run at 2026-11-21T05:10: {text}", told)
            self.assertIn(reason, told)
        self.assertIn(": its last run was still going, as process 99 since 2026-11-21T", self.why(self.skip("overlap", pid=99, since=NOW - 60)))

    def test_a_minute_without_an_entry(self):
        full = [self.skip("disabled", minute=MINUTE - n, decided=NOW - 60 * n) for n in range(100)]
        for at, options, text in [
                ("2026-11-21T04:00", {}, "did not run at 2026-11-21T04:00: its schedule, at 05:10, does not hold that minute; "
                                         "the next start after it was due 2026-11-21T05:10."),
                ("2026-11-22T04:00", {}, "is not due at 2026-11-22T04:00: its schedule, at 05:10, does not hold that minute; "
                                         "the next start after it is 2026-11-22T05:10."),
                ("2026-11-23T05:10", {}, "will be due at 2026-11-23T05:10, which lies ahead."),
                ("2026-11-23T05:10", {"enabled": False}, "would be due at 2026-11-23T05:10, which lies ahead, and is disabled."),
                ("2026-11-21T05:10", {}, "is due in this minute, 2026-11-21T05:10, and has not been decided on yet."),
                ("2026-11-01T05:10", {}, "the service did not know the job then: it does since 2026-11-18T11:06:40+00:00."),
                ("2026-11-20T05:10", {}, "its ledger holds nothing of that minute"),
                ("2026-11-20T05:10", {"others": full}, "its ledger goes no further back than 2026-11-21T03:31:05+00:00."),
                ("2026-11-20T05:10", {"state": "invalid"}, "its definition is refused")]:
            told = self.why(at=at, **options)
            self.assertTrue(told.startswith("pkg/a ") and text in told, told)

    def test_no_such_job(self):
        with fakeservice.FakeService(world(JOBS)) as root:
            done = tool(root, "why", "nothing")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn('there is no job "nothing"; vukocronctl list shows those that there are', done.stderr)


WITNESS = """import json, os, resource
mask = os.umask(0)
print(json.dumps({
    "environment": dict(one.split("=", 1) for one in open("/proc/self/environ").read().split(chr(0)) if one),
    "directory": os.getcwd(), "umask": "%04o" % mask, "uid": os.getuid(), "gid": os.getgid(), "groups": sorted(os.getgroups()),
    "nice": os.nice(0), "oomScoreAdjust": int(open("/proc/self/oom_score_adj").read()), "input": os.readlink("/proc/self/fd/0"),
    "limits": {name[7:].lower(): resource.getrlimit(getattr(resource, name)) for name in dir(resource) if name.startswith("RLIMIT_")}}))
"""


def witness_job(name, **changes):
    return {"name": name, "user": "root", "period": "c", "crontab": "0 0 1 1 *", "cmd_list": ["/usr/bin/python3", "-c", WITNESS], **changes}


@unittest.skipUnless(os.geteuid() == 0, "needs accounts to become")
class OfAService(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        own = {"user": "package", "package_username": "nobody"}
        cls.service = cls.enterClassContext(realservice.RealService(SERVICE, {
            realservice.SHIPPED + "/witness.conf": witness_job("witness"),
            "usr/local/etc/vukocron_nonroot.d/photos/theirs.conf": witness_job("theirs", **own)},
            {"usr/local/etc/vukocron_nonroot.d/photos": NOBODY}, TZ="Asia/Kathmandu", LANG="de_DE.UTF-8", HIDDEN="yes"))
        cls.root = cls.service.root

    def run_job(self, name):
        done = tool(self.root, "run", name, "--wait")
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_effective_is_what_a_program_finds(self):
        for name in ("witness", "theirs"):
            effective = json.loads(tool(self.root, "show", name, "--effective", "--json").stdout)["effective"]
            self.run_job(name)
            with open(effective["output"]["to"], encoding="utf-8") as file:
                found = json.loads(file.read().splitlines()[-1])
            self.assertEqual(effective["output"]["kind"], "file")
            limits = found.pop("limits")
            self.assertLessEqual({"nofile", "core", "stack", "nproc"}, set(limits))
            for kind, limit in limits.items():
                if kind != "ofile":  # BSD's name of nofile
                    told = effective["limits"][kind]
                    self.assertEqual([-1 if one is None else one for one in (told["soft"], told["hard"])], limit, kind)
            self.assertEqual(found, {key: effective[key] for key in found})
            self.assertEqual((found["environment"]["TZ"], found["uid"]), ("Asia/Kathmandu", NOBODY if name == "theirs" else 0))
            self.assertNotIn("HIDDEN", found["environment"])

    def test_effective_as_text(self):
        text = tool(self.root, "show", "theirs", "witness", "--effective").stdout
        for line in ["        User: 65534 (nobody)", "      Groups: 65534 (nogroup)", "   Directory: /", "       Umask: 0022",
                     "builtin/witness - waiting"]:
            self.assertIn(line + "\n", text)

    def test_status_tells_of_the_process(self):
        told = json.loads(tool(self.root, "status", "--json").stdout)
        self.assertEqual((told["pid"], told["tz"], told["offset"]), (self.service.process.pid, "Asia/Kathmandu", 20700))
        self.assertLess(abs(told["started"] - time.time()), 300)

    def test_an_account_without_jobs_is_told_what_to_do(self):
        done = tool(self.root, "list", user=1)
        self.assertEqual(done.returncode, 0)
        self.assertIn("No job runs as your account", done.stdout)


class WithoutAService(unittest.TestCase):
    def test_says_where_it_was_expected_and_ends_with_3(self):
        with tempfile.TemporaryDirectory() as root:
            for arguments in (["status"], ["list"], ["show", "a"], ["history"], ["why", "a"], ["log", "-o", "a"]):
                done = tool(root, *arguments)
                self.assertEqual((done.returncode, done.stdout), (3, ""), arguments)
                self.assertIn(root + "/var/run/vukocrond.sock: No such file or directory (is vukocrond running?", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
