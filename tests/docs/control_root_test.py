#!/usr/bin/env -S python3 -B
"""Asks a service what docs/CONTROL.md shows, and holds the replies against what it shows there.

Usage: control_root_test.py SOURCE_FOLDER PROGRAM
"""

import json
import os
import pathlib
import pwd
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE, PROGRAM = map(pathlib.Path, sys.argv[1:])
PATIENCE = 30
NOBODY = "nobody"
DEFINITIONS = {
    "usr/vuko/share/vukocron.d/backup.conf":
        {"name": "backup", "user": "root", "period": "daily", "cmd_list": ["/bin/true", "--quiet"],
         "assure_execute": 48, "assure_execute_action": "run", "timeout": 3600},
    "usr/vuko/share/vukocron.d/report.conf":
        {"name": "report", "user": "root", "period": "crontab", "crontab": "0 25 * * *", "cmd": "/bin/true"},
    "usr/local/etc/vukocron_nonroot.d/photos/index.conf":
        {"name": "index", "user": "package", "package_username": NOBODY, "period": "crontab",
         "crontab": "30 2 * * *", "cmd_list": ["/bin/sleep", "1"]},
}
# Members that are there, or hold others, by what has happened so far.
VARYING = {"environment", "jobs", "starts", "skips", "last", "running"}


def examples():
    """The requests of the document with the replies that it shows, and whether nobody asks."""
    text = (SOURCE / "docs/CONTROL.md").read_text(encoding="utf-8").partition("## Verbs")[2]
    for mark, request, reply in re.findall(r"(<!-- as nobody -->\n)?```json\n(.*)\n(.*)\n```", text):
        yield bool(mark), request, json.loads(reply)


def shape(value, name=None):
    """What a reply looks like, without what differs from one time to the next."""
    if isinstance(value, dict):
        return {key: shape(one, key) for key, one in value.items() if key not in VARYING}
    if isinstance(value, list):
        return [shape(one) for one in value[:1]]
    if name in ("code", "message") and isinstance(value, str):
        return value
    return "nothing or a number" if value is None or isinstance(value, int) else type(value).__name__


@unittest.skipUnless(os.geteuid() == 0, "only root may ask for everything, and take on an account")
class ControlDocument(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="vuko-docs-")))
        self.root.chmod(0o755)
        for name, definition in DEFINITIONS.items():
            path = self.root / name
            path.parent.mkdir(parents=True, exist_ok=True, mode=0o755)
            path.write_text(json.dumps(definition), encoding="utf-8")
            path.chmod(0o644)
        os.chown(self.root / "usr/local/etc/vukocron_nonroot.d/photos", pwd.getpwnam(NOBODY).pw_uid, -1)
        service = subprocess.Popen([PROGRAM, "--root", self.root], stderr=subprocess.DEVNULL)
        self.addCleanup(service.wait, PATIENCE)
        self.addCleanup(service.send_signal, signal.SIGTERM)
        end = time.monotonic() + PATIENCE
        while not (self.root / "var/run/vukocrond.sock").exists():
            self.assertIsNone(service.poll())
            self.assertLess(time.monotonic(), end, "the service makes no socket")
            time.sleep(0.02)

    def ask(self, request, as_nobody):
        nobody = pwd.getpwnam(NOBODY).pw_uid
        if as_nobody:
            os.seteuid(nobody)
        try:
            with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as connection:
                connection.settimeout(PATIENCE)
                connection.connect(str(self.root / "var/run/vukocrond.sock"))
                connection.send(request.encode())
                return json.loads(connection.recv(1 << 18))
        finally:
            os.seteuid(0)

    def test_the_service_replies_as_it_says(self):
        asked = set()
        self.ask('{"version": 1, "verb": "run", "job": "index", "wait": true}', False)  # so that there is a history
        for as_nobody, request, reply in examples():
            asked.add(json.loads(request)["verb"])
            with self.subTest(request):
                self.assertEqual(shape(self.ask(request, as_nobody)), shape(reply))
        text = (SOURCE / "docs/CONTROL.md").read_text(encoding="utf-8")
        self.assertEqual(asked, set(re.findall(r"^### (\w+)$", text, re.M)))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
