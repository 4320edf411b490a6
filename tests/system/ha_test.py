"""A pair of machines of which keepalived makes one active, set up with the files of docs/HA.md.

VUKO_LONG=1 hands over in every way in turn, at any instant, while a job is due in each minute of the clock.
"""

import os
import random
import sys
import time
import unittest

import zones
from hapair import Pair
from machine import poll
from store import main

NEVER = "0 0 31 2 *"
LONG = "VUKO_LONG" in os.environ
MINUTES = int(os.environ.get("VUKO_LONG_MINUTES", "20"))


class HaTest(unittest.TestCase):
    def setUp(self):
        self.pair = self.enterContext(Pair())
        self.left, self.right = self.pair.sides

    def run(self, result=None):
        before = len(result.failures) + len(result.errors)
        self.pair = None
        super().run(result)
        if self.pair and len(result.failures) + len(result.errors) > before:
            print(self.pair.last_words, file=sys.stderr)


@unittest.skipIf(LONG, "has a long form")
class Failover(HaTest):
    def await_minute_on(self, side, how):
        """A minute begins after something has happened; the job that is due in it runs on one side alone."""
        minute = zones.Minute.at_hand()
        self.pair.define("due", f"{minute.fields} * * *", "echo SIDE >>/share/due")
        begins = zones.soon(12)
        for one in self.pair.sides:
            one.start_service(minute.zone(begins))
        how()
        self.assertLess(time.time(), begins, "it took longer than the minute was put off for")
        self.pair.await_tick(minute)
        self.assertEqual(self.pair.shared("due"), f"{side.name}\n")

    def cut_off(self, side):
        side.link("down")
        self.pair.await_roles(*("passive" if one is side else "active" for one in self.pair.sides))

    def test_one_machine_runs_the_jobs_whichever_fails(self):
        pair, left, right = self.pair, self.left, self.right
        self.assertEqual(pair.roles(), ("passive", "passive"))  # as they have booted
        pair.define("by-hand", NEVER, "true")
        poll(lambda: all("by-hand" in side.control.jobs() for side in pair.sides), "the job is known")
        pair.start_keepalived()
        pair.await_roles("active", "passive")
        self.assertEqual([side.may_run("by-hand") for side in pair.sides], [True, False])

        self.await_minute_on(right, lambda: self.cut_off(left))
        told = [side.tells_of_the_role() for side in pair.sides]
        left.link("up")
        left.await_keepalived("BACKUP")
        time.sleep(4.5)  # longer than it waits before it takes over
        self.assertEqual(pair.roles(), ("passive", "active"))
        self.assertEqual([side.tells_of_the_role() for side in pair.sides], told)

        right.kill_keepalived()
        pair.await_roles("active", "passive")
        self.assertEqual([side.may_run("by-hand") for side in pair.sides], [True, False])


@unittest.skipUnless(LONG, "the short form is another test")
class Handovers(HaTest):
    """Each minute runs on one machine, but for one that begins while none is active."""

    # Whoever is active is made to end, and comes back before the next time.
    WAYS = {
        "link": (lambda side: side.link("down"), lambda side: side.link("up")),
        "stop": (lambda side: side.run("systemctl", "stop", "keepalived"),
                 lambda side: side.run("systemctl", "start", "keepalived")),
        "kill": (lambda side: side.kill_keepalived(), lambda side: None),
        "service": (lambda side: side.run("systemctl", "stop", "vukocrond"),
                    lambda side: side.run("systemctl", "start", "vukocrond")),
    }

    def setUp(self):
        super().setUp()
        seed = random.randrange(1 << 32)
        print(f"seed {seed}", flush=True)
        self.dice = random.Random(seed)
        self.gaps = []

    def active(self):
        """The sides whose role file says that they are active, of those whose service runs."""
        return [side for side in self.pair.sides if side.role_file()[0] == "active\n"]

    def hand_over(self, way):
        """@return from when to when none was active."""
        end, come_back = self.WAYS[way]
        (old,) = self.active()
        (new,) = (side for side in self.pair.sides if side is not old)
        began = time.time()
        end(old)
        poll(lambda: self.active() == [new], f"the other is active after {way}")
        gap = old.role_file()[1], new.role_file()[1]
        if way == "service":
            gap = began, gap[1]  # it was down before keepalived noticed
        time.sleep(2)
        come_back(old)
        poll(lambda: old.keepalived_is_ready() and old.control.answers(), f"it is back after {way}")
        time.sleep(5)
        self.assertEqual(self.active(), [new], f"after {way}")
        print(f"{way}: {old.name} to {new.name}, nobody for {gap[1] - gap[0]:.3f} s", flush=True)
        return gap

    def test_each_minute_runs_on_one_machine_over_many_handovers(self):
        self.pair.define("each", "* * * * *", "echo $(date +%s) SIDE >>/share/each")
        self.pair.start_keepalived()
        self.pair.await_roles("active", "passive")
        zones.wait_until((int(time.time()) // 60 + 1) * 60 + 2)
        first = int(time.time()) // 60
        ways = list(self.WAYS)
        while int(time.time()) // 60 < first + MINUTES:
            time.sleep(self.dice.uniform(0, 45))
            if self.dice.random() < 0.4:  # so that it also happens at the beginning of a minute
                zones.wait_until((int(time.time()) // 60 + 1) * 60 - self.dice.uniform(0, 5))
            self.gaps.append(self.hand_over(ways[len(self.gaps) % len(ways)]))
        last = int(time.time()) // 60
        time.sleep(3)
        self.judge(range(first + 1, last))

    def judge(self, minutes):
        ran = {}
        for line in self.pair.shared("each").splitlines():
            at, side = line.split()
            ran.setdefault(int(at) // 60, []).append(side)
        missed = [minute for minute in minutes if minute not in ran]
        twice = [minute for minute in minutes if len(ran.get(minute, [])) > 1]
        in_gap = [minute for minute in missed if any(begin <= minute * 60 <= end for begin, end in self.gaps)]
        print(f"{len(minutes)} minutes, {len(self.gaps)} handovers, {len(twice)} minutes on both, {len(missed)} on "
              f"none, {len(in_gap)} of these while none was active", flush=True)
        self.assertEqual(twice, [])
        self.assertEqual(missed, in_gap)
        self.assertEqual({side for sides in ran.values() for side in sides}, {"left", "right"})


if __name__ == "__main__":
    main()
