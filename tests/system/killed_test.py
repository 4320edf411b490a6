"""The service killed just before its N-th system call, from before a minute until its jobs are started and a reload is
done; and the next one on the same folders. Each job ran once for that minute, whatever N was.

VUKO_LONG=1 takes every N, otherwise it is one in so many.
"""

import concurrent.futures
import os
import shutil
import subprocess
import tempfile
import unittest

import zones
from machine import poll
from rooted import FOLDER, Root, Service
from store import BUILD_DIR, main

KILLER = os.path.join(BUILD_DIR, "bin", "call_killer")
LONG = "VUKO_LONG" in os.environ
KILLS_IN_SHORT = 40
SIDE_BY_SIDE = 40
FIXED, SPREAD = 4, 2
MAX_DELAY = 1
# The jobs of the minute, and those that another minute's values are kept of.
DUE = [f"fixed{number}" for number in range(FIXED)] + [f"spread{number}" for number in range(SPREAD)]


class Beginning:
    """What a service leaves that has seen one minute begin: it knows up to where it has worked."""

    def __init__(self, folder):
        self.folder = folder
        before = zones.Minute.at_hand()
        self.minute = before.next()
        root = Root(folder)
        begins = zones.soon()
        with Service(root, zone=before.zone(begins)) as service:
            poll(lambda: root.has_worked_up_to(before), "a minute has begun")
            service.stop()

    def play(self, call):
        """Kills before one call; 0 is none. @return how many calls were made."""
        with tempfile.TemporaryDirectory(prefix="vk-") as folder:
            shutil.copytree(self.folder, folder, symlinks=True, dirs_exist_ok=True)
            script = Script(folder, self.minute, call)
            script.run()
            return script.calls


class Script:
    """One life of a service that is killed, and the next one."""

    def __init__(self, folder, minute, call):
        self.root = Root(folder)
        self.call = call
        self.minute = minute
        self.runs = self.root.path("runs")
        self.edits = self.root.path("edits")
        self.calls = 0
        os.mkdir(self.edits)
        for name in DUE:
            self.define(name)
        self.root.define("random", "~ ~ ~ ~ ~", "/bin/true")
        self.root.define("removed", "~ ~ ~ ~ ~", "/bin/true")
        self.define("fixed0", "edits", timeout=600)
        self.define("added", "edits")

    def define(self, name, folder=FOLDER, **members):
        minute, hour = self.minute.fields.split()
        spread = name.startswith("spread")
        crontab = f"{minute}~{minute} * * * *" if spread else f"{minute} {hour} * * *"
        if name == "added":
            crontab = "~ ~ ~ ~ ~"
        self.root.define(name, crontab, ["/bin/sh", "-c", f"echo {name} >>{self.runs}"], folder, **members)

    def edit(self):
        """What is changed before the reload; may be done twice."""
        folder = self.root.path(FOLDER)
        return f"cp {self.edits}/* {folder} && rm -f {folder}/removed.conf"

    def run(self):
        with Service(self.root, zone=self.minute.zone(zones.soon())) as service:
            self.root.control.ask("template", maxDelay=MAX_DELAY)
            self.schedules = self.root.control.schedules()
            self.killed_life(service)
            service.kill()
        subprocess.run(self.edit(), shell=True, check=True)
        begins = zones.soon()
        after = self.minute.next()
        with Service(self.root, zone=after.zone(begins)) as service:
            zones.wait_until(begins)
            poll(lambda: self.root.has_worked_up_to(after), "the next minute has had its tick")
            poll(self.root.is_quiet, f"no job is running, after call {self.call}", patience=15)
            self.inspect()
            if service.stop() != 0:
                raise AssertionError("the service did not end in order")

    def killed_life(self, service):
        pid = service.process.pid
        command = f"{self.edit()} && kill -HUP {pid}"
        with subprocess.Popen([KILLER, str(pid), str(self.call), str(len(DUE)), command], stdout=subprocess.PIPE,
                              text=True) as killer:
            if killer.stdout.readline() != "watching\n":
                raise AssertionError("the killer could not begin")
            try:
                poll(lambda: killer.poll() is not None or self.is_through(service), "the script is through")
            finally:
                killer.terminate()
            self.calls = int(killer.stdout.read())

    def is_through(self, service):
        """Jobs have run, and the reload is done."""
        messages = service.messages()
        return (messages.count(" loaded ") == 2 and len(self.ran()) == len(DUE) and
                messages.rfind(" loaded ") > messages.rfind("reloading on SIGHUP"))

    def ran(self):
        try:
            with open(self.runs, encoding="utf-8") as file:
                return file.read().split()
        except FileNotFoundError:
            return []

    def inspect(self):
        """Raises when anything is not as it should be."""
        self.expect(sorted(self.ran()), sorted(DUE), "each job ran once")
        jobs = self.root.control.jobs()
        self.expect(sorted(jobs), sorted({*self.schedules, "added"} - {"removed"}), "the jobs")
        for name in self.schedules.keys() - {"removed"}:
            self.expect(jobs[name]["schedule"], self.schedules[name], f"the values of {name}")
        self.expect(jobs["fixed0"]["state"], "waiting", "its state")
        for name in DUE:
            started = [entry for entry in self.root.control.history(name) if entry["outcome"] != "skipped"]
            self.expect([entry["minute"] for entry in started], [self.minute.number], f"the starts of {name}")
            self.expect([(entry["end"]["kind"], entry["end"]["code"]) for entry in started], [("exited", 0)],
                        f"the ends of {name}")
        poll(lambda: self.root.stages() == [], f"the run table is empty, after call {self.call}", patience=5)

    def expect(self, found, wanted, what):
        if found != wanted:
            raise AssertionError(f"killed before call {self.call}: {what}: {found} and not {wanted}")


class Killed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.beginning = Beginning(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="vk-")))

    def test_each_job_runs_once_whatever_the_instant(self):
        calls = self.beginning.play(0)
        self.assertGreater(calls, 100)
        step = 1 if LONG else calls // KILLS_IN_SHORT + 1
        faults = []
        with concurrent.futures.ThreadPoolExecutor(SIDE_BY_SIDE) as pool:
            for future in [pool.submit(self.beginning.play, call) for call in range(1, calls + 1, step)]:
                try:
                    future.result()
                except Exception as fault:  # each one is told, with its call
                    faults.append(str(fault))
        print(f"{len(range(1, calls + 1, step))} of {calls} calls, {len(faults)} faults")
        self.assertEqual(faults, [])


if __name__ == "__main__":
    main()
