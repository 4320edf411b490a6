"""The recipe of the container, line by line, on a machine without a service manager. There is no container engine here:
namespaces, the capabilities that an engine leaves and the recipe's own commands stand for it.
"""

import json
import os
import re
import subprocess
import unittest

from control import Control
from machine import poll
from package_files import FIRST, machine_for_packages, prepare
from store import MachineTest, main

RECIPE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../packaging/container/Containerfile")
FOLDER = "/usr/local/etc/vukocron.d"

# What container engines leave to the root of a container.
CAPABILITIES = ("audit_write", "chown", "dac_override", "fowner", "fsetid", "kill", "mknod", "net_bind_service", "net_raw",
                "setfcap", "setgid", "setpcap", "setuid", "sys_chroot")
CONTAIN = ("unshare", "--pid", "--fork", "--kill-child", "--mount-proc", "setpriv", "--inh-caps=-all",
           "--bounding-set=-all," + ",".join(f"+{name}" for name in CAPABILITIES))


def instructions():
    """The recipe's lines as (word, rest), with continued lines joined."""
    with open(RECIPE, encoding="utf-8") as file:
        text = re.sub(r"^#.*\n", "", file.read(), flags=re.M).replace("\\\n", " ")
    return [tuple(line.split(None, 1)) for line in text.splitlines() if line]


def said(word):
    (rest,) = [rest for name, rest in instructions() if name == word]
    return rest


class Words(unittest.TestCase):
    def test_there_is_none_that_is_not_carried_out_or_looked_at(self):
        self.assertEqual({word for word, _ in instructions()},
                         {"FROM", "COPY", "RUN", "VOLUME", "HEALTHCHECK", "STOPSIGNAL", "ENTRYPOINT", "CMD"})


class Recipe(MachineTest):
    def setUp(self):
        self.machine = self.enterContext(machine_for_packages(systemd=False))
        prepare(self.machine)
        # The image has no part of systemd.
        self.machine.run("rm", "/usr/bin/systemd-tmpfiles")
        self.machine.run("mkdir", "-p", "/context/build")
        self.machine.run("ln", "-s", FIRST, "/context/build/package")
        self.build()
        self.control = Control(f"/proc/{self.machine.pid}/root/run/vukocrond.sock")

    def build(self):
        for word, rest in instructions():
            if word == "COPY":
                *_, target = rest.split()
                self.machine.run("sh", "-c", f"cd /context && mkdir -p {target} && cp {rest}")
            elif word == "RUN":
                self.machine.run("sh", "-c", rest, patience=90)

    def start(self):
        """Starts the container's first process and returns its number as the machine knows it."""
        command = [*json.loads(said("ENTRYPOINT")), *json.loads(said("CMD"))]
        container = self.machine.spawn(*CONTAIN, *command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.addCleanup(container.stderr.close)
        self.addCleanup(container.wait)
        self.addCleanup(container.kill)
        poll(self.is_healthy, "the container is healthy")
        return container, self.machine.run("pidof", "vukocrond").stdout.strip()

    def is_healthy(self):
        check = json.loads(said("HEALTHCHECK").partition(" CMD ")[2])
        return self.machine.run(*check, check=False).returncode == 0

    def stop(self, container, first):
        self.machine.run("kill", f"-{said('STOPSIGNAL').removeprefix('SIG')}", first)
        self.assertEqual(container.wait(30), 0)
        return container.stderr.read()

    def define(self, name, script, crontab="0 0 31 2 *", folder=FOLDER, **members):
        self.machine.write(f"{folder}/{name}.conf", json.dumps(
            {"name": name, "user": "root", "period": "crontab", "crontab": crontab,
             "cmd_list": ["/bin/sh", "-c", script], **members}))

    def test_an_installation_without_a_service_manager_makes_the_folders_and_starts_nothing(self):
        for path, mode in {"/usr/vuko/etc/vukocron.d": "755", FOLDER: "755", "/var/log/vukocrond": "750"}.items():
            self.assertEqual(self.machine.run("stat", "--format=%a %U %G", path).stdout, f"{mode} root root\n")
        self.assertEqual(self.machine.run("pidof", "vukocrond", check=False).stdout, "")
        self.assertFalse(self.is_healthy())
        self.machine.run("dpkg", "--purge", "vukocrond")
        self.assertNotEqual(self.machine.run("ls", "/usr/vuko", check=False).returncode, 0)

    def test_it_runs_jobs_of_accounts_as_the_first_process_and_ends_them_at_its_end(self):
        self.define("account", "id -un >/tmp/account", folder="/usr/local/etc/vukocron_nonroot.d/photos", user="package",
                    package_username="nobody")
        self.define("long", "trap 'echo term >/root/log; exit' TERM; echo began >/root/log; while :; do sleep 0.05; done")
        container, first = self.start()
        self.assertRegex(self.machine.read(f"/proc/{first}/status"), r"\nNSpid:\t\d+\t(\d+\t)*1\n")
        self.assertEqual(self.control.ask("run", job="account", wait=True)["end"]["code"], 0)
        self.assertEqual(self.machine.read("/tmp/account"), "nobody\n")
        self.control.ask("run", job="long")
        poll(lambda: self.machine.read("/root/log") == "began\n", "the job has begun")
        self.assertIn("stopping on SIGTERM", self.stop(container, first))
        self.assertEqual(self.machine.read("/root/log"), "term\n")

    def test_a_new_container_has_the_values_of_the_volume(self):
        for number in range(4):
            self.define(f"random{number}", "true", "~ ~ ~ ~ ~")
        container, first = self.start()
        schedules = self.control.schedules()
        self.assertEqual(self.control.ask("run", job="random0", wait=True)["end"]["code"], 0)
        history = self.control.history("random0")
        self.stop(container, first)
        (volume,) = json.loads(said("VOLUME"))
        self.assertEqual(volume, "/usr/vuko/etc")
        self.machine.run("sh", "-c", "rm -r /run/vukocrond.* /var/log/vukocrond* /tmp/vukocrond*")
        self.start()
        self.assertEqual(self.control.schedules(), schedules)
        self.assertEqual(self.control.history("random0"), history)


if __name__ == "__main__":
    main()
