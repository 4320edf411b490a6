#!/usr/bin/env -S python3 -B
"""Stores the interface of a small library, changes the library, and looks whether abidiff tells.

Usage: abi_change_test.py COMPILER ABIDIFF
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

COMPILER, ABIDIFF = sys.argv[1:]
OPTION = "--exported-interfaces-only"

CODE = """
#include <string>
class Job {
public:
    virtual ~Job();
    bool IsDue(int iMinute) const;
    std::string _strName;
    int _iMinute = 0;
};
Job::~Job() = default;
bool Job::IsDue(int iMinute) const { return iMinute == _iMinute; }
struct Private { int iValue; };
static Private s_private;
int Count() { return ++s_private.iValue; }
"""


class AbiChange(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="vuko-abi-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        with open(cls.folder / "job.abi", "w", encoding="utf-8") as baseline:
            subprocess.run(["abidw", OPTION, "--no-show-locs", cls.build(CODE, "-g")], stdout=baseline, check=True)

    @classmethod
    def build(cls, code, *options):
        (cls.folder / "job.cpp").write_text(code, encoding="utf-8")
        library = cls.folder / "libjob.so"
        subprocess.run([COMPILER, "-shared", "-fPIC", *options, "-o", library, cls.folder / "job.cpp"], check=True)
        return library

    def assert_told(self, old, new, word):
        self.assertIn(old, CODE)
        library = self.build(CODE.replace(old, new), "-g")
        done = subprocess.run([ABIDIFF, OPTION, self.folder / "job.abi", library],
                              capture_output=True, text=True, check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(word, done.stdout)

    def test_the_same_code_with_other_optimisation_is_no_change(self):
        subprocess.run([ABIDIFF, OPTION, self.folder / "job.abi", self.build(CODE, "-g", "-O2")], check=True)

    def test_what_nobody_outside_sees_is_no_change(self):
        library = self.build(CODE.replace("int iValue;", "int iBefore; int iValue;"), "-g")
        subprocess.run([ABIDIFF, OPTION, self.folder / "job.abi", library], check=True)

    def test_a_new_member_is_told(self):
        self.assert_told("int _iMinute = 0;", "int _iMinute = 0; long _lMore = 0;", "_lMore")

    def test_members_that_changed_places_are_told(self):
        self.assert_told("std::string _strName;\n    int _iMinute = 0;", "int _iMinute = 0;\n    std::string _strName;",
                         "_strName")

    def test_a_virtual_function_more_is_told(self):
        self.assert_told("virtual ~Job();", "virtual ~Job();\n    virtual void Extra() {}", "Extra")

    def test_a_changed_result_is_told(self):
        self.assert_told("int Count()", "long Count()", "return type changed")

    def test_a_function_that_went_is_told(self):
        self.assert_told("int Count()", "static inline int Count()", "Removed function")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
