"""The service through changes of the clock for summer and winter, on a clock of its own that runs fast: what was started
at which tick, compared with the rule of the clock policy written out again here. A machine that has other work to do may
come too late for a minute of a clock that runs so fast: the ticks are those that the service had.
"""

import calendar
import collections
import concurrent.futures
import datetime
import re
import tempfile
import time
import unittest
import zoneinfo

import zones
from machine import poll
from rooted import Root, Service
from store import main

LIBRARY = "/usr/$LIB/faketime/libfaketime.so.1"
UTC = datetime.timezone.utc

# minute and hour field, -1 is any; the rest are any
JOBS = {"every-minute": ("*", "*"), "half-hours": ("0,30", "*"), "quarter-of-any": ("15", "*"),
        "one-past-of-any": ("1", "*"), "in-the-second-hour": ("*", "2"), "at-0130": ("30", "1"), "at-0145": ("45", "1"),
        "at-0159": ("59", "1"), "at-0200": ("0", "2"), "at-0215": ("15", "2"), "at-0230": ("30", "2"),
        "at-0231": ("31", "2"), "at-0259": ("59", "2"), "at-0300": ("0", "3"), "at-0301": ("1", "3")}
# What a clock goes through: the zone, local time at the start, minutes on the clock's own way, and how fast.
CHANGES = {
    "Berlin, spring": ("Europe/Berlin", "2026-03-29T01:57", 8, 60),
    "Berlin, autumn": ("Europe/Berlin", "2026-10-25T02:57", 67, 90),
    "Lord Howe, spring": ("Australia/Lord_Howe", "2026-10-04T01:57", 8, 60),
    "Lord Howe, autumn": ("Australia/Lord_Howe", "2026-04-05T01:27", 67, 90),
}
LINE = re.compile(r"running job: (\S+) with command")


def local_number(instant, zone):
    """Minutes on the local wall clock, counted."""
    return calendar.timegm(instant.astimezone(zone).timetuple()) // 60


def matches(fields, number):
    for field, value in zip(fields, (number % 60, number // 60 % 24)):
        if field != "*" and str(value) not in field.split(","):
            return False
    return True


def due(fields, worked, now):
    """Whether a job is due at a tick, and up to where the clock has been worked on afterwards."""
    wildcard = "*" in fields
    behind = now - worked
    passed = [matches(fields, number) for number in range(worked + 1, now + 1)]
    if behind == 1 or behind > 180 or behind < -180:
        return matches(fields, now), now
    if behind > 5:
        return (matches(fields, now) if wildcard else any(passed)), now
    if behind > 1:
        return any(passed), now
    return wildcard and matches(fields, now), worked


def minutes_from(begin, count):
    """The instants of so many ticks on the clock's own way, and before them the minute that is not yet the service's."""
    return [begin + datetime.timedelta(minutes=step) for step in range(count + 1)]


def expected(zone, ticks):
    """The starts as (local time with its offset, job)."""
    starts = []
    for name, fields in JOBS.items():
        worked = local_number(ticks[0], zone)
        for instant in ticks[1:]:
            is_due, worked = due(fields, worked, local_number(instant, zone))
            if is_due:
                starts.append((instant.astimezone(zone).isoformat(timespec="minutes"), name))
    return starts


class Life:
    """What a service did in its life, by its ledger and by the execution log."""

    def __init__(self, root, zone):
        self.zone = zone
        self.began = minute_of(root.control.ask("status")["started"])
        self.starts = [(minute_of(entry["decided"]), name) for name in JOBS for entry in root.control.history(name)
                       if entry["outcome"] != "skipped"]
        self.logged = collections.Counter(LINE.findall(root.read("var/log/vukocrond-execute.log")))

    def ticks(self):
        """The minutes that the service saw; one job is due in each."""
        return [self.began] + sorted(instant for instant, name in self.starts if name == "every-minute")

    def told(self):
        return sorted((instant.astimezone(self.zone).isoformat(timespec="minutes"), name) for instant, name in self.starts)


def minute_of(seconds):
    return datetime.datetime.fromtimestamp(seconds // 60 * 60, UTC)


class Daylight(unittest.TestCase):
    def test_jobs_start_by_the_rule_through_each_change(self):
        with concurrent.futures.ThreadPoolExecutor(len(CHANGES)) as pool:
            lives = {name: pool.submit(live, *change) for name, change in CHANGES.items()}
        for name, life in lives.items():
            with self.subTest(name):
                seen = life.result()
                self.assertEqual(seen.told(), sorted(expected(seen.zone, seen.ticks())))
                self.assertEqual(seen.logged, collections.Counter(name for _, name in seen.starts))
                self.assertGreater(len(seen.ticks()), CHANGES[name][2] / 2, "too few ticks to tell")

    def test_the_rule_written_out_again_is_the_one_that_is_meant(self):
        """The well-known cases of Berlin, by hand."""
        zone = zoneinfo.ZoneInfo("Europe/Berlin")
        spring = expected(zone, minutes_from(datetime.datetime(2026, 3, 29, 0, 57, tzinfo=UTC), 8))
        self.assertIn(("2026-03-29T03:00+02:00", "at-0230"), spring)
        self.assertNotIn(("2026-03-29T03:00+02:00", "in-the-second-hour"), {s for s in spring if s[0] > "2026-03-29T03:00"})
        autumn = expected(zone, minutes_from(datetime.datetime(2026, 10, 25, 0, 10, tzinfo=UTC), 130))
        self.assertEqual([s for s in autumn if s[1] == "at-0230"], [("2026-10-25T02:30+02:00", "at-0230")])
        self.assertEqual(len([s for s in autumn if s[1] == "quarter-of-any"]), 3)


def live(zone_name, begins, minutes, speed):
    """Lets a service live through a change."""
    zone = zoneinfo.ZoneInfo(zone_name)
    begin = datetime.datetime.fromisoformat(begins).replace(tzinfo=zone).astimezone(UTC)
    last = zones.Minute(local_number(begin + datetime.timedelta(minutes=minutes), zone))
    ahead = round(begin.timestamp() + 15 - time.time())
    environment = {"LD_PRELOAD": LIBRARY, "FAKETIME": f"{ahead:+d} x{speed}", "FAKETIME_DONT_RESET": "1"}
    with tempfile.TemporaryDirectory(prefix="vk-") as folder:
        root = Root(folder)
        for name, (minute, hour) in JOBS.items():
            root.define(name, f"{minute} {hour} * * *", "/bin/true", overlap="allow")
        with Service(root, zone=zone_name, **environment):
            poll(lambda: root.has_worked_up_to(last), f"{zone_name}: the end", patience=100)
            poll(root.is_quiet, "no job is running")
            return Life(root, zone)


if __name__ == "__main__":
    main(needs_root=False)
