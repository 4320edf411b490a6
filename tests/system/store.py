"""What the library does when it is called, and what a test needs to call it."""

import json
import os
import sys
import unittest

BUILD_DIR = os.environ["VUKO_BUILD_DIR"]
INSIDE_DIR = "/opt/vukocrond-test"
STORECTL = f"{INSIDE_DIR}/bin/storectl"
SERVICE = f"{INSIDE_DIR}/bin/vukocrond"
# The service was built to find its libraries where the build folder lies outside.
SERVICE_ENVIRONMENT = f"LD_LIBRARY_PATH={INSIDE_DIR}/lib"
_PREFIX = "storectl: "
_SKIPPED = 77


class Told:
    """What one run of storectl told."""

    def __init__(self, exit_code, output, errors):
        if exit_code != 0:
            raise AssertionError(f"storectl ended with {exit_code}:\n{output}{errors}")
        answer = json.loads(output)
        self.result = answer["result"]
        self.seconds = answer["seconds"]
        self.messages = [_message(line) for line in errors.splitlines()]


def _message(line):
    if not line.startswith(_PREFIX):
        raise AssertionError(f"storectl said what is no message: {line}")
    return line[len(_PREFIX):]


def folders(**more):
    """The folders of a machine on which the library is to be called; `more` are shared ones, as name=outside path."""
    inside = {f"{INSIDE_DIR}/{name}": (f"{BUILD_DIR}/{name}", False) for name in ("bin", "lib")}
    inside.update({f"/{name}": (outside, True) for name, outside in more.items()})
    return inside


def call(machine, *words):
    """Calls the library on a machine."""
    done = machine.run(STORECTL, *words, check=False)
    return Told(done.returncode, done.stdout, done.stderr)


class MachineTest(unittest.TestCase):
    """Base of the tests on a machine, which lasts for a class and tells what it saw when a test fails."""

    machine = None

    def run(self, result=None):
        before = len(result.failures) + len(result.errors)
        super().run(result)
        if self.machine and len(result.failures) + len(result.errors) > before:
            print(self.machine.diagnosis(), file=sys.stderr)


def main(needs_root=True):
    """Runs the tests of the calling script."""
    if needs_root and os.geteuid() != 0:
        print("skipped: namespaces of one's own need root")
        sys.exit(_SKIPPED)
    unittest.main(verbosity=2)
