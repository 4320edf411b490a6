"""What is installed, under a real service manager: the unit as it is shipped, and what becomes of the jobs."""

import os
import re
import signal
import tempfile
import json

import zones
from control import Control
from installed import install
from machine import Machine, poll, text_of
from store import MachineTest, main

PREFIX = "/opt/vukocrond"
UNIT = f"{PREFIX}/lib/systemd/system/vukocrond.service"
FOLDER = "/usr/vuko/etc/vukocron.d"
CAP_SYS_RESOURCE = 24
DROP_INS = "/etc/systemd/system/vukocrond.service.d"


class Installed(MachineTest):
    @classmethod
    def setUpClass(cls):
        stage = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="vukocrond-stage-"))
        cls.share = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="vukocrond-share-"))
        folders = {PREFIX: (install(stage, PREFIX), False), "/share": (cls.share, True)}
        cls.machine = cls.enterClassContext(Machine(folders=folders))
        cls.machine.run("systemd-tmpfiles", "--create", f"{PREFIX}/lib/tmpfiles.d/vukocrond.conf")
        cls.machine.run("systemctl", "enable", UNIT)
        cls.control = Control(f"/proc/{cls.machine.pid}/root/run/vukocrond.sock")

    def setUp(self):
        self.minute = zones.Minute.at_hand()

    def tearDown(self):
        """The next test finds a machine on which the service has never run."""
        self.systemctl("stop", check=False)
        self.machine.run("sh", "-c", f"pkill -KILL -f [/]share/log; rm -rf {DROP_INS} /usr/vuko/etc/* "
                                     f"/run/vukocrond.* /share/*; mkdir {FOLDER}; systemctl daemon-reload; "
                                     "systemctl reset-failed", check=False)

    def systemctl(self, *words, **how):
        return self.machine.run("systemctl", *words, "vukocrond.service", **how)

    def property(self, name):
        return self.machine.run("systemctl", "show", f"--property={name}", "--value", "vukocrond").stdout.strip()

    def drop_in(self, name, text):
        self.machine.write(f"{DROP_INS}/{name}.conf", text)
        self.machine.run("systemctl", "daemon-reload")

    def option(self, *words):
        self.drop_in("option", f"[Service]\nExecStart=\nExecStart={PREFIX}/sbin/vukocrond {' '.join(words)}\n")

    def start(self, minute=None, begins=None):
        """Starts it; with a minute, in a zone in which that begins at an instant."""
        if minute:
            self.drop_in("zone", f"[Service]\nEnvironment=TZ={minute.zone(begins)}\n")
        self.systemctl("restart")

    def define(self, name, script, crontab="0 0 31 2 *", **members):
        """A job that runs a shell's script; by its schedule never, if there is none."""
        self.machine.write(f"{FOLDER}/{name}.conf", json.dumps(
            {"name": name, "user": "root", "period": "crontab", "crontab": crontab,
             "cmd_list": ["/bin/sh", "-c", script], **members}))

    def shared(self, name):
        return text_of(os.path.join(self.share, name))

    def await_shared(self, name, text, **how):
        poll(lambda: self.shared(name) == text, f"{name} holds {text!r}", **how)

    def starts(self, name):
        return [entry for entry in self.control.history(name) if entry["outcome"] != "skipped"]

    def ends(self, name):
        return [(entry["end"]["kind"], entry["end"]["code"]) for entry in self.starts(name)]

    def start_long_job(self, script="echo $$ >/share/pid; echo began >>/share/log; "
                                    "while [ ! -e /share/go ]; do sleep 0.05; done; echo ended >>/share/log", **members):
        """Starts the service and a job, which goes on until /share/go is there."""
        self.define("long", script, **members)
        self.start()
        self.control.ask("run", job="long")
        self.await_shared("log", "began\n")

    def let_go(self):
        open(os.path.join(self.share, "go"), "w", encoding="utf-8").close()

    # -- the service manager's view

    def test_it_is_ready_and_tells_its_state(self):
        self.start()
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertIn('Status: "active, 0 jobs, 0 running, 0 refused"', self.systemctl("status").stdout)
        self.assertEqual(self.machine.run("systemctl", "is-enabled", "vukocrond").stdout, "enabled\n")

    def test_a_reload_reads_the_definitions_and_is_ready_again(self):
        self.start()
        pid = self.property("MainPID")
        self.define("nightly", "true")
        self.systemctl("reload")
        poll(lambda: self.property("StatusText") == "active, 1 jobs, 0 running, 0 refused", "it has read it")
        poll(lambda: self.property("ActiveState") == "active", "it is active again")
        self.assertEqual(self.property("MainPID"), pid)

    def test_the_journal_has_a_job_s_lines_to_the_byte_under_its_own_name(self):
        said = "plain\n\ttabs and  blanks\nümlaut % \\n\n"
        self.machine.write("/share/said", said)
        self.define("talker", "cat /share/said; echo failing >&2; exit 3")
        self.start()
        self.assertEqual(self.control.ask("run", job="talker", wait=True)["end"]["code"], 3)
        self.machine.run("journalctl", "--sync")
        self.assertEqual(self.machine.run("journalctl", "-t", "builtin-dyn/talker", "-o", "cat").stdout,
                         said + "failing\n")
        own = self.machine.journal("SYSLOG_IDENTIFIER=vukocrond", "_COMM=vukocrond")
        invocation = [entry["MESSAGE"] for entry in own
                      if entry.get("_SYSTEMD_INVOCATION_ID") == self.property("InvocationID")]
        self.assertEqual(len([line for line in invocation if line.endswith(" is ready")]), 1)
        self.assertFalse([line for line in invocation if "failing" in line])

    def test_a_job_inherits_nothing_that_was_meant_for_the_service(self):
        self.define("witness", "cat /proc/self/oom_score_adj >/share/oom; grep -E '^(NoNewPrivs|CapBnd|CapEff|SigBlk|SigIgn|"
                               "Seccomp):' /proc/self/status >/share/status; env >/share/environment; "
                               "ls /proc/self/fd | wc -l >/share/descriptors; umask >/share/umask; ulimit -n >/share/files")
        self.start()
        self.assertEqual(self.control.ask("run", job="witness", wait=True)["end"]["code"], 0)
        # Where not even the service manager may lower a score, there is nothing for the job to inherit.
        manager = self.machine.read("/proc/1/status")
        may_lower = int(re.search(r"CapEff:\t(\w+)", manager)[1], 16) >> CAP_SYS_RESOURCE & 1
        pid = self.property("MainPID")
        self.assertEqual(self.machine.read(f"/proc/{pid}/oom_score_adj"), "-900\n" if may_lower else "0\n")
        self.assertEqual(self.shared("oom"), "0\n")
        status = dict(line.split(":\t") for line in self.shared("status").splitlines())
        everything = re.search(r"CapBnd:\t(\w+)", manager)[1]
        self.assertEqual(status, {"NoNewPrivs": "0", "CapBnd": everything, "CapEff": everything, "Seccomp": "0",
                                  "SigBlk": "0" * 16, "SigIgn": "0" * 16})
        names = {line.partition("=")[0] for line in self.shared("environment").splitlines()}
        self.assertEqual(names - {"PWD", "_", "SHLVL", "OLDPWD"},
                         {"PATH", "SHELL", "HOME", "USER", "LOGNAME", "LANG"} & names)
        self.assertEqual(self.shared("descriptors"), "4\n")  # ls has one more, the folder
        self.assertEqual(self.shared("umask"), "0022\n")

    # -- stopping

    def test_a_stop_leaves_jobs_running_and_the_next_start_tracks_them(self):
        self.start_long_job()
        pid = self.shared("pid").strip()
        self.systemctl("stop")
        self.assertEqual(self.property("Result"), "success")
        self.assertEqual(self.machine.run("kill", "-0", pid, check=False).returncode, 0)
        self.systemctl("start")
        self.assertEqual(self.control.jobs()["long"]["state"], "running")
        self.let_go()
        self.await_shared("log", "began\nended\n")
        poll(lambda: self.ends("long") == [("exited", 0)], "its end is recorded")

    def test_a_job_that_ends_while_the_service_is_down_has_its_end_recorded(self):
        self.start_long_job()
        self.systemctl("stop")
        self.let_go()
        self.await_shared("log", "began\nended\n")
        self.systemctl("start")
        poll(lambda: self.ends("long") == [("exited", 0)], "its end is recorded")

    def test_a_stop_that_waits_ends_after_the_job(self):
        self.option("--on-stop", "wait")
        self.start_long_job()
        self.systemctl("stop", "--no-block")
        poll(lambda: self.property("ActiveState") == "deactivating", "it stops")
        self.assertEqual(self.shared("log"), "began\n")
        self.let_go()
        poll(lambda: self.property("ActiveState") == "inactive", "it has stopped")
        self.assertEqual(self.shared("log"), "began\nended\n")
        self.assertEqual(self.property("Result"), "success")

    def test_a_stop_that_terminates_ends_a_job_by_term(self):
        self.option("--on-stop", "terminate")
        self.start_long_job("trap 'echo term >>/share/log; exit 7' TERM; echo began >>/share/log; "
                            "while :; do sleep 0.05; done")
        self.systemctl("stop")
        self.assertEqual(self.shared("log"), "began\nterm\n")
        self.systemctl("start")
        self.assertEqual(self.ends("long"), [("exited", 7)])

    def test_a_stop_that_terminates_kills_what_ignores_term_after_ten_seconds(self):
        self.option("--on-stop", "terminate")
        self.start_long_job("trap '' TERM; echo $$ >/share/pid; echo began >>/share/log; while :; do sleep 0.2; done")
        asked = self.machine.run("date", "+%s.%N").stdout
        self.systemctl("stop")
        took = float(self.machine.run("date", "+%s.%N").stdout) - float(asked)
        self.assertTrue(9.9 < took < 15, took)
        self.assertNotEqual(self.machine.run("kill", "-0", self.shared("pid").strip(), check=False).returncode, 0)
        self.systemctl("start")
        self.assertEqual(self.ends("long"), [("signaled", signal.SIGKILL)])

    # -- what survives

    def test_it_is_started_again_with_the_same_values_after_a_kill(self):
        for number in range(8):
            self.define(f"random{number}", "true", "~ ~ ~ ~ ~")
        self.start_long_job()
        before, pid = self.control.schedules(), self.property("MainPID")
        self.systemctl("kill", "--kill-whom=main", "--signal=KILL")
        poll(lambda: self.property("MainPID") not in (pid, "0") and self.control.answers(), "it is there again")
        self.assertEqual(self.control.schedules(), before)
        self.assert_tracked_and_not_started_twice()

    def test_the_watchdog_has_one_that_hangs_started_again(self):
        self.drop_in("watchdog", "[Service]\nWatchdogSec=1\n")
        self.start_long_job()
        pid = self.property("MainPID")
        self.machine.run("kill", "-STOP", pid)
        poll(lambda: self.property("MainPID") not in (pid, "0") and self.control.answers(), "it is there again")
        self.assertIn("watchdog", " ".join(entry["MESSAGE"].lower() for entry in
                                           self.machine.journal("_PID=1", "UNIT=vukocrond.service")))
        self.assert_tracked_and_not_started_twice()

    def test_a_timeout_counts_on_over_a_restart(self):
        self.start_long_job("echo began >>/share/log; sleep 2; echo later >>/share/log; sleep 60", timeout=4)
        self.await_shared("log", "began\nlater\n")
        self.systemctl("restart")
        self.assertEqual(self.control.jobs()["long"]["state"], "running")
        poll(lambda: self.ends("long") == [("signaled", signal.SIGTERM)], "it is told to end", patience=15)
        (run,) = self.starts("long")
        self.assertTrue(3.9e6 < run["end"]["durationUsec"] < 5.5e6, run)  # and not 6 seconds, begun anew

    def assert_tracked_and_not_started_twice(self):
        self.assertEqual(self.control.jobs()["long"]["state"], "running")
        self.let_go()
        poll(lambda: self.ends("long") == [("exited", 0)], "its end is recorded")
        self.assertEqual(self.shared("log"), "began\nended\n")

    def test_delayed_starts_that_have_not_begun_survive_a_restart_once(self):
        """Two jobs of a random minute, of which one has to wait."""
        self.start()
        self.control.ask("template", maxDelay=20)
        zones.wait_until(zones.in_time(self.await_two_of_one_minute, 3))
        poll(lambda: self.shared("log"), "the first has begun")
        self.assertEqual(len(self.shared("log").splitlines()), 1)
        self.systemctl("restart")
        self.assertEqual(len(self.shared("log").splitlines()), 1)
        poll(lambda: len(self.shared("log").splitlines()) == 2, "the second has begun")
        poll(lambda: all(self.ends(name) == [("exited", 0)] for name in ("one", "two")), "both have ended")
        self.assertEqual(sorted(self.shared("log").split()), ["one", "two"])
        self.assertEqual(sorted(entry["delay"] for name in ("one", "two") for entry in self.starts(name)), [0, 10])

    def await_two_of_one_minute(self, least):
        self.minute = self.minute.next()
        minute = self.minute.fields.split()[0]
        for name in ("one", "two"):
            self.define(name, f"echo {name} >>/share/log", f"{minute}~{minute} * * * *")
        begins = zones.soon(least)
        self.start(self.minute, begins)
        zones.assert_ahead(begins)
        return begins


class PowerOff(MachineTest):
    def test_a_shutdown_saves_the_state(self):
        with tempfile.TemporaryDirectory(prefix="vukocrond-") as folder:
            kept = os.path.join(folder, "kept")
            os.mkdir(kept)
            folders = {PREFIX: (install(os.path.join(folder, "stage"), PREFIX), False), "/kept": (kept, True)}
            schedules = [self.one_life(folders, off=True), self.one_life(folders, off=False)]
        self.assertEqual(schedules[0], schedules[1])

    def one_life(self, folders, off):
        """The values drawn in a boot; the first of them makes the jobs."""
        with Machine(folders=folders) as machine:
            control = Control(f"/proc/{machine.pid}/root/run/vukocrond.sock")
            machine.run("mkdir", "-p", "/usr/vuko")
            machine.run("mount", "--bind", "/kept", "/usr/vuko")
            machine.run("systemctl", "enable", UNIT)
            machine.run("systemctl", "start", "vukocrond")
            if off:
                for number in range(8):
                    machine.write(f"{FOLDER}/random{number}.conf", json.dumps(
                        {"name": f"random{number}", "user": "root", "period": "c", "crontab": "~ ~ ~ ~ ~",
                         "cmd": "/bin/true"}))
                machine.run("systemctl", "reload", "vukocrond")
                poll(lambda: len(control.jobs()) == 8, "the jobs are read")
                self.assertEqual(control.ask("run", job="random0", wait=True)["end"]["code"], 0)
            schedules = control.schedules()
            self.assertEqual([entry["end"]["kind"] for entry in control.history("random0")], ["exited"])
            if off:
                machine.poweroff()
            return schedules


if __name__ == "__main__":
    main()
