"""Two services that take over from each other around a minute: a job that is due then runs on exactly one of them.

VUKO_LONG=1 takes many more.
"""

import concurrent.futures
import contextlib
import os
import random
import tempfile
import unittest

import zones
from machine import poll
from rooted import Root, Service, put
from store import main

ROUNDS, SIDE_BY_SIDE = (20, 10) if "VUKO_LONG" in os.environ else (1, 6)
ROLES = ("active", "passive")
ROLE_FILE = "var/run/vukocrond.role"


class Pair:
    """Two services of which one is active, and a minute that is to begin."""

    def __init__(self, folder, dice, least):
        self.dice = dice
        self.begins = zones.soon(least)
        minute = zones.Minute.at_hand()
        self.zone = minute.zone(self.begins)
        self.minute = minute
        self.runs = os.path.join(folder, "runs")
        self.roots = [Root(os.path.join(folder, side)) for side in ("left", "right")]
        # The one that becomes active is as often the left one, whose file is the first to be changed.
        self.roles = list(ROLES)
        dice.shuffle(self.roles)
        for side, (root, role) in enumerate(zip(self.roots, self.roles)):
            os.makedirs(root.path("var/run"))
            self.write(root, role)
            root.define("due", f"{minute.fields} * * *", ["/bin/sh", "-c", f"echo {side} >>{self.runs}"])

    @staticmethod
    def write(root, role):
        put(root.path(ROLE_FILE), role + "\n")

    def flip(self, suffix=""):
        for root, role in zip(self.roots, reversed(self.roles)):
            self.write(root, role + suffix)

    def changed(self):
        return [os.stat(root.path(ROLE_FILE)).st_mtime for root in self.roots]

    def play(self, flip):
        """@return on which sides the job ran."""
        with contextlib.ExitStack() as stack:
            for root in self.roots:
                stack.enter_context(Service(root, zone=self.zone))
            zones.assert_ahead(self.begins)
            flip(self)
            for root in self.roots:
                poll(lambda: root.has_worked_up_to(self.minute), "the minute has had its tick")  # pylint: disable=W0640
                poll(root.is_quiet, "no job is running")
            with contextlib.suppress(FileNotFoundError), open(self.runs, encoding="utf-8") as file:
                return file.read().split()
            return []


def flip_by_replacing(pair):
    """Both files one after the other, at any instant around the minute."""
    at = pair.begins + pair.dice.choice((pair.dice.uniform(-0.25, 0.25), pair.dice.uniform(-0.02, 0.02)))
    zones.wait_until(at)
    pair.flip()


def flip_for_an_instant(pair):
    """Both files name the same instant, which lies ahead of their change."""
    instant = pair.begins + pair.dice.choice((pair.dice.uniform(-0.2, 0.5), pair.dice.uniform(-0.01, 0.01)))
    zones.wait_until(instant - pair.dice.uniform(0.05, 0.25))
    pair.flip(f" @{instant:.6f}")


class TakeOver(unittest.TestCase):
    def setUp(self):
        self.seed = random.randrange(1 << 32)
        print(f"seed {self.seed}", flush=True)

    def play(self, number, flip, least):
        """@return what went wrong, None where nothing did."""
        dice = random.Random(f"{self.seed} {number}")
        with tempfile.TemporaryDirectory(prefix="vk-") as folder:
            pair = Pair(folder, dice, least)
            sides = pair.play(flip)
            changed = pair.changed()
            if len(sides) == 1:
                self.sides.add((pair.roles[int(sides[0])]))
                return None
            if flip is flip_by_replacing and changed[0] <= pair.begins <= changed[1]:
                return None  # the two files disagree about the minute themselves
            return f"ran on {sides}, began {pair.begins}, changed {changed}, roles at first {pair.roles}"

    def assert_one_side_each(self, flip):
        self.sides = set()
        with concurrent.futures.ThreadPoolExecutor(SIDE_BY_SIDE) as pool:
            numbers = range(ROUNDS * SIDE_BY_SIDE)
            plays = pool.map(lambda number: zones.in_time(lambda least: self.play(number, flip, least), 2), numbers)
            faults = [fault for fault in plays if fault]
        print(f"{len(numbers)} flips, {len(faults)} faults, ran where it was at first {sorted(self.sides)}")
        self.assertEqual(faults, [])

    def test_a_job_runs_on_one_side_when_the_files_are_replaced(self):
        self.assert_one_side_each(flip_by_replacing)

    def test_a_job_runs_on_one_side_when_the_files_name_an_instant(self):
        self.assert_one_side_each(flip_for_an_instant)


if __name__ == "__main__":
    main(needs_root=False)
