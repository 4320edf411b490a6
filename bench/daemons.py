"""The two daemons that are measured, behind one face: given jobs, started at a chosen distance from a minute, asked
what they cost, and ended."""

import json
import os
import signal
import socket
import subprocess
import time

import private_machine

LOAD_PATIENCE = 120


def zone_with_a_minute_in(seconds):
    """A zone whose offset has seconds, so chosen that the next local minute begins in so many seconds from now.

    Returns its text and the instant of that minute."""
    instant = int(time.time()) + seconds
    return f"AAA-0:00:{-instant % 60}", instant


class Daemon:
    """One that runs. Use it as a context."""

    name = ""

    def __init__(self, command, zone):
        self.zone = zone
        environment = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "TZ": zone, **self._environment()}
        self.began = time.monotonic()
        self.process = subprocess.Popen(command, env=environment, cwd="/", stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def _environment(self):
        return {}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(30)
        private_machine.reap_orphans()

    def cpu_ns(self):
        """What the daemon's own process has used. All of its work is done by one thread."""
        with open(f"/proc/{self.process.pid}/schedstat", encoding="utf-8") as file:
            return int(file.read().split()[0])

    def resident_kib(self):
        with open(f"/proc/{self.process.pid}/status", encoding="utf-8") as file:
            for line in file:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
        raise RuntimeError("no VmRSS")

    def await_loaded(self):
        """Returns the seconds from its start until it is ready for its first minute."""
        raise NotImplementedError


class Vukocrond(Daemon):
    name = "vukocrond"

    def __init__(self, bin_folder, root, zone):
        path = os.path.join(root, "notify")
        self._notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._notify.bind(path)
        self._notify_path = path
        super().__init__([os.path.join(bin_folder, "vukocrond"), "--root", root], zone)

    def _environment(self):
        return {"NOTIFY_SOCKET": self._notify_path}

    def __exit__(self, *arguments):
        super().__exit__(*arguments)
        self._notify.close()

    def await_loaded(self):
        self._notify.settimeout(LOAD_PATIENCE)
        while b"READY=1" not in self._notify.recv(8192):
            pass
        return time.monotonic() - self.began


class Cron(Daemon):
    name = "Debian's cron"

    def __init__(self, zone):
        super().__init__(["/usr/sbin/cron", "-f"], zone)

    def await_loaded(self):
        """It tells nobody: it is ready when it sleeps, and has not used the processor for a while since."""
        last, quiet_since = -1, time.monotonic()
        while time.monotonic() - self.began < LOAD_PATIENCE:
            used = self.cpu_ns()
            now = time.monotonic()
            if used != last:
                last, quiet_since = used, now
            elif self._sleeps() and now - quiet_since > 0.3:
                return quiet_since - self.began
            time.sleep(0.001)
        raise RuntimeError("cron does not come to rest")

    def _sleeps(self):
        with open(f"/proc/{self.process.pid}/stat", encoding="utf-8") as file:
            return file.read().rsplit(") ", 1)[1].startswith("S")


class VukocrondKind:
    """Makes a root folder for each life of the service, with what lies in memory on a real machine in memory. That is
    so for /tmp on an appliance, and may be so or not elsewhere."""

    name = Vukocrond.name

    def __init__(self, bin_folder, work):
        self._bin = bin_folder
        self._work = work
        self._count = 0
        self._root = None
        self._in_memory = []
        self.tmp_on_disk = False

    def define(self, jobs, per_file=1):
        self._count += 1
        self._root = os.path.join(self._work, f"root{self._count}")
        folder = os.path.join(self._root, "usr/vuko/share/vukocron.d")
        os.makedirs(folder)
        self._in_memory = ["var/run"] if self.tmp_on_disk else ["var/run", "tmp"]
        for name in self._in_memory:
            os.makedirs(os.path.join(self._root, name))
            private_machine.mount_memory(os.path.join(self._root, name))
        for first in range(0, len(jobs), per_file):
            definitions = [{"name": f"job{first + i}", "user": "root", "period": "crontab", "crontab": crontab,
                            "cmd": command} for i, (crontab, command) in enumerate(jobs[first:first + per_file])]
            path = os.path.join(folder, f"file{first // per_file}.conf")
            with open(path, "w", encoding="utf-8") as file:
                json.dump(definitions if per_file > 1 else definitions[0], file)
            os.chmod(path, 0o644)

    def start(self, zone):
        return Vukocrond(self._bin, self._root, zone)

    def clean(self):
        """The files stay for now: some file systems are slow to give out what was freed a moment ago."""
        for name in self._in_memory:
            subprocess.run(["umount", os.path.join(self._root, name)], check=True)


class CronKind:
    """Files in /etc/cron.d, each with so many lines: a file of more than 10 000 is not read at all."""

    name = Cron.name
    _FOLDER = "/etc/cron.d"

    def define(self, jobs, per_file=1):
        for first in range(0, len(jobs), per_file):
            path = f"{self._FOLDER}/file{first // per_file}"
            with open(path, "w", encoding="utf-8") as file:
                file.write('MAILTO=""\n')
                file.writelines(f"{crontab} root {command}\n" for crontab, command in jobs[first:first + per_file])
            os.chmod(path, 0o600)

    @staticmethod
    def start(zone):
        return Cron(zone)

    def clean(self):
        for entry in os.scandir(self._FOLDER):
            os.unlink(entry.path)
