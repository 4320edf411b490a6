"""The control tool and a service with all folders below one of the test's own."""

import json
import os
import pathlib
import subprocess
import tempfile
import time

PATIENCE_SECONDS = 30
ENVIRONMENT = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "TZ": "UTC"}
FOLDERS = {"builtin": "usr/vuko/share/vukocron.d", "builtin-dyn": "usr/vuko/etc/vukocron.d", "pkg": "usr/local/etc/vukocron.d",
           "pkg_nonroot": "usr/local/etc/vukocron_nonroot.d"}


def identity(uid):
    """Of a process that runs as somebody else than root."""
    return {"user": uid, "group": uid, "extra_groups": []} if uid else {}


class Root:
    def __init__(self, tool, service):
        self.tool_program, self.service_program = tool, service
        self.folder = tempfile.TemporaryDirectory(prefix="vuko-ctl-")
        self.path = pathlib.Path(self.folder.name)
        self.path.chmod(0o755)
        for folder in FOLDERS.values():
            (self.path / folder).mkdir(parents=True)
        self.process = None

    def start(self, uid=None):
        self.process = subprocess.Popen([self.service_program, "--root", self.path], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=ENVIRONMENT, **identity(uid))
        deadline = time.monotonic() + PATIENCE_SECONDS
        while self.run("role").returncode != 0:
            assert time.monotonic() < deadline and self.process.poll() is None
            time.sleep(0.02)

    def close(self):
        if self.process:
            self.process.terminate()
            assert self.process.wait(PATIENCE_SECONDS) == 0
        self.folder.cleanup()

    def command(self, *words):
        return [str(word) for word in (self.tool_program, "--root", self.path, *words)]

    def run(self, *words, uid=None, text=None, before=(), **variables):
        """@param before  words that stand before the tool's, of a program that runs it."""
        return subprocess.run([*before, *self.command(*words)], capture_output=True, text=True, input=text, check=False,
                              timeout=PATIENCE_SECONDS, env={**ENVIRONMENT, **variables}, **identity(uid))

    def file(self, identity):
        """The file that the library uses for a job, FOLDER/NAME or FOLDER/PACKAGE/NAME."""
        folder, _, rest = identity.partition("/")
        return self.path / FOLDERS[folder] / (rest + ".conf")

    def define(self, identity, definition, mode=0o644):
        path = self.file(identity)
        path.write_text(definition if isinstance(definition, str) else json.dumps(definition), encoding="utf-8")
        path.chmod(mode)
        return path

    def stored(self, identity):
        path = self.file(identity)
        return json.loads(path.read_text(encoding="utf-8")) if path.exists() else None

    def package(self, name, uid):
        path = self.path / FOLDERS["pkg_nonroot"] / name
        path.mkdir(mode=0o755)
        os.chown(path, uid, uid)
        return path
