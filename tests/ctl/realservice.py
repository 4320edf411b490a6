"""A service with folders of its own."""

import json
import os
import pathlib
import subprocess
import tempfile
import time

PATIENCE_SECONDS = 30
SHIPPED = "usr/vuko/share/vukocron.d"


class RealService:
    """@param files  content by path below the root, where an object is a definition; @param owners  uid by folder."""

    def __init__(self, program, files, owners=None, **environment):
        self.program, self.files, self.owners, self.environment = program, files, owners or {}, environment

    def __enter__(self):
        self.folder = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.folder.name)
        self.root.chmod(0o755)
        for name, content in self.files.items():
            path = self.root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(content if isinstance(content, str) else json.dumps(content), encoding="utf-8")
        for name, uid in self.owners.items():
            os.chown(self.root / name, uid, -1)
        self.process = subprocess.Popen([self.program, "--root", self.root], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        env={**os.environ, **self.environment})
        deadline = time.monotonic() + PATIENCE_SECONDS
        while not (self.root / "var/run/vukocrond.sock").exists():
            assert time.monotonic() < deadline and self.process.poll() is None
            time.sleep(0.02)
        return self

    def __exit__(self, *_):
        self.process.terminate()
        assert self.process.wait(PATIENCE_SECONDS) == 0
        self.folder.cleanup()
