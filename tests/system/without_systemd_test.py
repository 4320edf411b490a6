"""Without a service manager, a change of the stored jobs reaches the service by its PID file."""

import re
import subprocess
import tempfile

from machine import Machine, poll
from store import SERVICE, SERVICE_ENVIRONMENT, MachineTest, call, folders, main

PID_FILE = "/var/run/vukocrond.pid"


class WithoutSystemd(MachineTest):
    """Each test has a machine of its own, as the service keeps what it has loaded."""

    def setUp(self):
        self.machine = self.enterContext(Machine(folders=folders(), systemd=False))
        self.said = self.enterContext(tempfile.TemporaryFile(mode="w+", encoding="utf-8"))

    def start_service(self):
        service = self.machine.spawn("env", SERVICE_ENVIRONMENT, SERVICE, stderr=self.said, stdout=subprocess.DEVNULL)
        self.addCleanup(service.wait)
        self.addCleanup(service.kill)
        poll(lambda: self.loads(), "the service has loaded its jobs")
        return service

    def loads(self):
        """How many jobs the service found, each time it read the definitions."""
        self.said.seek(0)
        return [int(count) for count in re.findall(r" loaded (\d+) jobs?\b", self.said.read())]

    def call(self, *words):
        return call(self.machine, *words)

    def assert_done(self, told):
        self.assertIs(told.result, True)
        self.assertEqual(told.messages, [])

    def test_a_running_service_reads_what_was_saved_and_removed(self):
        service = self.start_service()
        self.assertEqual(self.loads(), [0])
        self.assert_done(self.call("save", "builtin-dyn", "nightly"))
        poll(lambda: self.loads() == [0, 1], "the service has read the saved job")
        self.assert_done(self.call("remove", "builtin-dyn", "nightly"))
        poll(lambda: self.loads() == [0, 1, 0], "the service has noticed that the job is gone")
        self.assertIsNone(service.poll())

    def test_the_step_is_3_where_there_is_no_stage_to_ask_for(self):
        self.assertEqual(self.call("step").result, 3)

    def test_nothing_hibernates(self):
        told = self.call("hibernating")
        self.assertIs(told.result, False)
        self.assertEqual(told.messages, [])

    def assert_saved_without_reload(self):
        told = self.call("save", "pkg", "backup")
        self.assertIs(told.result, True)
        self.assertEqual(len(told.messages), 1, told.messages)
        self.assertRegex(told.messages[0], r"^configmanager:52 failed to reload service vukocrond\. "
                                           r"\[0x[0-9A-F]{4} servicemanager\.cpp:\d+\]$")

    def test_a_service_that_never_ran_is_reported_and_the_job_saved(self):
        self.assert_saved_without_reload()

    def test_the_number_that_a_killed_service_left_behind_names_nobody(self):
        self.start_service()
        pid = self.machine.read(PID_FILE).strip()
        self.machine.run("kill", "-KILL", pid)
        poll(lambda: self.machine.run("kill", "-0", pid, check=False).returncode != 0, "the service is dead")
        heir = self.machine.spawn("cat", "/dev/zero", stdout=subprocess.DEVNULL)
        self.addCleanup(heir.wait)
        self.addCleanup(heir.kill)
        pid = poll(lambda: self.machine.run("pidof", "cat", check=False).stdout.strip(), "the heir runs")
        self.machine.write(PID_FILE, pid)
        self.assert_saved_without_reload()
        self.assertIsNone(heir.poll())


if __name__ == "__main__":
    main()
