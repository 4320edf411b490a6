"""A small tree of sources in a temporary folder, and a checker run on it."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools"


class PlantedTree(unittest.TestCase):
    """Base of the checkers' own tests. A subclass names its checker and the tree that has nothing wrong with it."""

    CHECKER = ""
    SOUND_TREE = {}

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vuko-check-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for path, text in self.SOUND_TREE.items():
            self.write(path, text)

    def write(self, path, text):
        target = self.root / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text, encoding="utf-8")

    def change(self, path, old, new):
        """Replaces the one place in a file of the tree where `old` stands."""
        text = (self.root / path).read_text(encoding="utf-8")
        self.assertEqual(text.count(old), 1, f"{old!r} in {path}")
        self.write(path, text.replace(old, new))

    def findings(self):
        """The lines that the checker prints about the tree."""
        done = subprocess.run(
            [sys.executable, "-B", TOOLS / self.CHECKER, "--root", self.root], capture_output=True, text=True, check=False
        )
        self.assertEqual(done.stderr, "", "the checker itself failed")
        lines = done.stdout.splitlines()
        self.assertEqual(done.returncode, 1 if lines else 0)
        return lines
