#!/usr/bin/env -S python3 -B
"""The manual page describes the options that the program has, and no others, and is free of formatting mistakes.

Usage: manual_test.py SOURCE_FOLDER PROGRAM
"""

import pathlib
import re
import subprocess
import sys
import unittest

SOURCE, PROGRAM = map(pathlib.Path, sys.argv[1:])
PAGE = SOURCE / "docs/man/vukocrond.8"


class Manual(unittest.TestCase):
    def test_describes_each_option_of_the_program(self):
        help_text = subprocess.run([PROGRAM, "--help"], capture_output=True, text=True, check=True).stdout
        options = set(re.findall(r"^ +(?:-\w,)?--([\w-]+)", help_text, re.M))
        described = set(re.findall(r"^\.It Fl (?:\w , )?-([\w-]+)", PAGE.read_text(encoding="utf-8"), re.M))
        self.assertGreater(len(options), 2)
        self.assertEqual(described, options)

    def test_names_the_choices_of_each_option(self):
        help_text = subprocess.run([PROGRAM, "--help"], capture_output=True, text=True, check=True).stdout
        page = PAGE.read_text(encoding="utf-8")
        for option, choices in re.findall(r"--([\w-]+) \w+:value in {([^}]*)}", help_text):
            words = set(re.findall(r"(\w+)->", choices))
            described = re.search(rf"^\.It Fl -{option} Cm (.*)$", page, re.M)
            self.assertEqual(set(described[1].split(" | ")), words)

    def test_is_free_of_formatting_mistakes(self):
        done = subprocess.run(["groff", "-mandoc", "-Tutf8", "-ww", PAGE], capture_output=True, text=True, check=True)
        self.assertEqual(done.stderr, "")
        self.assertIn("VUKOCROND(8)", done.stdout)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
