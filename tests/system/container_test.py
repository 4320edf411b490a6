"""The service as the first process of a container: in the foreground, without a service manager.

VUKO_LONG=1 makes ten thousand launches.
"""

import json
import os
import signal
import subprocess
import tempfile
import unittest

import zones
from machine import poll
from rooted import FOLDER, Root, Service
from store import main

UNSHARE = ("unshare", "--pid", "--fork", "--kill-child", "--mount-proc")
LONG = "VUKO_LONG" in os.environ
JOBS, MINUTES = (2500, 4) if LONG else (300, 1)
JOBS_IN_A_FILE = 500
GRACE = 10  # seconds from TERM to KILL


class Container(unittest.TestCase):
    def setUp(self):
        self.root = Root(self.enterContext(tempfile.TemporaryDirectory(prefix="vk-")))
        self.service = None

    def start(self, *options, **how):
        if self.service:
            self.service.kill()
        self.service = self.enterContext(Service(self.root, *options, prefix=UNSHARE, **how))
        (self.first,) = map(int, self.children(self.service.process.pid))

    @staticmethod
    def children(pid):
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            return file.read().split()

    def inside(self, *command):
        """A command among the container's processes, and with its view of them."""
        return subprocess.run(["nsenter", f"--target={self.first}", "--pid", "--mount", *command], check=True,
                              capture_output=True, text=True).stdout

    def processes(self):
        """Command and state of the container's processes, but for the one that asks."""
        lines = self.inside("ps", "-e", "-o", "state=,pid=,args=").splitlines()
        return [line.split(None, 2) for line in lines if "ps -e" not in line]

    def zombies(self):
        return [process for process in self.processes() if process[0] == "Z"]

    def await_quiet(self):
        poll(self.root.is_quiet, "no job is running", patience=120)
        poll(lambda: len(self.processes()) == 1, "the service is alone")

    def marked(self, mark):
        return [process for process in self.processes() if mark in process[2]]

    def ends(self, job):
        return [(entry["end"]["kind"], entry["end"]["code"]) for entry in self.root.control.history(job)]

    def test_it_is_the_first_process_and_ends_on_term_from_within(self):
        self.root.define("job", "0 0 31 2 *", "/bin/echo ran")
        self.start()
        self.assertEqual([process[1] for process in self.processes()], ["1"])
        self.assertEqual(self.root.control.ask("run", job="job", wait=True)["end"]["code"], 0)
        self.assertEqual(self.root.read("var/log/vukocrond/builtin_job.log"), "ran\n")
        self.inside("kill", "-TERM", "1")
        self.assertEqual(self.service.process.wait(30), 0)
        self.assertIn("stopping on SIGTERM", self.service.messages())

    def test_it_reaps_the_orphans_of_strangers(self):
        self.start()
        for _ in range(20):
            self.inside("setsid", "--fork", "sh", "-c", "sleep 0.1 & sleep 0.05 & exit 3")
        poll(lambda: len(self.processes()) == 1, "the orphans are gone")

    def test_no_launch_leaves_a_zombie(self):
        runs = self.root.path("runs")
        for first in range(0, JOBS, JOBS_IN_A_FILE):
            self.define_many(range(first, min(JOBS, first + JOBS_IN_A_FILE)), runs)
        self.minute = zones.Minute.at_hand()
        minute, begins = zones.in_time(self.await_minute, 2.5)
        for number in range(MINUTES):
            zones.wait_until(begins + number * zones.MINUTE)
            poll(lambda: self.root.has_worked_up_to(zones.Minute(minute.number + number)), "a tick", patience=80)
            self.await_quiet()
        with open(runs, encoding="ascii") as file:
            self.assertEqual(len(file.read().split()), JOBS * MINUTES)
        self.assertEqual(self.root.stages(), [])

    def await_minute(self, least):
        """A service that has not seen a minute before it begins."""
        self.minute = self.minute.next()
        begins = zones.soon(least)
        self.start(zone=self.minute.zone(begins))
        zones.assert_ahead(begins)
        return self.minute, begins

    def define_many(self, numbers, runs):
        path = os.path.join(self.root.path(FOLDER), f"many{numbers[0]}.conf")
        with open(path, "w", encoding="utf-8") as file:
            json.dump([{"name": f"job{number}", "user": "root", "period": "c", "crontab": "* * * * *",
                        "cmd_list": ["/bin/sh", "-c", f"echo x >>{runs}"]} for number in numbers], file)
        os.chmod(path, 0o644)

    def test_a_timeout_ends_the_process_group_and_not_who_left_it(self):
        self.define_stubborn(timeout=1)
        self.start()
        self.root.control.ask("run", job="stubborn")
        self.await_stubborn()
        poll(lambda: not self.marked("111111"), "the group is killed", patience=GRACE + 10)
        self.assertEqual(self.ends("stubborn"), [("signaled", signal.SIGKILL)])
        self.assertEqual(len(self.marked("222222")), 1)  # it has a session of its own
        self.assertEqual(self.zombies(), [])

    def test_a_stop_that_terminates_kills_a_group_that_ignores_term(self):
        self.define_stubborn()
        self.start("--on-stop", "terminate")
        self.root.control.ask("run", job="stubborn")
        self.await_stubborn()
        os.kill(self.first, signal.SIGTERM)
        self.assertEqual(self.service.process.wait(GRACE + 20), 0)
        self.assertIn("waiting for 1 running jobs", self.service.messages())
        # The container's end takes along who left the group, too.
        with Service(self.root):
            self.assertEqual(self.ends("stubborn"), [("signaled", signal.SIGKILL)])

    def define_stubborn(self, **members):
        """Ignores TERM, forks twice and leaves a process in a session of its own, and another in its group."""
        self.root.define("stubborn", "0 0 31 2 *", ["/bin/sh", "-c", "trap '' TERM; (setsid sleep 222222 &); "
                                                    "(sleep 111111 &); sleep 111111; sleep 111111"], **members)

    def await_stubborn(self):
        poll(lambda: len(self.marked("sleep 111111")) >= 3 and self.marked("222222"), "all of it is there")


if __name__ == "__main__":
    main()
