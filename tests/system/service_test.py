"""The service under a real service manager: ready, reloaded, stopped, and what the journal keeps of it."""

import itertools
import os
import re
import tempfile

from machine import Machine, poll
from store import SERVICE, SERVICE_ENVIRONMENT, MachineTest, call, folders, main

UNIT = f"""[Service]
Type=notify
Environment={SERVICE_ENVIRONMENT}
ExecStart={SERVICE}
ExecReload=/bin/kill -HUP $MAINPID
ExecStopPost=/bin/sh -c 'echo "$SERVICE_RESULT $EXIT_CODE $EXIT_STATUS" >> /share/ends'
KillMode=process
"""
FOLDER = "/usr/vuko/etc/vukocron.d"
WARNING = 4
FACILITY_CRON = "9"


class Service(MachineTest):
    @classmethod
    def setUpClass(cls):
        cls.share = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="vukocrond-share-"))
        cls.machine = cls.enterClassContext(Machine(folders=folders(share=cls.share)))
        cls.machine.add_unit("vukocrond.service", UNIT)

    def setUp(self):
        self.systemctl("stop")
        self.machine.run("sh", "-c", f"rm --force {FOLDER}/*.conf")
        ends = os.path.join(self.share, "ends")
        if os.path.exists(ends):
            os.unlink(ends)
        self.systemctl("start")
        self.since = self.property("InvocationID")

    def systemctl(self, *words):
        return self.machine.run("systemctl", *words, "vukocrond.service")

    def property(self, name):
        return self.machine.run("systemctl", "show", f"--property={name}", "--value", "vukocrond").stdout.strip()

    def ends(self):
        with open(f"{self.share}/ends", encoding="utf-8") as file:
            return file.read().splitlines()

    def entries(self):
        """What the service has logged since the test began, in order."""
        return self.machine.journal(f"_SYSTEMD_INVOCATION_ID={self.since}")

    def messages(self):
        return [entry["MESSAGE"] for entry in self.entries()]

    def loads(self):
        """How many jobs the service found, each time it read the definitions."""
        found = (re.search(r" loaded (\d+) jobs?\b", message) for message in self.messages())
        return [int(match[1]) for match in found if match]

    def await_changes(self, expected):
        """A service that watches its folders may have read a change before it is told to."""
        poll(lambda: [count for count, _ in itertools.groupby(self.loads())] == expected,
             f"the service has loaded {expected} jobs, one change after the other")

    def test_it_is_active_once_it_has_told_that_it_is_ready(self):
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertEqual(self.property("SubState"), "running")
        self.assertEqual(self.machine.read(f"/proc/{self.property('MainPID')}/comm"), "vukocrond\n")
        self.assertEqual(self.loads(), [0])

    def test_systemctl_reload_has_it_read_the_definitions(self):
        pid = self.property("MainPID")
        self.machine.write(f"{FOLDER}/nightly.conf",
                           '{"name": "nightly", "user": "root", "period": "daily", "cmd": "/bin/true"}')
        self.systemctl("reload")
        self.await_changes([0, 1])
        self.assertEqual(self.property("MainPID"), pid)
        poll(lambda: self.property("ActiveState") == "active", "the service is active again")

    def test_it_reads_what_is_saved_and_removed(self):
        self.assertEqual(call(self.machine, "save", "builtin-dyn", "nightly").messages, [])
        self.await_changes([0, 1])
        self.assertEqual(call(self.machine, "remove", "builtin-dyn", "nightly").messages, [])
        self.await_changes([0, 1, 0])

    def test_after_many_saves_in_a_row_it_has_read_the_last_one(self):
        count = 20
        for number in range(count):
            self.assertEqual(call(self.machine, "save", "builtin-dyn", f"job{number}").messages, [])
        poll(lambda: self.loads()[-1] == count, "the service has read the last job")

    def test_the_journal_keeps_each_message_once_under_its_name(self):
        self.machine.write(f"{FOLDER}/broken.conf", "{")
        self.systemctl("reload")
        poll(lambda: len(self.loads()) > 1, "the service has read it")
        self.systemctl("stop")
        entries = self.entries()
        self.assertEqual({entry["SYSLOG_IDENTIFIER"] for entry in entries}, {"vukocrond"})
        self.assertEqual({entry["_TRANSPORT"] for entry in entries}, {"syslog"})
        self.assertEqual({entry["SYSLOG_FACILITY"] for entry in entries}, {FACILITY_CRON})
        self.assertEqual([entry["MESSAGE"] for entry in entries if int(entry["PRIORITY"]) <= WARNING],
                         [message for message in self.messages() if f"{FOLDER}/broken.conf" in message])
        self.assertEqual(len([message for message in self.messages() if "broken.conf" in message]), len(self.loads()) - 1)
        self.assertEqual(len([message for message in self.messages() if "is ready" in message]), 1)
        self.assertEqual(len([message for message in self.messages() if "stopping on SIGTERM" in message]), 1)

    def test_a_stop_ends_it_with_success(self):
        self.systemctl("stop")
        self.assertEqual(self.property("ActiveState"), "inactive")
        self.assertEqual(self.property("Result"), "success")
        self.assertEqual(self.ends(), ["success exited 0"])

    def test_a_second_one_is_refused_and_leaves_the_first_alone(self):
        pid = self.property("MainPID")
        second = self.machine.run("env", SERVICE_ENVIRONMENT, SERVICE, check=False)
        self.assertEqual(second.returncode, 1)
        self.assertIn("/var/run/vukocrond.pid", second.stderr)
        self.systemctl("reload")
        poll(lambda: self.loads() == [0, 0], "the first one has read the definitions again")
        self.assertEqual(self.property("MainPID"), pid)

    def test_it_starts_again_after_it_was_killed(self):
        self.systemctl("kill", "--signal=KILL")
        poll(lambda: self.property("ActiveState") == "failed", "the service is dead")
        self.systemctl("start")
        self.assertEqual(self.property("ActiveState"), "active")


class Shutdown(MachineTest):
    def test_a_shutdown_ends_it_with_success(self):
        with tempfile.TemporaryDirectory(prefix="vukocrond-share-") as share:
            with Machine(folders=folders(share=share), units={"vukocrond.service": UNIT}) as machine:
                machine.poweroff()
            with open(f"{share}/ends", encoding="utf-8") as file:
                self.assertEqual(file.read(), "success exited 0\n")


if __name__ == "__main__":
    main()
