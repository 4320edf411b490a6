"""What the library makes of a logind that sleeps, is awake, is not there, answers nonsense, or does not answer."""

import os
import signal
import subprocess
import sys
import tempfile
import unittest

import kernel
from machine import poll
from store import BUILD_DIR, Told, main

LOGIN = ("org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager")
# The library asks with a deadline of a few seconds; a machine under load gets some more.
PATIENCE = 6

BUS_SETTINGS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>
  <policy context="default">
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""


class Hibernation(unittest.TestCase):
    """Each test has a system bus of its own, with nobody on it."""

    def setUp(self):
        folder = self.enterContext(tempfile.TemporaryDirectory(prefix="vukocrond-bus-"))
        socket = os.path.join(folder, "bus")
        settings = os.path.join(folder, "settings")
        with open(settings, "w", encoding="utf-8") as file:
            file.write(BUS_SETTINGS.format(socket=socket))
        self.environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={socket}"}
        self.bus = self.spawn("dbus-daemon", f"--config-file={settings}", "--nofork", "--nopidfile", "--nosyslog")
        poll(lambda: os.path.exists(socket), "the bus is there")

    def spawn(self, *command):
        # Tied to this process, which ctest may kill without any of the clean-ups below.
        process = subprocess.Popen(command, env=self.environment, stdout=subprocess.DEVNULL,
                                   preexec_fn=kernel.die_with_parent)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def busctl(self, *words):
        return subprocess.run(["busctl", *words], env=self.environment, check=True, capture_output=True,
                              text=True).stdout.strip()

    def have_login(self, *words):
        """Somebody with the name of logind on the bus."""
        mock = self.spawn(sys.executable, "-m", "dbusmock", "--system", *words)
        name_has_owner = ("call", "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                          "NameHasOwner", "s", LOGIN[0])
        poll(lambda: self.busctl(*name_has_owner) == "b true", "logind is on the bus")
        return mock

    def have_logind(self, sleeping="false"):
        return self.have_login("--template", "logind", "--parameters", f'{{"PreparingForSleep": {sleeping}}}')

    def ask(self):
        done = subprocess.run([f"{BUILD_DIR}/bin/storectl", "hibernating"], env=self.environment, capture_output=True,
                              text=True, check=False, timeout=60)
        return Told(done.returncode, done.stdout, done.stderr)

    def assert_answer(self, expected):
        told = self.ask()
        self.assertIs(told.result, expected)
        self.assertEqual(told.messages, [])

    def assert_failure(self, reason="[^)]+"):
        told = self.ask()
        self.assertIs(told.result, False)
        self.assertEqual(len(told.messages), 1, told.messages)
        self.assertRegex(told.messages[0], rf"^utils:73 Fail to VUKOEvmgrStatusGet\(\) \({reason}\)$")
        self.assertLess(told.seconds, PATIENCE)

    def test_a_system_that_prepares_for_sleep_hibernates(self):
        self.have_logind(sleeping="true")
        self.assert_answer(True)

    def test_a_system_that_is_awake_does_not_hibernate(self):
        self.have_logind(sleeping="false")
        self.assert_answer(False)

    def test_falling_asleep_and_waking_up_are_seen(self):
        self.have_logind()
        for text, expected in (("true", True), ("false", False)):
            self.busctl("set-property", *LOGIN, "PreparingForSleep", "b", text)
            self.assert_answer(expected)

    def test_nothing_hibernates_without_logind(self):
        self.assert_answer(False)

    def test_nothing_hibernates_without_a_bus(self):
        for address in ("unix:path=/nonexistent/bus", "unix:path=/dev/null/bus"):
            with self.subTest(address=address):
                self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = address
                self.assert_answer(False)

    def test_nothing_hibernates_on_a_bus_that_was_left_behind(self):
        self.bus.kill()
        self.bus.wait()
        self.assert_answer(False)

    def test_a_logind_without_an_answer_is_a_failure(self):
        self.have_login(*LOGIN)
        self.assert_failure()

    def test_a_logind_that_answers_with_another_kind_is_a_failure(self):
        self.have_login(*LOGIN)
        self.busctl("call", *LOGIN[:2], "org.freedesktop.DBus.Mock", "AddProperty", "ssv", LOGIN[2],
                    "PreparingForSleep", "s", "true")
        self.assert_failure()

    def test_a_logind_that_hangs_is_a_failure_after_a_while(self):
        mock = self.have_logind(sleeping="true")
        mock.send_signal(signal.SIGSTOP)
        self.assert_failure("Connection timed out")

    def test_a_bus_that_hangs_is_a_failure_after_a_while(self):
        self.have_logind(sleeping="true")
        self.bus.send_signal(signal.SIGSTOP)
        self.assert_failure("Connection timed out")


if __name__ == "__main__":
    main(needs_root=False)
