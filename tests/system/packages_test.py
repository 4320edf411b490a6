"""The Debian packages on a machine with a real systemd: installed, upgraded, removed and purged."""

import json
import os
import pathlib
import re
import shutil

from control import Control
from machine import poll
from package_files import FIRST, SECOND, machine_for_packages, prepare
from store import MachineTest, main

PACKAGES = {"vukocrond", "libvukocrond0", "libvukocrond-dev", "libvukoplatform0"}
SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
CONSUMER = os.path.join(SOURCE, "tests/install/consumer")
DOCUMENT = os.path.join(SOURCE, "docs/PACKAGES.md")
FOLDER = "/usr/local/etc/vukocron.d"
NEVER = "0 0 31 2 *"
LONG_JOB = "echo $$ >/root/pid; echo began >>/root/log; while [ ! -e /root/go ]; do sleep 0.05; done; " \
           "echo ended >>/root/log; exit 3"
ROTATION = "/etc/logrotate.d/vukocrond"


class Packages(MachineTest):
    def setUp(self):
        self.machine = self.enterContext(machine_for_packages())
        prepare(self.machine)
        self.control = Control(f"/proc/{self.machine.pid}/root/run/vukocrond.sock")
        self.before = self.files()

    def files(self):
        """All that is named after the product, outside of what the service manager keeps for the boot. A disk that has not
        been looked at for long takes its time."""
        return set(self.machine.run("find", "/etc", "/run", "/tmp", "/usr", "/var", "-xdev", "-path", "/run/systemd", "-prune",
                                    "-o", "-path", "*vuko*", "-print", patience=200).stdout.splitlines())

    def install(self, folder):
        self.machine.run("sh", "-c", f"dpkg --install {folder}/*.deb")

    def install_as_it_is_told(self):
        """By the lines of docs/PACKAGES.md, but for the one that makes the packages; and what programs are built with."""
        with open(DOCUMENT, encoding="utf-8") as file:
            lines = re.search(r"^## Installing.*?```sh\nmake package\n(.*?)```", file.read(), re.M | re.S)[1]
        self.machine.run("sh", "-ec", f"mkdir -p /root/build; ln -s {FIRST} /root/build/package; cd /root\n{lines}")
        self.machine.run("sh", "-c", f"dpkg --install {FIRST}/*-dev_*.deb")

    def purge(self):
        self.machine.run("dpkg", "--purge", *PACKAGES)

    def version(self):
        return self.machine.run("dpkg-query", "--show", "--showformat=${Version}", "vukocrond").stdout

    def property(self, name):
        return self.machine.run("systemctl", "show", f"--property={name}", "--value", "vukocrond").stdout.strip()

    def define(self, name, script="true", crontab=NEVER, folder=FOLDER, **members):
        self.machine.write(f"{folder}/{name}.conf", json.dumps(
            {"name": name, "user": "root", "period": "crontab", "crontab": crontab,
             "cmd_list": ["/bin/sh", "-c", script], **members}))

    def define_random_jobs(self):
        """Their values, once each of them has run."""
        for number in range(4):
            self.define(f"random{number}", crontab="~ ~ ~ ~ ~")
        poll(lambda: len(self.control.jobs()) == 4, "the definitions are read")
        for name in self.control.jobs():
            self.assertEqual(self.control.ask("run", job=name, wait=True)["end"]["code"], 0)
        return self.remembered()

    def remembered(self):
        """What the service has drawn and written down."""
        jobs = [f"random{number}" for number in range(4)]
        return {"schedules": {name: self.control.schedules()[name] for name in jobs},
                "history": {name: self.control.history(name) for name in jobs},
                "template": self.control.ask("template")}

    def start_time(self, pid):
        """Tells a process from another one of the same number; nothing when there is none."""
        return self.machine.read(f"/proc/{pid}/stat").rpartition(")")[2].split()[19:20]

    # -- installed

    def test_what_is_installed_is_enabled_and_runs(self):
        self.install_as_it_is_told()
        self.assertEqual(self.machine.run("systemctl", "is-enabled", "vukocrond").stdout, "enabled\n")
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertIn("Jobs: 0\n", self.machine.run("vukocronctl", "status").stdout)
        self.assertEqual(self.machine.run("vukocrond", "--version").stdout, f"vukocrond {self.version()}\n")
        self.assertEqual(self.machine.run("sh", "-c", "readlink /proc/$(pidof vukocrond)/exe").stdout,
                         "/usr/sbin/vukocrond\n")
        self.assert_beside_the_programs()
        self.assert_folders()
        self.assert_programs_can_be_built()
        self.purge()
        self.assertEqual(self.files() ^ self.before, set())

    def assert_beside_the_programs(self):
        for page in ("1 vukocronctl", "5 vukocron.conf", "5 vukocrond.conf", "8 vukocrond"):
            self.assertRegex(self.machine.run("man", "--where", *page.split()).stdout, r"^/usr/share/man/man\d/")
        self.assert_shells_complete()
        self.assert_documents_lead_somewhere()
        page = self.machine.run("zcat", "/usr/share/man/man8/vukocrond.8.gz").stdout
        self.assertIn("\nExecStart=/usr/sbin/vukocrond --", page)
        self.assertIn("Handling 2 logs", self.machine.run("logrotate", "--debug", ROTATION).stderr)
        self.assertEqual(self.machine.run("dpkg-query", "--show", "--showformat=${Conffiles}", "vukocrond").stdout.split()[::2],
                         [ROTATION])
        linked = self.machine.run("ldd", "/usr/sbin/vukocrond").stdout
        self.assertRegex(linked, r"libvukocrond\.so\.0 => /(usr/)?lib/[\w-]+/libvukocrond\.so\.0")

    def assert_shells_complete(self):
        loaded = self.machine.run("bash", "-c", ". /usr/share/bash-completion/bash_completion; "
                                  "_completion_loader vukocronctl; complete -p vukocronctl").stdout
        self.assertEqual(loaded, "complete -F _vukocronctl vukocronctl\n")
        known = self.machine.run("zsh", "-fc", "autoload -U compinit; compinit -D; echo $_comps[vukocronctl]").stdout
        self.assertEqual(known, "_vukocronctl\n")

    def assert_documents_lead_somewhere(self):
        folder = pathlib.Path(f"/proc/{self.machine.pid}/root/usr/share/doc/vukocrond")
        pages = list(folder.glob("*.md"))
        self.assertGreater(len(pages), 2)
        for page in pages:
            text = page.read_text(encoding="utf-8")
            links = re.findall(r"\]\(([^)#:]+)\)", text) + re.findall(r"\bpictures/[\w.]+", text)
            self.assertEqual([link for link in links if not (folder / link).exists()], [], page.name)

    def assert_folders(self):
        for path, mode in {"/usr/vuko/etc/vukocron.d": "755", FOLDER: "755", "/usr/local/etc/vukocron_nonroot.d": "755",
                           "/var/log/vukocrond": "750", "/tmp/vukocrond": "711"}.items():
            self.assertEqual(self.machine.run("stat", "--format=%a %U %G", path).stdout, f"{mode} root root\n", path)

    def assert_programs_can_be_built(self):
        """With the CMake package; and pkg-config knows the libraries."""
        shutil.copytree(CONSUMER, f"/proc/{self.machine.pid}/root/root/consumer")  # it has a /tmp of its own
        self.machine.run("cmake", "-S", "/root/consumer", "-B", "/root/build")
        self.machine.run("cmake", "--build", "/root/build", "--target", "platform_consumer", patience=120)
        self.assertEqual(self.machine.run("/root/build/platform_consumer").stdout, "2 pieces, a folder\n")
        self.assertIn("-lvukocrond", self.machine.run("pkg-config", "--libs", "vukocrond").stdout)

    # -- upgraded

    def test_an_upgrade_disturbs_no_job_and_keeps_values_and_settings(self):
        self.install(FIRST)
        remembered = self.define_random_jobs()
        self.define("long", LONG_JOB)
        poll(lambda: "long" in self.control.jobs(), "the definition is read")
        self.control.ask("run", job="long")
        job = poll(lambda: self.machine.read("/root/pid").strip(), "the job runs")
        began, service = self.start_time(job), self.property("MainPID")
        self.machine.run("sh", "-c", f"echo '# ours' >>{ROTATION}")

        self.install(SECOND)

        self.assertRegex(self.version(), r"\+next$")
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertNotEqual(self.property("MainPID"), service)
        self.assertEqual(self.remembered(), remembered)
        self.assertTrue(self.machine.read(ROTATION).endswith("# ours\n"))
        self.assertEqual(self.start_time(job), began)
        self.assertEqual(self.control.jobs()["long"]["state"], "running")
        self.machine.run("touch", "/root/go")
        poll(lambda: [entry["end"] and entry["end"]["code"] for entry in self.control.history("long")] == [3],
             "the job's end is recorded")
        self.assertEqual(self.machine.read("/root/log"), "began\nended\n")

    def test_an_upgrade_does_not_start_a_service_that_was_disabled(self):
        self.install(FIRST)
        self.machine.run("systemctl", "disable", "--now", "vukocrond")
        self.install(SECOND)
        self.assertEqual(self.machine.run("systemctl", "is-enabled", "vukocrond", check=False).stdout, "disabled\n")
        self.assertEqual(self.property("ActiveState"), "inactive")

    # -- removed and purged

    def test_a_removal_keeps_the_state_and_a_purge_the_definitions_alone(self):
        self.install(FIRST)
        remembered = self.define_random_jobs()
        self.define("own", folder="/usr/vuko/etc/vukocron.d")
        self.machine.write("/usr/local/etc/vukocron_nonroot.d/photos/index.conf", "{}")
        self.machine.write("/var/log/vukocrond/builtin_job.log", "what a job has said\n")
        self.machine.run("logrotate", "--force", ROTATION)
        self.control.ask("role", set="active")
        # Of writers that were killed.
        for folder in ("/usr/vuko/etc", "/usr/vuko/etc/vukocron.d", FOLDER, "/run"):
            self.machine.write(f"{folder}/.vuko-1234567890.tmp", "{")
        self.machine.write(f"{FOLDER}/.vukocronctl-new-first.conf", "{")

        self.machine.run("dpkg", "--remove", "vukocrond")
        self.assertNotEqual(self.property("ActiveState"), "active")
        self.assertEqual(self.machine.run("pidof", "vukocrond", check=False).stdout, "")
        self.assertEqual(self.machine.run("ls", ROTATION, "/usr/vuko/etc/vukocrond.config").returncode, 0)

        self.install(FIRST)
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertEqual(self.remembered(), remembered)

        self.purge()
        definitions = {f"{FOLDER}/random{number}.conf" for number in range(4)} | {
            "/usr/vuko/etc/vukocron.d/own.conf", "/run/vukocrond.role", "/usr/local/etc/vukocron_nonroot.d/photos/index.conf"}
        folders = {FOLDER, "/usr/vuko", "/usr/vuko/etc", "/usr/vuko/etc/vukocron.d", "/usr/local/etc/vukocron_nonroot.d",
                   "/usr/local/etc/vukocron_nonroot.d/photos"}
        self.assertEqual(self.files() ^ self.before, definitions | folders)


if __name__ == "__main__":
    main()
