#!/usr/bin/env -S python3 -B
"""The manual pages describe the commands, options and members of definitions that the programs have, and no others, their
definitions are what the programs take, and they are free of formatting mistakes.

Usage: manual_test.py SOURCE_FOLDER SERVICE CONTROL_TOOL
"""

import itertools
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, SERVICE, TOOL = map(pathlib.Path, sys.argv[1:])
PAGES = SOURCE / "docs/man"
WITHOUT_CHOICES = ("ACCOUNT", "DIR", "FILE", "HOURS", "N", "NAME", "PACKAGE", "SECONDS", "TEXT", "TIME", "TIMER", "ZONE")
EVERYWHERE = {"--help", "--json"}  # of each command; the page says so once


def help_of(*command):
    return subprocess.run([*command, "--help"], capture_output=True, text=True, check=True).stdout


def page(name):
    return (PAGES / name).read_text(encoding="utf-8")


def options_of(help_text):
    return set(re.findall(r"^ +(?:-\w,)?(--?[\w-]+)", help_text, re.M))


def described_options(text):
    return {"-" + option for option in re.findall(r"^\.It Fl (?:\w , )?(-?[\w-]+)", text, re.M)}


def described_choices(text):
    """Of the options that take one of several words."""
    return {option: set(words.split(" | ")) for option, words in re.findall(r"^\.It Fl -([\w-]+) Cm (.* \| .*)$", text, re.M)}


def choices_of(command, option):
    """As the tool tells them to shells."""
    asked = f"vukocronctl {command} --{option} "
    return set(subprocess.run([TOOL, "__complete", "bash", asked, ""], capture_output=True, text=True, check=True)
               .stdout.splitlines()[:-1])


def commands():
    return re.findall(r"^  (\w+) ", help_of(TOOL).partition("\nSubcommands:\n")[2], re.M)


def sections(text):
    """Name and text of each command's section."""
    part = text.partition("\n.Sh COMMANDS\n")[2].partition("\n.Sh ")[0]
    pieces = re.split(r"^\.Ss (.*)\n", part, flags=re.M)
    return dict(zip(pieces[1::2], pieces[2::2]))


def members_in_the_code():
    """What the library and the service ask a definition for."""
    found = set()
    for pattern, files in ((r'jsConf(?:\[|\.isMember\()"(\w+)"', "crond/cronjob/*.cpp"),
                           (r'jsDefinition\["(\w+)"\]', "service/definitions/definition*.cpp"),
                           (r'{"(\w+)", WhyBad', "service/definitions/definitionpolicy.cpp")):
        for file in SOURCE.glob(files):
            found.update(re.findall(pattern, file.read_text(encoding="utf-8")))
    return found


def examples_of_definitions():
    blocks = re.findall(r"^\.Bd -literal[^\n]*\n([{\[]\n.*?)^\.Ed$", page("vukocron.conf.5"), re.M | re.S)
    return [json.loads(block) for block in blocks]


class Definitions(unittest.TestCase):
    """vukocron.conf(5)"""

    def test_describes_each_member_once(self):
        described = re.findall(r"^\.It Ic (\w+)$", page("vukocron.conf.5"), re.M)
        self.assertEqual(sorted(described), sorted(members_in_the_code()))

    def test_describes_the_members_that_the_formats_have(self):
        text = (SOURCE / "docs/FORMATS.md").read_text(encoding="utf-8")
        text = text.partition("## Job definition\n")[2].partition("### What the service refuses")[0]
        self.assertEqual(set(re.findall(r"^\| `(\w+)` \|", text, re.M)), members_in_the_code())

    def test_its_examples_show_each_member(self):
        definitions = itertools.chain(*(one if isinstance(one, list) else [one] for one in examples_of_definitions()))
        self.assertEqual(set().union(*definitions), members_in_the_code())

    def test_its_examples_are_taken_without_a_warning(self):
        for example in examples_of_definitions():
            done = subprocess.run([TOOL, "check", "-", "--json"], input=json.dumps(example), capture_output=True, text=True,
                                  check=True)
            (told,) = json.loads(done.stdout)["files"]
            self.assertEqual((told["valid"], told["errors"], told["warnings"]), (True, [], []))

    def test_its_examples_are_taken_where_they_belong(self):
        with tempfile.TemporaryDirectory(prefix="vuko-docs-") as root:
            for number, example in enumerate(examples_of_definitions()):
                of_package = isinstance(example, dict) and example["user"] == "package"
                folder = pathlib.Path(root) / "usr/local/etc" / (
                    "vukocron_nonroot.d/package" if of_package else "vukocron.d")
                folder.mkdir(parents=True, exist_ok=True, mode=0o755)
                (folder / f"{number}.conf").write_text(json.dumps(example), encoding="utf-8")
                (folder / f"{number}.conf").chmod(0o644)
            done = subprocess.run([SERVICE, "--check", "--root", root], capture_output=True, text=True, check=False)
            self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_the_other_pages_lead_to_it(self):
        for name in ("vukocronctl.1", "vukocrond.8"):
            self.assertIn(".Xr vukocron.conf 5", page(name).partition(".Sh SEE ALSO")[2])


class Manual(unittest.TestCase):
    def test_names_the_choices_of_each_option_of_the_service(self):
        taken = dict(re.findall(r"^ +--([\w-]+) (\w+(?:\|\w+)+)(?: |$)", help_of(SERVICE), re.M))
        self.assertGreater(len(taken), 1)
        self.assertEqual(described_choices(page("vukocrond.8")),
                         {option: set(words.split("|")) for option, words in taken.items()})

    def test_describes_each_option_of_the_service(self):
        options = options_of(help_of(SERVICE))
        self.assertGreater(len(options), 2)
        self.assertEqual(described_options(page("vukocrond.8")), options)

    def test_describes_each_command_of_the_tool_in_the_order_of_its_help(self):
        self.assertGreater(len(commands()), 2)
        self.assertEqual(list(sections(page("vukocronctl.1"))), commands())

    def test_describes_the_options_that_all_commands_of_the_tool_have(self):
        text = page("vukocronctl.1").partition("\n.Sh COMMANDS\n")[0]
        self.assertEqual(described_options(text), options_of(help_of(TOOL)) | EVERYWHERE)

    def test_describes_each_option_of_each_command_and_its_choices(self):
        for command, text in sections(page("vukocronctl.1")).items():
            with self.subTest(command):
                help_text = help_of(TOOL, command)
                options = options_of(help_text)
                self.assertLessEqual(EVERYWHERE, options)
                self.assertEqual(described_options(text), options - EVERYWHERE)
                choices = {option: choices_of(command, option) for option, kind in
                           re.findall(r"--([\w-]+) ([A-Z]+)(?: |$)", help_text, re.M) if kind not in WITHOUT_CHOICES}
                self.assertEqual(described_choices(text), {option: words for option, words in choices.items() if words})

    def test_shows_each_command_with_its_options_as_it_is_written(self):
        for command, text in sections(page("vukocronctl.1")).items():
            with self.subTest(command):
                synopsis = text.partition("\n.Pp\n")[0]
                self.assertTrue(synopsis.startswith(f".Nm\n.Cm {command}"))
                # Only in the section SYNOPSIS does the name begin a line by itself.
                self.assertEqual(synopsis.count("\n.Nm\n"), synopsis.count("\n.br\n.Nm\n"))
                shown = {"-" + option for option in re.findall(r"\bFl (-?[\w-]+)", synopsis)}
                self.assertEqual(shown, options_of(help_of(TOOL, command)) - EVERYWHERE)

    def test_lists_each_code_of_a_warning(self):
        source = "".join((SOURCE / "ctl" / name).read_text(encoding="utf-8") for name in
                         ("checkedfile.cpp", "crontabreview.cpp", "definitionreview.cpp", "definitionreview.h"))
        codes = set(re.findall(r'(?:\bWarn\((?:review, |file\.review, |_vecFiles\.back\(\)\.review, )?|\{\{|CODE_\w+ = )"([\w-]+)"', source))
        table = page("vukocronctl.1").partition("\n.Sh WARNINGS\n")[2].partition("\ncode ")[2].partition("\n.Ed")[0]
        self.assertGreater(len(codes), 2)
        self.assertEqual(sorted(re.findall(r"^([\w-]+) ", table, re.M)), sorted(codes))

    def test_is_free_of_formatting_mistakes(self):
        for name, title in (("vukocrond.8", "VUKOCROND(8)"), ("vukocronctl.1", "VUKOCRONCTL(1)"),
                            ("vukocron.conf.5", "VUKOCRON.CONF(5)")):
            with self.subTest(name):
                done = subprocess.run(["groff", "-mandoc", "-Tutf8", "-ww", PAGES / name], capture_output=True, text=True,
                                      check=True)
                self.assertEqual(done.stderr, "")
                self.assertIn(title, done.stdout)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
