"""The machines that the other tests stand on: apart from each other and from this machine, and gone without a trace."""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import unittest

from machine import Machine, MachineError, poll
from store import main

HERE = pathlib.Path(__file__).resolve().parent

# Tells the machine's name and pid, and holds it until it is killed.
HOLDER = """
import signal, sys
sys.path.insert(0, sys.argv[1])
from machine import Machine
with Machine() as machine:
    print(machine.name, machine.pid, flush=True)
    signal.pause()
"""


def processes_with(text):
    """The processes that have the text in their command lines."""
    found = []
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if text.encode() in (folder / "cmdline").read_bytes():
                found.append(folder.name)
        except OSError:
            pass  # it ended meanwhile
    return found


def is_alive(pid):
    try:
        return "\nState:\tZ" not in pathlib.Path(f"/proc/{pid}/status").read_text(encoding="utf-8")
    except FileNotFoundError:
        return False


def control_groups():
    """The names of the outermost control groups, also where their folder is not mounted."""
    script = 'mount -t cgroup2 cgroup2 "$0" && ls "$0"'
    with tempfile.TemporaryDirectory() as folder:
        return subprocess.run(["unshare", "--mount", "sh", "-c", script, folder], check=True, capture_output=True,
                              text=True).stdout.split()


def traces(name):
    """What there is of a machine, seen from outside."""
    found = [f"process {pid}" for pid in processes_with(name)]
    if os.path.exists(os.path.join(tempfile.gettempdir(), name)):
        found.append("folder")
    if name in control_groups():
        found.append("control group")
    if name in pathlib.Path("/proc/self/mountinfo").read_text(encoding="utf-8"):
        found.append("mount")
    return found


class Traces(unittest.TestCase):
    def assert_gone(self, name):
        poll(lambda: not traces(name), f"nothing is left of {name}: {traces(name)}", patience=20)

    def test_a_running_machine_is_seen_in_all_the_places_looked_at(self):
        with Machine() as machine:
            kinds = {trace.split()[0] for trace in traces(machine.name)}
        self.assertEqual(kinds, {"process", "folder", "control"})

    def test_nothing_is_left_after_the_block(self):
        with Machine() as machine:
            pass
        self.assertEqual([trace for trace in traces(machine.name) if not trace.startswith("process")], [])
        self.assert_gone(machine.name)

    def test_nothing_is_left_after_a_shutdown(self):
        with Machine() as machine:
            machine.poweroff()
            self.assertNotIn("folder", traces(machine.name))
        self.assert_gone(machine.name)

    def test_nothing_is_left_after_a_test_that_failed(self):
        with self.assertRaises(ZeroDivisionError):
            with Machine() as machine:
                self.addCleanup(machine.spawn("sleep", "infinity").wait)
                _ = 1 / 0
        self.assert_gone(machine.name)

    def test_nothing_is_left_after_a_test_that_was_killed(self):
        with subprocess.Popen([sys.executable, "-B", "-c", HOLDER, HERE], stdout=subprocess.PIPE, text=True) as holder:
            name, pid = holder.stdout.readline().split()
            self.assertTrue(is_alive(pid))
            holder.kill()
        self.assert_gone(name)

    def test_nothing_is_left_of_a_machine_that_could_not_be_built(self):
        machine = Machine(folders={"/share": ("/no/such/folder", False)})
        with self.assertRaisesRegex(MachineError, "/share"):
            machine.__enter__()
        self.assert_gone(machine.name)

    def test_the_machine_ends_with_its_supervisor(self):
        with Machine() as machine:
            pid = machine.pid
            (supervisor,) = [found for found in processes_with(machine.name) if found != str(pid)]
            os.kill(int(supervisor), signal.SIGKILL)
            poll(lambda: not is_alive(pid), "the machine has ended")
        self.remove_what_the_supervisor_left(machine.name)

    def remove_what_the_supervisor_left(self, name):
        base = pathlib.Path(tempfile.gettempdir(), name)
        for folder in (base / "tree", base / "groups", base):
            folder.rmdir()
        script = 'mount -t cgroup2 cgroup2 "$0" && find "$0/$1" -depth -type d -exec rmdir {} +'
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["unshare", "--mount", "sh", "-c", script, folder, name], check=True)
        self.assertEqual(traces(name), [])


class Apart(unittest.TestCase):
    def test_a_machine_runs_a_real_systemd_as_its_first_process(self):
        with Machine() as machine:
            self.assertEqual(machine.read("/proc/1/comm"), "systemd\n")
            self.assertEqual(machine.run("systemctl", "is-system-running").stdout, "running\n")

    def test_what_is_written_inside_is_not_seen_outside_or_in_another_machine(self):
        with Machine() as one, Machine() as other:
            for path in ("/etc/vukocrond-test-only", "/usr/vuko/etc/vukocron.d/x.conf", "/run/x", "/dev/shm/x"):
                one.write(path, one.name)
                self.assertEqual(one.read(path), one.name)
                self.assertEqual(other.read(path), "")
                self.assertFalse(os.path.exists(path) and one.name in pathlib.Path(path).read_text(encoding="utf-8"))

    def test_a_machine_has_processes_and_a_name_of_its_own(self):
        with Machine() as machine:
            self.assertEqual(machine.run("hostname").stdout.strip(), machine.name)
            self.assertEqual(machine.run("ls", "-d", f"/proc/{os.getppid()}", check=False).stdout, "")

    def test_a_shared_folder_is_written_to_only_where_that_was_asked_for(self):
        with tempfile.TemporaryDirectory(prefix="vukocrond-share-") as share:
            with Machine(folders={"/mine": (share, True), "/theirs": (share, False)}) as machine:
                machine.write("/mine/note", "from inside")
                with self.assertRaises(MachineError):
                    machine.write("/theirs/note", "")
            self.assertEqual(pathlib.Path(share, "note").read_text(encoding="utf-8"), "from inside")

    def test_a_command_that_fails_is_an_error_unless_it_may(self):
        with Machine(systemd=False) as machine:
            self.assertEqual(machine.run("false", check=False).returncode, 1)
            with self.assertRaises(MachineError):
                machine.run("false")


if __name__ == "__main__":
    main()
