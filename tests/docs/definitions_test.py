#!/usr/bin/env -S python3 -B
"""The definitions that the documents show are what the service takes, and it refuses what they say it refuses.

Usage: definitions_test.py SOURCE_FOLDER PROGRAM
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, PROGRAM = map(pathlib.Path, sys.argv[1:])
GOOD = {"name": "job", "user": "root", "period": "crontab", "crontab": "0 3 * * *", "cmd_list": ["/bin/true"]}


def definitions_of(document):
    """Every JSON block that holds definitions: objects with a period, or arrays of them."""
    text = (SOURCE / document).read_text(encoding="utf-8")
    for block in re.findall(r"^```json\n(.*?)^```", text, re.M | re.S):
        try:
            value = json.loads(block)
        except json.JSONDecodeError:
            continue  # several documents, one a line: no definition
        yield from (one for one in (value if isinstance(value, list) else [value]) if "period" in one)


def check(definition):
    """What the service has to say about a definition in its right folder: one line, or nothing."""
    of_package = definition["user"] == "package" and "package_username" in definition
    with tempfile.TemporaryDirectory(prefix="vuko-docs-") as folder:
        path = pathlib.Path(folder) / "usr/local/etc" / (
            "vukocron_nonroot.d/package/job.conf" if of_package else "vukocron.d/job.conf")
        path.parent.mkdir(parents=True, mode=0o755)
        path.write_text(json.dumps(definition), encoding="utf-8")
        path.chmod(0o644)
        done = subprocess.run([PROGRAM, "--check", "--root", folder], capture_output=True, text=True, check=False)
        if done.returncode not in (0, 1) or (done.returncode == 0) != (done.stdout == ""):
            raise AssertionError(f"{definition}: {done}")
        return done.stdout.removeprefix(f"{path}: ").removesuffix("\n")


class Definitions(unittest.TestCase):
    def assert_taken(self, document, count):
        definitions = list(definitions_of(document))
        self.assertEqual(len(definitions), count)
        for definition in definitions:
            with self.subTest(definition["name"]):
                self.assertEqual(check(definition), "")

    def test_those_of_the_readme_are_taken(self):
        self.assert_taken("README.md", 1)

    def test_those_of_the_formats_are_taken(self):
        self.assert_taken("docs/FORMATS.md", 4)

    def test_what_is_said_to_be_refused_is_refused_with_that_reason(self):
        text = (SOURCE / "docs/FORMATS.md").read_text(encoding="utf-8")
        rows = re.findall(r"^\| `(.*)` \| (.*) \|$", text.partition("<!-- refused -->")[2].partition("\n\n")[0], re.M)
        self.assertGreater(len(rows), 10)
        self.assertEqual(check(GOOD), "")
        for member, reason in rows:
            with self.subTest(member):
                self.assertEqual(check(GOOD | json.loads("{" + member + "}")), reason)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
