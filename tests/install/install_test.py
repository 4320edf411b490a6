#!/usr/bin/env -S python3 -B
"""Installs the build into a folder of its own and uses what is there as an outsider would.

Usage: install_test.py BUILD_FOLDER LIBDIR COMPILER PUBLIC_HEADER...
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

BUILD, LIBDIR, COMPILER, *HEADERS = sys.argv[1:]
CONSUMER = pathlib.Path(__file__).resolve().parent / "consumer"
PREFIX = "opt/anywhere"

SAID = """schedule: 0,30 3 17 -1 -1
valid: 10
stored: backup
logged: a line
ticks: 60
"""


def run(*command, **environment):
    done = subprocess.run(command, capture_output=True, text=True, check=False, env={**os.environ, **environment})
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="vuko-install-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        run("cmake", "--install", BUILD, "--prefix", f"/{PREFIX}", DESTDIR=str(cls.folder))
        # Moved, so that nothing can lean on the prefix that it was made for.
        cls.tree = cls.folder / "moved"
        (cls.folder / PREFIX).rename(cls.tree)

    def work_folder(self, name):
        folder = self.folder / name
        folder.mkdir()
        return folder

    def assert_consumer_works(self, program, **environment):
        self.assertEqual(run(program, self.work_folder(f"work-{program.parent.name}"), **environment), SAID)

    def test_the_public_headers_are_there_and_no_others(self):
        root = self.tree / "include/vuko"
        self.assertEqual(sorted(str(path.relative_to(root)) for path in root.rglob("*") if path.is_file()),
                         sorted(HEADERS))

    def test_each_library_is_found_by_its_name_and_by_its_soname(self):
        for library in ("libvukocrond.so", "libvukoplatform.so"):
            link = self.tree / LIBDIR / library
            soname = link.readlink()
            self.assertRegex(str(soname), rf"^{library}\.\d+$")
            self.assertRegex(str((link.parent / soname).readlink()), rf"^{soname}\.\d+\.\d+$")

    def test_a_cmake_project_builds_with_the_package(self):
        build = self.folder / "cmake"
        run("cmake", "-S", CONSUMER, "-B", build, f"-DCMAKE_PREFIX_PATH={self.tree}", f"-DCMAKE_CXX_COMPILER={COMPILER}")
        run("cmake", "--build", build)
        self.assert_consumer_works(build / "consumer")
        self.assertEqual(run(build / "platform_consumer"), "2 pieces, a folder\n")

    def test_a_program_builds_with_the_flags_of_pkg_config(self):
        build = self.work_folder("pkgconfig")
        flags = run("pkg-config", "--cflags", "--libs", "vukocrond",
                    PKG_CONFIG_PATH=str(self.tree / LIBDIR / "pkgconfig")).split()
        self.assertIn(f"-I{self.tree}/{LIBDIR}/pkgconfig/../../include/vuko", flags)
        run(COMPILER, "-std=c++17", "-o", build / "consumer", CONSUMER / "main.cpp", *flags)
        self.assert_consumer_works(build / "consumer", LD_LIBRARY_PATH=str(self.tree / LIBDIR))

    def test_the_service_finds_its_libraries(self):
        self.assertRegex(run(self.tree / "sbin/vukocrond", "--version"), r"^vukocrond \d+\.\d+\.\d+\n$")

    def test_the_manual_pages_are_there(self):
        for page in ("man1/vukocronctl.1", "man5/vukocron.conf.5", "man8/vukocrond.8"):
            self.assertIn("\n.Sh NAME\n", (self.tree / "share/man" / page).read_text(encoding="utf-8"))
        other_name = (self.tree / "share/man/man5/vukocrond.conf.5").read_text(encoding="utf-8")
        self.assertEqual(other_name, ".so man5/vukocron.conf.5\n")

    def test_the_completions_of_the_shells_are_there(self):
        for file, first in (("bash-completion/completions/vukocronctl", "# Bash"), ("zsh/site-functions/_vukocronctl", "#compdef")):
            self.assertTrue((self.tree / "share" / file).read_text(encoding="utf-8").startswith(first))

    def test_the_unit_names_the_program_where_it_was_installed(self):
        unit = (self.tree / "lib/systemd/system/vukocrond.service").read_text(encoding="utf-8")
        self.assertIn(f"\nExecStart=/{PREFIX}/sbin/vukocrond\n", unit)

    def test_the_folders_and_the_rotation_are_there(self):
        self.assertIn("/tmp/vukocrond", (self.tree / "lib/tmpfiles.d/vukocrond.conf").read_text(encoding="utf-8"))
        self.assertIn("nocreate", (self.tree / "etc/logrotate.d/vukocrond").read_text(encoding="utf-8"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
