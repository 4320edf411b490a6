#!/usr/bin/env -S python3 -B
"""Builds small libraries with something wrong about each, and looks at what check_exports.py says.

Usage: check_exports_test.py COMPILER
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECKER = pathlib.Path(__file__).resolve().parents[2] / "tools" / "check_exports.py"
COMPILER = sys.argv.pop(1) if len(sys.argv) > 1 else "c++"

CODE = """
#include <string>
extern const int LIMIT = 7;
const char* KEY = "key";
void Take(const std::string&) {}
static int iHidden;
void Count() { ++iHidden; }
"""

LIST = """# a comment
function  Count()
function  Take(std::string const&)
read-only LIMIT
writable  KEY
"""


class CheckExports(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vuko-exports-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def findings(self, code=CODE, lines=LIST, *options):
        (self.folder / "code.cpp").write_text(code, encoding="utf-8")
        (self.folder / "list.txt").write_text(lines, encoding="utf-8")
        library = self.folder / "libcode.so"
        subprocess.run([COMPILER, "-shared", "-fPIC", "-Wl,-soname,libcode.so.1", *options, "-o", library,
                        self.folder / "code.cpp"], check=True)
        done = subprocess.run([sys.executable, "-B", CHECKER, library, self.folder / "list.txt",
                               "--soname", "libcode.so.1"], capture_output=True, text=True, check=False)
        self.assertEqual(done.stderr, "", "the checker itself failed")
        self.assertEqual(done.returncode, 1 if done.stdout else 0)
        return done.stdout.splitlines()

    def test_a_library_that_shows_what_is_listed_has_no_findings(self):
        self.assertEqual(self.findings(), [])

    def test_a_symbol_that_went_is_found(self):
        self.assertEqual(self.findings(CODE.replace("void Count", "static inline void Count")), [
            "libcode.so: not exported any more, or as another kind: function  Count()"])

    def test_a_symbol_that_came_is_found(self):
        self.assertEqual(self.findings(CODE + "int Fresh() { return 1; }\n"), [
            "libcode.so: exported, but not in the list: function  Fresh()"])

    def test_a_changed_parameter_is_found(self):
        self.assertEqual(self.findings(CODE.replace("Count()", "Count(int)")), [
            "libcode.so: not exported any more, or as another kind: function  Count()",
            "libcode.so: exported, but not in the list: function  Count(int)"])

    def test_a_pointer_that_became_constant_is_found(self):
        self.assertEqual(self.findings(CODE.replace("const char* KEY", "extern const char* const KEY")), [
            "libcode.so: not exported any more, or as another kind: writable  KEY",
            "libcode.so: exported, but not in the list: read-only KEY"])

    def test_a_number_that_became_writable_is_found(self):
        self.assertEqual(self.findings(CODE.replace("extern const int", "int")), [
            "libcode.so: not exported any more, or as another kind: read-only LIMIT",
            "libcode.so: exported, but not in the list: writable  LIMIT"])

    def test_a_symbol_that_no_program_can_replace_is_found(self):
        protected = CODE.replace("void Count", '__attribute__((visibility("protected"))) void Count')
        self.assertEqual(self.findings(protected), [
            "libcode.so: cannot be replaced by a program (PROTECTED): function  Count()"])

    def test_a_library_that_is_bound_to_itself_is_found(self):
        self.assertEqual(self.findings(CODE, LIST, "-Wl,-Bsymbolic"), ["libcode.so: the library is linked SYMBOLIC"])

    def test_another_soname_is_found(self):
        self.assertEqual(self.findings(CODE, LIST, "-Wl,-soname,libcode.so.2"), [
            "libcode.so: the soname is not libcode.so.1"])


if __name__ == "__main__":
    unittest.main()
