"""The stages of boot and shutdown, and a change of the stored jobs in each: no request that could hold it up."""

import os
import tempfile

from machine import Machine
from store import INSIDE_DIR, STORECTL, MachineTest, Told, call, folders, main

SERVICE = """[Service]
ExecStart=/bin/sleep infinity
ExecReload=/bin/sh -c 'echo reloaded >> /share/reloads'
"""

DURING_BOOT = """[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/sh /share/probe boot
"""

# Stops while the service still runs.
EARLY = """[Unit]
After=vukocrond.service dbus.socket dbus.service
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/true
ExecStop=/bin/sh /share/probe early
"""

# Stops when all else has, the system bus included.
LATE = f"""[Unit]
DefaultDependencies=no
RequiresMountsFor=/share {INSIDE_DIR}/bin {INSIDE_DIR}/lib
Conflicts=shutdown.target
Before=shutdown.target dbus.socket dbus.service vukocrond.service
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/true
ExecStop=/bin/sh /share/probe late
"""

PROBE = f"""
stage=$1
try() {{
    name=$1
    shift
    "$@" > /share/$stage.$name.out 2> /share/$stage.$name.err
    echo $? > /share/$stage.$name.code
}}
try state systemctl is-system-running
try bus busctl --timeout=2 status
try service systemctl is-active vukocrond.service
try step {STORECTL} step
try save {STORECTL} save pkg $stage
try saved cat /usr/local/etc/vukocron.d/$stage.conf
try remove {STORECTL} remove pkg $stage
try removed test ! -e /usr/local/etc/vukocron.d/$stage.conf
try hibernating {STORECTL} hibernating
try reload {STORECTL} reload vukocrond
try waiting timeout 1 systemctl reload vukocrond.service
"""

SKIPPED = ["configmanager:47 system is shutting down, skip reload"]


class Shutdown(MachineTest):
    @classmethod
    def setUpClass(cls):
        cls.share = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="vukocrond-share-"))
        with open(f"{cls.share}/probe", "w", encoding="utf-8") as file:
            file.write(PROBE)
        units = {"vukocrond.service": SERVICE, "boot.service": DURING_BOOT, "early.service": EARLY,
                 "late.service": LATE}
        cls.machine = cls.enterClassContext(Machine(folders=folders(share=cls.share), units=units))
        cls.step_while_running = call(cls.machine, "step")
        cls.forget_reloads()
        cls.machine.poweroff()

    @classmethod
    def forget_reloads(cls):
        cls.machine.settle()
        if os.path.exists(f"{cls.share}/reloads"):
            os.unlink(f"{cls.share}/reloads")

    def outcome(self, stage, name):
        texts = []
        for kind in ("code", "out", "err"):
            with open(f"{self.share}/{stage}.{name}.{kind}", encoding="utf-8") as file:
                texts.append(file.read())
        return int(texts[0]), texts[1].strip(), texts[2]

    def told(self, stage, name):
        return Told(*self.outcome(stage, name))

    def assert_true_at_once(self, told):
        self.assertIs(told.result, True)
        self.assertLess(told.seconds, 2)

    def assert_stored_without_reload(self, stage):
        for name in ("save", "remove"):
            told = self.told(stage, name)
            self.assert_true_at_once(told)
            self.assertEqual(told.messages, SKIPPED)
        self.assertIn(f'"{stage}"', self.outcome(stage, "saved")[1])
        self.assertEqual(self.outcome(stage, "removed")[0], 0)
        self.assertFalse(os.path.exists(f"{self.share}/reloads"))

    def test_the_step_is_1_while_the_system_boots(self):
        self.assertEqual(self.outcome("boot", "state")[1], "starting")
        self.assertEqual(self.told("boot", "step").result, 1)

    def test_the_step_is_3_while_the_system_runs(self):
        self.assertEqual(self.step_while_running.result, 3)

    def test_the_step_is_5_as_soon_as_the_system_shuts_down(self):
        self.assertEqual(self.outcome("early", "state")[1], "stopping")
        self.assertEqual(self.told("early", "step").result, 5)

    def test_the_step_is_5_when_the_system_bus_is_gone(self):
        self.assertNotEqual(self.outcome("late", "bus")[0], 0)
        self.assertEqual(self.told("late", "step").result, 5)
        self.assertLess(self.told("late", "step").seconds, 2)

    def test_a_save_during_the_shutdown_is_written_and_asks_for_nothing(self):
        self.assertEqual(self.outcome("early", "service")[1], "active")
        self.assert_stored_without_reload("early")

    def test_a_save_without_the_system_bus_is_written_and_asks_for_nothing(self):
        self.assert_stored_without_reload("late")

    def test_whoever_asks_for_a_reload_during_the_shutdown_is_refused_at_once(self):
        for stage in ("early", "late"):
            told = self.told(stage, "reload")
            self.assertIs(told.result, False)
            self.assertLess(told.seconds, 2)

    def test_a_reload_that_waits_would_hold_the_shutdown_up(self):
        """Shows that the save that asks for nothing stands where asking and waiting hurts."""
        timed_out = 124
        self.assertEqual(self.outcome("late", "waiting")[0], timed_out)

    def test_nothing_hibernates_with_the_system_bus_or_without(self):
        self.assertEqual(self.outcome("early", "bus")[0], 0)
        self.assertNotEqual(self.outcome("late", "bus")[0], 0)
        for stage in ("early", "late"):
            told = self.told(stage, "hibernating")
            self.assertIs(told.result, False)
            self.assertEqual(told.messages, [])
            self.assertLess(told.seconds, 2)


if __name__ == "__main__":
    main()
