#!/usr/bin/env -S python3 -B
"""The timeline: what it reckons, what it draws in characters, and what it draws as a picture.

usage: timeline_test.py TOOL SERVICE
"""

import json
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree
import zlib

import terminal

TOOL, SERVICE = sys.argv[1:3]
SVG = "{http://www.w3.org/2000/svg}"
LONG = "a-name-that-is-longer-than-any-column-that-is-kept-for-it-" * 2
START, RUN, COLLISION, PAPER = (26, 95, 180), (143, 188, 240), (209, 36, 47), (255, 255, 255)


def job(name, crontab, **more):
    return {"name": name, "user": "root", "period": "crontab", "crontab": crontab, "cmd": "/bin/true", **more}


NIGHT = [job("backup", "0 2 * * *"), job("index", "30 2 * * *"), job("report", "0 6 * * *"), job("mail", "0 6,18 * * *"),
         job("beat", "* * * * *"), job("yearly", "0 0 1 1 *")]
HOURS_OF_NIGHT = ["--from", "2026-11-21T00:00", "--tz", "UTC", "--duration", "backup=5400", "--duration", "index=600"]


class WithFiles(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())

    def file(self, jobs, name="jobs.conf"):
        path = f"{self.folder}/{name}"
        with open(path, "w", encoding="utf-8") as out:
            json.dump(jobs, out)
        return path

    def tool(self, *arguments, locale="C.UTF-8", **options):
        return subprocess.run([TOOL, *arguments], capture_output=True, text=True, timeout=60, check=False,
                              encoding="utf-8", env={"PATH": "/usr/bin:/bin", "LC_ALL": locale}, **options)

    def told(self, jobs, *arguments):
        done = self.tool("timeline", *arguments, "--json", self.file(jobs))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return json.loads(done.stdout)

    def drawn(self, jobs, *arguments, **options):
        done = self.tool("timeline", *arguments, self.file(jobs), **options)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.splitlines()

    def collisions(self, jobs, *arguments):
        told = self.told(jobs, "--from", "2026-11-21T00:00", "--tz", "UTC", *arguments)
        return [(collision["local"][11:16], *collision["jobs"]) for collision in told["collisions"]]


class Reckoned(WithFiles):
    def test_starts_with_their_ends_and_reasons(self):
        told = self.told(NIGHT, *HOURS_OF_NIGHT)
        jobs = {job["name"]: job for job in told["jobs"]}
        self.assertEqual([job["name"] for job in told["jobs"]], ["beat", "backup", "index", "mail", "report"])
        self.assertEqual(jobs["backup"]["starts"], [{"epoch": 1795226400, "local": "2026-11-21T02:00:00+00:00",
                                                     "reason": "due", "delay": 0, "end": 1795231800}])
        self.assertEqual([start["end"] for start in jobs["mail"]["starts"]], [None, None])
        self.assertEqual((len(jobs["beat"]["starts"]), jobs["beat"]["frequent"], jobs["mail"]["frequent"]), (1440, True, False))
        self.assertEqual((told["idle"], told["zone"], told["policy"]), (["yearly"], "UTC", "catchup"))
        self.assertEqual((told["from"]["local"], told["to"]["local"]), ("2026-11-21T00:00:00+00:00", "2026-11-22T00:00:00+00:00"))

    def test_starts_are_those_of_the_simulation_also_where_the_clock_is_set(self):
        for day, policy in [("2026-03-29", "catchup"), ("2026-10-25", "catchup"), ("2026-03-29", "literal")]:
            with self.subTest(day=day, policy=policy):
                options = ["--from", day + "T00:00", "--tz", "Europe/Berlin", "--policy", policy]
                jobs = [job("a", "15,45 2 * * *"), job("b", "30 * * * *"), job("c", "0 3 * * *")]
                told = self.told(jobs, *options, "--hours", "8")
                end = f"@{told['to']['epoch'] - 1}"
                done = self.tool("simulate", *options, "--to", end, "--json", self.file(jobs))
                wanted = sorted((start["job"], start["epoch"], start["reason"]) for start in json.loads(done.stdout)["starts"])
                self.assertEqual(wanted, sorted((one["name"], start["epoch"], start["reason"])
                                                for one in told["jobs"] for start in one["starts"]))

    def test_a_collision_is_a_start_beside_a_start_or_a_run(self):
        for jobs, durations, wanted in [
                ([job("a", "0 3 * * *"), job("b", "0 3 * * *")], {}, [("03:00", "a", "b")]),
                ([job("a", "0 3 * * *"), job("b", "1 3 * * *")], {}, []),
                ([job("a", "0 3 * * *"), job("b", "1 3 * * *")], {"a": 60}, []),
                ([job("a", "0 3 * * *"), job("b", "1 3 * * *")], {"a": 61}, [("03:01", "a", "b")]),
                ([job("a", "0 3 * * *"), job("b", "10 3 * * *"), job("c", "20 3 * * *")], {"a": 3600, "b": 60},
                 [("03:10", "a", "b"), ("03:20", "a", "c")]),
                ([job("a", "0,30 3 * * *")], {"a": 7200}, []),
                ([job("a", "0 3 * * *"), job("b", "0,15,30,45 3 * * *")], {"a": 3600}, []),
                ([job("a", "0 3 * * *"), job("b", "0,20,40 3 * * *")], {"a": 1800}, [("03:00", "a", "b"), ("03:20", "a", "b")])]:
            with self.subTest(jobs=jobs, durations=durations):
                options = [word for name, seconds in durations.items() for word in ("--duration", f"{name}={seconds}")]
                self.assertEqual(self.collisions(jobs, *options), wanted)

    def test_jobs_that_the_service_spreads_do_not_collide(self):
        jobs = [job(name, "7~7 3 * * *") for name in "abc"]
        self.assertEqual(self.collisions(jobs), [])
        self.assertEqual(self.collisions(jobs, "--max-delay", "0"), [("03:07", "a", "b", "c")])
        starts = [one["starts"][0] for one in self.told(jobs, "--from", "2026-11-21T00:00", "--tz", "UTC")["jobs"]]
        self.assertEqual([(start["local"][11:19], start["delay"]) for start in starts],
                         [("03:07:00", 0), ("03:08:40", 100), ("03:10:20", 200)])

    def test_says_what_is_wrong_and_how_it_ends(self):
        jobs = self.file(NIGHT)
        for arguments, status, message in [
                (["--hours", "0", jobs], 2, "--hours"), (["--hours", "169", jobs], 2, "--hours"),
                (["--from", "noon", jobs], 2, "is no time"), (["--tz", "Mars/Olympus", jobs], 2, "is no time zone"),
                (["--duration", "backup", jobs], 2, '--duration: "backup": expected JOB=SECONDS'),
                (["--duration", "backup=-1", jobs], 2, "expected JOB=SECONDS"),
                (["--duration", "nobody=1", jobs], 1, 'there is no job "nobody"'),
                (["--json", "--svg", "-", jobs], 2, "both want standard output"), (["/no/such"], 1, "cannot be read"),
                (["--root", self.folder], 3, "is vukocrond running?")]:
            with self.subTest(arguments=arguments):
                done = self.tool("timeline", *arguments)
                self.assertEqual((done.returncode, done.stdout), (status, ""))
                self.assertIn(message, done.stderr)


class InCharacters(WithFiles):
    def test_long_names_keep_their_ends(self):
        lines = self.drawn([job("photos-of-all-accounts-" + word, "0 3 * * *") for word in ("daily", "weekly")], *HOURS_OF_NIGHT[:4])
        self.assertEqual([line.split()[0] for line in lines[4:6]], ["photos…ccounts-daily", "photos…counts-weekly"])

    def test_a_night(self):
        self.assertEqual(self.drawn(NIGHT, *HOURS_OF_NIGHT, "--hours", "8"), [
            "Sat 2026-11-21 00:00 to Sat 2026-11-21 08:00, UTC", "",
            "          Sat 2026-11-21",
            "          00    01    02    03    04    05    06    07",
            "beat      " + "+" * 48,
            "backup    ·     ·     ●━━X━━━━━   ·     ·     ·     ·",
            "index     ·     ·     ·  X  ·     ·     ·     ·     ·",
            "mail      ·     ·     ·     ·     ·     ·     X     ·",
            "report    ·     ·     ·     ·     ·     ·     X     ·",
            "load      ▃▃▃▃▃▃▃▃▃▃▃▃▆▆▆█▆▆▆▆▆▃▃▃▃▃▃▃▃▃▃▃▃▃▃▃█▃▃▃▃▃▃▃▃▃▃▃", "",
            "A column is 10 minutes.  ● start  2-9 + several starts  ━ runs  X collision",
            "load: jobs that start or run, 3 at most (Sat 02:30).",
            "Runs are drawn as long as the last one.", "",
            "2 collisions, most jobs at once first:",
            "FIRST                 TIMES  AT ONCE  JOBS",
            "Sat 2026-11-21 02:30      1        2  backup, index",
            "Sat 2026-11-21 06:00      1        2  mail, report", "",
            "Frequent, and in no collision: beat", "",
            "No start in this time: yearly"])

    def test_ascii_alone_where_the_locale_has_no_more(self):
        lines = self.drawn([job("größe", "0 3 * * *"), job("b", "0,1,2 4 * * *")], *HOURS_OF_NIGHT[:4], "--hours", "8",
                           "--duration", "größe=2400", locale="C")
        self.assertEqual([line for line in lines if not line.isascii()], [])
        self.assertIn("gr??e     .     .     .     o===  .     .     .     .", lines)
        self.assertIn("b         .     .     .     .     3     .     .     .", lines)
        self.assertIn("load                        1111  1", lines)

    def test_the_hours_are_those_that_the_clock_shows(self):
        for zone, first, hours, changes in [
                ("Europe/Berlin", "2026-03-29T00:00", "00 01 03 04 05 06", ["^ 02:00 becomes 03:00"]),
                ("Europe/Berlin", "2026-10-25T00:00", "00 01 02 02 03 04", ["^ 03:00 becomes 02:00"]),
                ("Australia/Lord_Howe", "2026-04-05T00:00", "00 01 02 03 04 05", ["^ 02:00 becomes 01:30"]),
                ("Asia/Kathmandu", "2026-03-29T00:00", "00 01 02 03 04 05", [])]:
            with self.subTest(zone=zone, first=first):
                lines = self.drawn([job("a", "0 * * * *")], "--from", first, "--tz", zone, "--hours", "6")
                self.assertEqual(lines[3].split(), hours.split())
                self.assertEqual([line.strip() for line in lines if "^" in line], changes)

    def test_a_made_up_start_stands_where_the_clock_went_forward(self):
        lines = self.drawn([job("a", "30 2 * * *")], "--from", "2026-03-29T00:00", "--tz", "Europe/Berlin", "--hours", "8")
        hours = next(line for line in lines if line.split() == ["00", "01", "03", "04", "05", "06", "07", "08"])
        row = next(line for line in lines if line.startswith("a "))
        self.assertEqual(row.index("●"), hours.index("03"))
        self.assertEqual(hours.index("03") - hours.index("01"), hours.index("01") - hours.index("00"))

    def test_very_many_jobs_and_starts_are_drawn_soon_and_on_few_lines(self):
        jobs = [job(f"job-{n}-{LONG}", f"{n % 60} {'*' if n % 10 else '3'} * * *") for n in range(900)]
        jobs += [job(f"beat-{n}", "* * * * *") for n in range(60)]
        begun = time.monotonic()
        lines = self.drawn(jobs, "--from", "2026-11-21T00:00", "--tz", "UTC")
        self.assertLess(time.monotonic() - begun, 20)
        self.assertLess(len(lines), 150)
        self.assertTrue(any(line.startswith("860 more ") for line in lines))
        self.assertTrue(any(re.match(r"and \d+ more, of \d+ sets of jobs", line) for line in lines))
        self.assertTrue(lines[-1].startswith("Frequent, and in no collision: beat-0, beat-1, "))
        self.assertLess(len(lines[-1]), 81)


class OnATerminal(WithFiles):
    def test_it_fits_with_and_without_colour(self):
        jobs = self.file(NIGHT + [job(LONG, "0 9 * * *"), job("夜間", "0 10 * * *")])
        with terminal.Terminals() as terminals:
            for width, minutes in [(80, 30), (200, 10)]:
                for variables, has_colour in [({}, True), ({"NO_COLOR": "1"}, False)]:
                    with self.subTest(width=width, has_colour=has_colour):
                        shown = terminals.run([TOOL, "timeline", *HOURS_OF_NIGHT, jobs], width=width, **variables)
                        self.assertEqual((shown.status, shown.has_colour), (0, has_colour))
                        self.assertIn(f"A column is {minutes} minutes.", shown.text)
                        rows = [line for line in shown.lines if re.match(r"(backup|index|mail|report|a-name|夜間)\S* ", line)]
                        self.assertEqual(len(rows), 6)
                        # All cells begin in one column of the screen; a wide character takes two.
                        begins = {line.index("·") + sum(c in "夜間" for c in line) for line in rows}
                        self.assertEqual(len(begins), 1)
                        if has_colour:
                            self.assertIn(31, shown.style_of("X"))
                            self.assertIn(32, shown.style_of("●"))


def pixels(png):
    """The rows of a picture of eight bits for each of red, green and blue, and opacity or not; each of them as triples."""
    at, data = 8, b""
    while at < len(png):
        length, kind = struct.unpack(">I4s", png[at:at + 8])
        body = png[at + 8:at + 8 + length]
        if kind == b"IHDR":
            width, _, depth, colour, _, _, interlaced = struct.unpack(">IIBBBBB", body)
            size = {2: 3, 6: 4}[colour]
            assert (depth, interlaced) == (8, 0)
        data += body if kind == b"IDAT" else b""
        at += 12 + length
    data, stride, rows = zlib.decompress(data), width * size, []
    before = bytes(stride)
    for begin in range(0, len(data), stride + 1):
        row = unfiltered(data[begin], bytearray(data[begin + 1:begin + 1 + stride]), before, size)
        rows.append([tuple(row[i:i + 3]) for i in range(0, stride, size)])
        before = row
    return rows


def unfiltered(method, row, before, size):
    """A row of a PNG file, in which each byte was stored as its distance from a guess."""
    for i in range(len(row) if method else 0):
        left, up, corner = (row[i - size] if i >= size else 0), before[i], (before[i - size] if i >= size else 0)
        if method == 4:
            slope = left + up - corner
            guess = min((left, up, corner), key=lambda value: abs(value - slope))
        else:
            guess = [0, left, up, (left + up) // 2][method]
        row[i] = (row[i] + guess) & 255
    return row


class AsAPicture(WithFiles):
    def svg(self, jobs, *arguments):
        done = self.tool("timeline", *arguments, "--svg", "-", self.file(jobs))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_marks_are_seen_where_they_have_to_be(self):
        text = self.svg(NIGHT, *HOURS_OF_NIGHT, "--hours", "8")
        picture = pixels(subprocess.run(["rsvg-convert"], input=text.encode(), capture_output=True, check=True).stdout)

        def seen(x, y):
            return picture[int(y)][int(x)]

        root = xml.etree.ElementTree.fromstring(text)
        hours = {node.text: float(node.get("x")) for node in root.iter(SVG + "text") if node.get("class") == "hour"}
        rows = {node.text: float(node.get("y")) - 4 for node in root.iter(SVG + "text") if node.get("class") == "name"}
        hour = hours["03:00"] - hours["02:00"]
        self.assertAlmostEqual(hour, 120)
        # Backup starts at two, runs for one and a half hours, and meets index at half past two.
        self.assertEqual(seen(hours["02:00"], rows["backup"]), START)
        self.assertEqual(seen(hours["02:00"] + 0.25 * hour, rows["backup"]), RUN)
        self.assertEqual(seen(hours["02:00"] + 1.45 * hour, rows["backup"]), RUN)
        self.assertNotEqual(seen(hours["02:00"] + 1.55 * hour, rows["backup"]), RUN)
        for name, x in [("backup", hours["02:30"]), ("index", hours["02:30"]), ("mail", hours["06:00"]), ("report", hours["06:00"])]:
            with self.subTest(name=name):
                for right, down in [(0, 0), (3, 0), (-3, 0), (0, 3), (0, -3)]:
                    self.assertEqual(seen(x + right, rows[name] + down), COLLISION)
                for right, down in [(4, 4), (-4, 4), (4, -4), (-4, -4)]:  # a square on its corner
                    self.assertNotEqual(seen(x + right, rows[name] + down), COLLISION)
        self.assertEqual(seen(5, 5), PAPER)

    def test_it_is_well_formed_and_needs_nothing_else(self):
        names = ["<b>&\"it's\"</b>", "größe", "]]>", "url(http://example.org/)", LONG, "夜間", "<script>alert(1)</script>"]
        text = self.svg([job(name, "0 3 * * *") for name in names], *HOURS_OF_NIGHT[:4])
        root = xml.etree.ElementTree.fromstring(text)
        titles = [node.findtext(SVG + "title") for node in root.iter(SVG + "g")]
        self.assertEqual(sorted(titles), sorted(name + ": 1 start" for name in names))
        self.assertTrue(all(node.tag.startswith(SVG) for node in root.iter()))
        self.assertEqual({node.tag.removeprefix(SVG) for node in root.iter()} -
                         {"svg", "title", "desc", "style", "rect", "text", "line", "circle", "path", "g"}, set())
        attributes = {name for node in root.iter() for name in node.attrib}
        self.assertEqual({name for name in attributes if "href" in name or name.startswith("on") or name == "style"}, set())
        style = root.findtext(SVG + "style")
        self.assertEqual([word for word in ("url", "import", "font-face", "http") if word in style], [])
        self.assertIn("prefers-color-scheme: dark", style)
        self.assertEqual(root.get("aria-labelledby"), "title desc")
        self.assertIn("7 jobs with 7 starts, 1 collision", root.findtext(SVG + "desc"))

    def test_wide_letters_stay_in_their_column(self):
        jobs = [job(letter * 60 + str(n), "0 3 * * *") for n, letter in enumerate("WMwi-\u6642")]
        root = xml.etree.ElementTree.fromstring(self.svg(jobs, *HOURS_OF_NIGHT[:4]))
        names = [node.text for node in root.iter(SVG + "text") if node.get("class") == "name" and node.text != "load"]
        self.assertEqual(sorted((len(name), name[0], name[-1]) for name in names),
                         [(16, "\u6642", "\u2026"), (17, "M", "\u2026"), (17, "W", "\u2026"), (17, "w", "\u2026"),
                          (35, "-", "\u2026"), (41, "i", "\u2026")])
        last = [node.text for node in root.iter(SVG + "text")][-1]
        self.assertRegex(last, "^6: [^\u2026]{60,110}\u2026$")

    def test_very_many_jobs_and_starts_make_a_picture_of_bounded_size(self):
        jobs = [job(f"job-{n}", f"{n % 60},{(n + 20) % 60} * * * *") for n in range(1000)]
        text = self.svg(jobs, "--hours", "168", *HOURS_OF_NIGHT[:4])
        self.assertLess(len(text), 12_000_000)
        self.assertIn(">800 more jobs<", text)

    def test_a_file_is_replaced_whole_or_not_at_all(self):
        jobs, folder = self.file(NIGHT), pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        file = folder / "night.svg"
        file.write_text("old", encoding="utf-8")
        done = self.tool("timeline", *HOURS_OF_NIGHT, "--svg", str(file), jobs)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertTrue(done.stdout.startswith(f"Written to {file}: Sat 2026-11-21 00:00 to "))
        self.assertTrue(file.read_text(encoding="utf-8").startswith("<?xml "))
        (folder / "link").symlink_to(file)
        os.mkfifo(folder / "pipe")
        for name, message in [("link", "is a symbolic link; name the file itself"), ("pipe", "cannot be written: File exists"),
                              (".", "cannot be written"), ("no/such", "cannot be written: No such file or directory")]:
            with self.subTest(name=name):
                done = self.tool("timeline", *HOURS_OF_NIGHT, "--svg", f"{folder}/{name}", jobs)
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn(message, done.stderr)
        self.assertEqual(sorted(path.name for path in folder.iterdir()), ["link", "night.svg", "pipe"])


class Simulated(WithFiles):
    JOBS = [job("hourly", "0 * * * *"), job("nightly", "30 2 * * *", run_on_passive=True)]
    SPAN = ["--from", "2026-06-01T00:00", "--to", "2026-06-02T00:00", "--tz", "UTC", "--events", "-"]
    EVENTS = "2026-06-01T05:30 passive\n2026-06-01T06:30 active\n2026-06-01T02:10 down 1800\n"

    def test_table_histogram_and_totals(self):
        lines = self.tool("simulate", *self.SPAN, self.file(self.JOBS), input=self.EVENTS).stdout.splitlines()
        self.assertIn("2026-06-01T06:00:00+00:00  hourly   skipped: passive  -", lines)
        self.assertIn("2026-06-01T02:40:00+00:00  nightly  made-up           -", lines)
        shown = lines[lines.index("By hour of the day:") + 1:]
        self.assertEqual(shown[0], "HOUR    STARTS  SKIPPED")
        self.assertEqual(len(shown), 27)
        self.assertRegex(shown[1], r"^00:00        2        0  █{54}$")
        self.assertRegex(shown[7], r"^06:00        0        1  ░{27}$")
        self.assertEqual(shown[-1], "25 starts: 24 due, 1 made-up; 1 skip: 1 passive.")

    def test_it_fits_with_and_without_colour(self):
        jobs, events = self.file([*self.JOBS, job(LONG, "5 4 * * *")]), self.folder + "/events"
        pathlib.Path(events).write_text(self.EVENTS, encoding="utf-8")
        with terminal.Terminals() as terminals:
            for width in (80, 200):
                for variables, has_colour in [({}, True), ({"NO_COLOR": "1"}, False)]:
                    shown = terminals.run([TOOL, "--no-pager", "simulate", *self.SPAN[:-1], events, jobs], width=width,
                                          height=70, **variables)
                    self.assertEqual((shown.status, shown.has_colour), (0, has_colour))
                    rows = [line for line in shown.lines if line.startswith("2026-")]
                    self.assertEqual(len(rows), 27)  # none is broken into two
                    self.assertEqual(len(next(line for line in shown.lines if line.startswith("00:00 "))), width - 1)


class WithAService(WithFiles):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.root = cls.folder + "/root"
        definitions = cls.root + "/usr/vuko/share/vukocron.d"
        os.makedirs(definitions)
        os.chmod(cls.folder, 0o755)
        jobs = [job(f"job{n}", "0 3 * * *") for n in range(120)]
        jobs += [job("slow", "30 4 * * *") | {"cmd": "/bin/sleep 0.2"}, job("off", "0 5 * * *", enabled=False),
                 job("late", "7~7 6 * * *"), job("later", "7~7 6 * * *")]
        with open(definitions + "/jobs.conf", "w", encoding="utf-8") as out:
            json.dump(jobs, out)
        cls.service = subprocess.Popen([SERVICE, "--root", cls.root], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
        cls.addClassCleanup(cls.service.wait, 30)
        cls.addClassCleanup(cls.service.terminate)
        deadline = time.monotonic() + 30
        while subprocess.run([TOOL, "--root", cls.root, "status"], capture_output=True, check=False).returncode != 0:
            assert time.monotonic() < deadline and cls.service.poll() is None
            time.sleep(0.02)

    def ask(self, *arguments):
        done = self.tool("--root", self.root, *arguments, "--json")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return json.loads(done.stdout)

    def test_the_installed_jobs_with_what_the_service_knows_of_them(self):
        self.assertEqual(self.tool("--root", self.root, "run", "slow", "--wait").returncode, 0)
        self.ask("template", "set-delay", "40")
        told = self.ask("timeline", "--from", "2026-11-21T00:00")
        jobs = {one["id"]: one for one in told["jobs"]}
        self.assertEqual(len(jobs), 123)
        self.assertNotIn("builtin/off", jobs)
        self.assertEqual(told["idle"], ["off"])
        slow = jobs["builtin/slow"]
        self.assertGreaterEqual(slow["durationUsec"], 200_000)
        self.assertEqual(slow["starts"][0]["end"] - slow["starts"][0]["epoch"], -(-slow["durationUsec"] // 1_000_000))
        self.assertEqual(jobs["builtin/job0"]["durationUsec"], None)
        self.assertEqual(jobs["builtin/later"]["starts"][0]["delay"], 20)  # by this service's template
        self.assertEqual(len(told["collisions"][0]["jobs"]), 120)
        starts = self.ask("simulate", "--from", "2026-11-21T00:00", "--to", "2026-11-21T23:59")["starts"]
        self.assertEqual(len(starts), 123)

    def test_what_a_passive_machine_would_not_start(self):
        self.ask("role", "passive")
        deadline = time.monotonic() + 30
        while self.ask("status")["role"] != "passive":
            assert time.monotonic() < deadline
            time.sleep(0.02)
        told = self.ask("timeline")
        self.assertEqual((told["passive"], told["jobs"], len(told["idle"])), (True, [], 124))
        self.assertIn("The role is passive", self.tool("--root", self.root, "timeline").stdout)
        self.ask("role", "active")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
