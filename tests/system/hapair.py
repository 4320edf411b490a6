"""Two machines with one link between them, set up as docs/HA.md says, with the files that it shows."""

import concurrent.futures
import os
import re
import subprocess
import tempfile

from control import Control, Refused
from installed import local_folders, unit_of
from machine import Machine, poll, text_of

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FILES = os.path.join(SOURCE, "packaging/ha")
FOLDER = "/usr/vuko/etc/vukocron.d"
ROLE_FILE = "/run/vukocrond.role"
# What differs on the other machine, as the configuration says.
OTHER = {"priority 100": "priority 90", "unicast_src_ip 192.0.2.11": "unicast_src_ip 192.0.2.12",
         "        192.0.2.12": "        192.0.2.11"}


def configuration(changes):
    text = text_of(f"{FILES}/keepalived.conf")
    for old, new in changes.items():
        if len(re.findall(rf"^ *{old}\b", text, re.M)) != 1:
            raise AssertionError(f"the configuration has no single {old!r}")
        text = re.sub(rf"^( *){old}\b", lambda found, old=old, new=new: found[0].replace(old, new), text, flags=re.M)
    return text


class Side:
    """One of the two machines."""

    def __init__(self, name, address, machine):
        self.name, self.address, self.machine = name, address, machine
        self.control = Control(f"/proc/{machine.pid}/root/run/vukocrond.sock")

    def run(self, *command, **how):
        return self.machine.run(*command, **how)

    def role(self):
        return self.control.ask("role")["role"]

    def role_file(self):
        """What the file says, and since when."""
        path = f"/proc/{self.machine.pid}/root{ROLE_FILE}"
        with open(path, encoding="utf-8") as file:
            return file.read(), os.fstat(file.fileno()).st_mtime

    def link(self, state):
        self.run("ip", "link", "set", "eth0", state)
        if state == "up":  # an address stays, but for IPv6
            poll(lambda: "LOWER_UP" in self.run("ip", "link", "show", "eth0").stdout, "the link is up")

    def has_worked_up_to(self, minute):
        return self.control.ask("status")["workedUpTo"] >= minute.number

    def is_quiet(self):
        return all(job["state"] != "running" for job in self.control.jobs().values())

    def tells_of_the_role(self):
        """How often the service has told that its role has changed."""
        return sum("daemon:12" in entry["MESSAGE"] for entry in self.machine.journal("--identifier=vukocrond"))

    def may_run(self, job):
        try:
            self.control.ask("run", job=job, wait=True)
            return True
        except Refused as refused:
            if "passive" not in str(refused):
                raise
            return False

    def keepalived_says(self):
        return [entry["MESSAGE"] for entry in self.machine.journal("--unit=keepalived")]

    def await_keepalived(self, state):
        """Until the last state that it told of is this one."""
        def last():
            states = re.findall(r"Entering (\w+) STATE", "\n".join(self.keepalived_says()))
            return states[-1:] == [state]
        poll(last, f"keepalived is in the state {state}", pause=0.1)

    def keepalived_is_ready(self):
        return self.run("systemctl", "is-active", "keepalived", check=False).stdout == "active\n"

    def kill_keepalived(self):
        """All of its processes at once, so that it says nothing any more."""
        self.run("systemctl", "kill", "--signal=KILL", "keepalived")

    def start_service(self, zone=None):
        if zone:
            self.machine.write("/etc/systemd/system/vukocrond.service.d/zone.conf",
                               f"[Service]\nEnvironment=TZ={zone}\n")
            self.run("systemctl", "daemon-reload")
        self.run("systemctl", "restart", "vukocrond")


class Pair:
    """Both machines, from `with Pair() as pair:` to the end of the block. Only the services run, not keepalived."""

    def __init__(self):
        self._folders = []
        self._machines = []
        self.last_words = ""

    def __enter__(self):
        stage, self.share, drop_ins = (self._folder() for _ in range(3))
        folders = {**local_folders(stage), "/share": (self.share, True), "/etc/tmpfiles.d": (drop_ins, False)}
        subprocess.run(["install", "--mode=755", f"{FILES}/vukocrond-role", f"{stage}/usr/local/sbin/"], check=True)
        with open(os.path.join(drop_ins, "vukocrond-role.conf"), "w", encoding="utf-8") as file:
            file.write(text_of(f"{FILES}/vukocrond-role.tmpfiles"))
        units = {"vukocrond.service": unit_of(stage)}
        self._machines = [*(Machine(folders=folders, units=units) for _ in range(2)), Machine(systemd=False)]
        try:
            with concurrent.futures.ThreadPoolExecutor(3) as pool:
                list(pool.map(Machine.__enter__, self._machines))
            self.left, self.right = (Side(name, address, machine) for name, address, machine in
                                     zip(("left", "right"), ("192.0.2.11", "192.0.2.12"), self._machines))
            self._wire()
            for side, changes in ((self.left, {}), (self.right, OTHER)):
                self._configure(side, changes)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.last_words = "\n".join(machine.diagnosis() for machine in self._machines)
        for machine in self._machines:
            machine.__exit__()
        for folder in self._folders:
            folder.cleanup()

    @property
    def sides(self):
        return self.left, self.right

    def start_keepalived(self):
        for side in self.sides:
            side.run("systemctl", "start", "keepalived")

    def roles(self):
        return tuple(side.role() for side in self.sides)

    def await_roles(self, *roles, patience=30):
        poll(lambda: self.roles() == roles, f"the roles are {roles}", patience=patience)

    def define(self, name, crontab, script):
        definition = (f'{{"name": "{name}", "user": "root", "period": "crontab", "crontab": "{crontab}", '
                      f'"cmd_list": ["/bin/sh", "-c", "{script}"]}}')
        for side in self.sides:
            side.machine.write(f"{FOLDER}/{name}.conf", definition.replace("SIDE", side.name))

    def shared(self, name):
        return text_of(os.path.join(self.share, name))

    def await_tick(self, minute):
        for side in self.sides:
            poll(lambda side=side: side.has_worked_up_to(minute) and side.is_quiet(), "the minute has had its tick")

    def _folder(self):
        self._folders.append(tempfile.TemporaryDirectory(prefix="vukocrond-ha-"))
        return self._folders[-1].name

    def _wire(self):
        """Through a switch: of two machines on one cable, each loses its link when the other does."""
        switch = self._machines[-1]
        switch.run("ip", "link", "add", "switch", "type", "bridge")
        switch.run("ip", "link", "set", "switch", "up")
        for side in self.sides:
            switch.run("ip", "link", "add", side.name, "type", "veth", "peer", "name", "eth0")
            subprocess.run(["nsenter", f"--target={switch.pid}", "--net", "ip", "link", "set", "eth0", "netns",
                            str(side.machine.pid)], check=True)
            switch.run("ip", "link", "set", side.name, "master", "switch", "up")
            side.run("ip", "address", "add", f"{side.address}/24", "dev", "eth0")
            side.run("ip", "link", "set", "eth0", "up")

    @staticmethod
    def _configure(side, changes):
        side.machine.write("/etc/keepalived/keepalived.conf", configuration(changes))
        side.machine.write("/etc/systemd/system/keepalived.service.d/vukocrond.conf", text_of(f"{FILES}/keepalived.service.conf"))
        side.run("systemctl", "daemon-reload")
