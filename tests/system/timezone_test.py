"""The zone of the machine changes while the service runs."""

import json

import zones
from control import Control
from machine import Machine, poll
from store import SERVICE, SERVICE_ENVIRONMENT, MachineTest, folders, main

FOLDER = "/usr/vuko/etc/vukocron.d"
AHEAD = 60  # minutes


class TimeZone(MachineTest):
    def setUp(self):
        self.machine = self.enterContext(Machine(folders=folders(), systemd=False))
        self.machine.run("mkdir", "-p", FOLDER)
        self.control = Control(f"/proc/{self.machine.pid}/root/run/vukocrond.sock")

    def put_zone(self, offset):
        """Replaces /etc/localtime by a zone that is so many seconds ahead of UTC."""
        sign, rest = "-" if offset < 0 else "", abs(offset)
        self.machine.write("/root/zones", f"Zone Made {sign}{rest // 3600}:{rest // 60 % 60:02}:{rest % 60:02} - MADE\n")
        self.machine.run("zic", "-d", "/root/compiled", "/root/zones")
        self.machine.run("mv", "--no-target-directory", "/root/compiled/Made", "/etc/localtime")

    def define(self, name, crontab):
        self.machine.write(f"{FOLDER}/{name}.conf", json.dumps(
            {"name": name, "user": "root", "period": "crontab", "crontab": f"{crontab} * * *", "cmd": "/bin/true"}))

    def start(self, offset):
        self.put_zone(offset)
        service = self.machine.spawn("env", "--unset=TZ", SERVICE_ENVIRONMENT, SERVICE)
        self.addCleanup(service.wait)
        self.addCleanup(service.kill)
        poll(self.control.answers, "the service answers")
        return service

    def await_tick(self, begins):
        zones.wait_until(begins)
        poll(lambda: self.control.ask("status").get("starts", {}).get("started"), "a minute has begun")
        poll(lambda: all(job["state"] != "running" for job in self.control.jobs().values()), "no job is running")

    def live_through(self, minute, shift):
        """One minute begins, and while the next one is waited for local time becomes `shift` minutes more. @return what
        became of each job, as minutes after the first one."""
        return zones.in_time(lambda least: self.live(minute, shift, least))

    def live(self, minute, shift, least):
        self.machine.run("sh", "-c", "pkill -KILL -x vukocrond; rm -rf /usr/vuko/etc/vukocrond.* /run/vukocrond.*")
        begins = zones.soon(least)
        first = self.start(minute.number * zones.MINUTE - begins)
        zones.assert_ahead(begins)
        self.await_tick(begins)
        self.machine.run("pkill", "-x", "vukocrond")  # it goes on from there: what follows is not a minute away
        first.wait()
        begins = zones.soon(least)
        offset = minute.next().number * zones.MINUTE - begins
        second = self.start(offset)
        self.put_zone(offset + shift * zones.MINUTE)
        zones.assert_ahead(begins)
        self.await_tick(begins)
        self.assertIsNone(second.poll())
        return {name: [(entry["minute"] - minute.number, entry.get("reason", entry["outcome"]))
                       for entry in self.control.history(name)][::-1] for name in self.control.jobs()}

    @staticmethod
    def starts(told):
        return {name: [entry for entry in entries if entry[1] in ("started", "made-up")]
                for name, entries in told.items()}

    def test_a_zone_ahead_is_taken_at_the_next_minute_and_what_was_passed_over_is_made_up_for(self):
        minute = zones.Minute.at_hand(at=10)
        hour = minute.number // zones.MINUTE
        self.define("every-minute", "* *")
        self.define("between", f"30 {hour % 24}")
        self.define("new-minute", f"11 {(hour + 1) % 24}")
        self.define("later", f"12 {(hour + 1) % 24}")
        self.assertEqual(self.starts(self.live_through(minute, AHEAD)), {
            "every-minute": [(0, "started"), (AHEAD + 1, "started")], "between": [(20, "made-up")],
            "new-minute": [(AHEAD + 1, "started")], "later": []})

    def test_a_zone_behind_is_taken_at_the_next_minute_and_nothing_is_done_twice(self):
        minute = zones.Minute.at_hand(at=10)
        hour = minute.number // zones.MINUTE
        self.define("every-minute", "* *")
        self.define("fixed", f"11 {(hour - 1) % 24}")
        self.define("of-any-hour", "11 *")
        told = self.live_through(minute, -AHEAD)
        self.assertEqual(self.starts(told), {"every-minute": [(0, "started"), (1 - AHEAD, "started")], "fixed": [],
                                             "of-any-hour": [(1 - AHEAD, "started")]})
        self.assertEqual(told["fixed"], [(1 - AHEAD, "clock step")])


if __name__ == "__main__":
    main()
