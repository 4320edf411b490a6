#!/usr/bin/env -S python3 -B
"""The control tool as a person sees it: in terminals of 80 and 200 columns, with colour and without, with a pager.

usage: terminal_test.py TOOL
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest

import terminal

TOOL = sys.argv[1]


def job(name, crontab="0 * * * *"):
    return {"name": name, "user": "root", "period": "c", "crontab": crontab, "cmd": "/bin/true"}


class OnATerminal(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.terminals = cls.enterClassContext(terminal.Terminals())
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())

    def command(self, jobs, *options):
        file = self.folder + "/jobs.conf"
        with open(file, "w", encoding="utf-8") as out:
            json.dump(jobs, out)
        return [TOOL, *options, "next", "--from", "2026-06-01T00:00", "--tz", "UTC", "--file", file]

    def test_a_line_fits_the_terminal_and_ends_with_an_ellipsis_where_it_was_cut(self):
        for width, long, cut in [(80, "n" * 60, "n" * 44 + "…"), (80, "中" * 60, "中" * 22 + "…"), (80, "é" * 60, "é" * 44 + "…"),
                                 (80, "e\u0301" * 60, "e\u0301" * 44 + "…"), (200, "n" * 160, "n" * 160)]:
            with self.subTest(width=width, long=long):
                shown = self.terminals.run(self.command([job(long), job("short")]), width=width)
                self.assertEqual(shown.lines, ["START                      REASON  JOB",
                                               "2026-06-01T01:00:00+00:00  due     " + cut,
                                               "2026-06-01T01:00:00+00:00  due     short"])

    def test_an_ellipsis_is_three_dots_where_the_locale_has_no_other(self):
        shown = self.terminals.run(self.command([job("n" * 60)]), LC_ALL="C")
        self.assertEqual(shown.lines[1], "2026-06-01T01:00:00+00:00  due     " + "n" * 42 + "...")

    def test_the_narrowest_terminal_gets_lines_that_fit(self):
        shown = self.terminals.run(self.command([job("n" * 60)]), width=12)
        self.assertEqual(shown.lines, ["ST…  RE…  J…", "20…  due  n…"])

    def test_nothing_is_cut_or_coloured_where_there_is_no_terminal(self):
        done = subprocess.run(self.command([job("n" * 300)]), capture_output=True, text=True, check=True)
        self.assertTrue(done.stdout.endswith("n" * 300 + "\n"))
        self.assertNotIn("\x1b", done.stdout)

    def test_colour_only_where_it_is_wanted_and_can_be_shown(self):
        for variables, has_colour in [({}, True), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "dumb"}, False)]:
            with self.subTest(variables):
                shown = self.terminals.run(self.command([job("a")]), **variables)
                self.assertEqual(shown.has_colour, has_colour)
                self.assertEqual(shown.lines[0], "START                      REASON  JOB")

    def test_no_name_moves_the_cursor(self):
        text = "\x1b[2J\u202egone\x07\udcff"
        done = subprocess.run([TOOL, "next", "--tz", text], capture_output=True, text=True, check=False)
        self.assertEqual(done.stderr.split(";")[0], 'vukocronctl: "\\x1b[2J\\xe2\\x80\\xaegone\\x07\\xff" is no time zone')


class Paged(unittest.TestCase):
    @staticmethod
    def command(count, *options):
        return [TOOL, *options, "next", "--crontab", "* * * * *", "--from", "2026-06-01T00:00", "--tz", "UTC", "-n", str(count)]

    @classmethod
    def setUpClass(cls):
        cls.terminals = cls.enterClassContext(terminal.Terminals())

    def test_less_shows_what_does_not_fit_and_leaving_it_is_no_error(self):
        pane = self.terminals.start(self.command(100), height=10)
        pane.until(lambda text: "lines 1-9" in text)
        self.assertFalse(pane.ended())
        pane.keys("q")
        self.assertEqual(pane.end().status, 0)

    def test_less_leaves_at_once_where_all_fits(self):
        shown = self.terminals.run(self.command(5), height=10)
        self.assertEqual((shown.status, len(shown.lines)), (0, 6))

    def test_more_than_a_pipe_holds_may_be_left_unread(self):
        pane = self.terminals.start(self.command(20000), height=10)
        pane.until(lambda text: "lines 1-9" in text)
        pane.keys("q")
        self.assertEqual(pane.end().status, 0)

    def test_no_pager_where_none_is_wanted(self):
        for options, variables in [(["--no-pager"], {}), (["--json"], {}), ([], {"PAGER": ""}), ([], {"PAGER": "cat"}),
                                   ([], {"PAGER": "less", "VUKOCRONCTL_PAGER": ""})]:
            with self.subTest(options=options, variables=variables):
                shown = self.terminals.run(self.command(100, *options), height=10, **variables)
                self.assertEqual((shown.status, len(shown.lines)), (0, 9))
                self.assertNotIn("lines 1", shown.text)

    @unittest.skipIf("SUDO_UID" in os.environ, "a pager of one's choice needs an account of one's own")
    def test_the_pager_of_a_variable(self):
        for variables in [{"PAGER": "sed s/due/DUE/"}, {"PAGER": "false", "VUKOCRONCTL_PAGER": "sed s/due/DUE/"}]:
            with self.subTest(variables):
                self.assertIn("  DUE  ", self.terminals.run(self.command(1), **variables).text)

    def test_who_borrowed_an_account_gets_no_pager_of_his_choice(self):
        shown = self.terminals.run(self.command(1), PAGER="echo mine", SUDO_UID="1000")
        self.assertIn("  due  ", shown.text)

    def test_less_runs_nothing(self):
        pane = self.terminals.start(self.command(100), height=10)
        pane.until(lambda text: "lines 1-9" in text)
        pane.keys("!")
        pane.until(lambda text: "not available" in text)
        pane.keys("Enter", "q")
        self.assertEqual(pane.end().status, 0)

    def test_a_terminal_that_can_only_print_lines_has_no_pager(self):
        shown = self.terminals.run(self.command(100), height=10, TERM="dumb")
        self.assertEqual((shown.status, shown.has_colour), (0, False))

    def test_a_pipe_is_no_terminal(self):
        done = subprocess.run(self.command(100, "--json"), capture_output=True, text=True, check=True)
        self.assertEqual(len(json.loads(done.stdout)["jobs"][0]["next"]), 100)
        done = subprocess.run(self.command(100), capture_output=True, text=True, check=True,
                              env={**os.environ, "PAGER": "false"})
        self.assertEqual(len(done.stdout.splitlines()), 101)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
