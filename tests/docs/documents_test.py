#!/usr/bin/env -S python3 -B
"""The documents lead where they say, show files as they are, and show what the control tool prints without a service.

Usage: documents_test.py SOURCE_FOLDER CONTROL_TOOL
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE, TOOL = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
PAGES = [*SOURCE.glob("*.md"), *SOURCE.glob("docs/*.md")]
MANUAL = SOURCE / "docs/man/vukocronctl.1"
ENVIRONMENT = {"PATH": f"{TOOL.parent}:/usr/bin:/bin", "TZ": "UTC", "LC_ALL": "C.UTF-8"}
WITHOUT_SERVICE = ("next --", "explain", "simulate", "timeline --", "check", "import")


def text_of(page):
    return page.read_text(encoding="utf-8")


def blocks(page):
    """What a page shows, each as text."""
    if page.suffix == ".md":
        return re.findall(r"^```\w*\n(.*?)^```$", text_of(page), re.M | re.S)
    return [block.replace("\\e", "\\") for block in
            re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", text_of(page), re.M | re.S)]


def commands(block):
    """The commands of a block, each with the lines that it is to print."""
    for piece in re.split(r"^\$ ", block, flags=re.M)[1:]:
        command, _, shown = piece.replace("\\\n", " ").partition("\n")
        yield command, shown.rstrip("\n").splitlines()


class Documents(unittest.TestCase):
    def test_each_link_leads_to_a_file(self):
        for page in PAGES:
            for link in re.findall(r"\]\(([^)#:]+)\)", text_of(page)):
                with self.subTest(f"{page.name}: {link}"):
                    self.assertTrue((page.parent / link).exists())

    def test_the_readme_leads_to_each_document(self):
        links = {(SOURCE / link).resolve() for link in re.findall(r"\]\(([^)#:]+)\)", text_of(SOURCE / "README.md"))}
        documents = {page for page in PAGES if page.name != "README.md"}
        pages = {page for page in SOURCE.glob("docs/man/*.[1-8]") if not text_of(page).startswith(".so ")}
        self.assertEqual((documents | pages) - links, set())

    def test_files_are_shown_as_they_are(self):
        count = 0
        for page in PAGES:
            for name, text in re.findall(r"^<!-- file: (packaging/\S+) -->\n```\w*\n(.*?)^```$", text_of(page), re.M | re.S):
                self.assertEqual(text, text_of(SOURCE / name), f"{page.name} shows {name}")
                count += 1
        self.assertGreater(count, 1)

    def test_the_handover_says_one_instant_to_both_machines(self):
        (script,) = (block for block in blocks(SOURCE / "docs/HA.md") if "# handover FROM TO" in block)
        with tempfile.TemporaryDirectory(prefix="vuko-docs-") as folder:
            files = [pathlib.Path(folder) / name for name in ("from", "to")]
            subprocess.run(["sh", "-c", script, "handover", *files], check=True)
            told = [re.fullmatch(r"(\w+) @(\d+)\n", text_of(file)).groups() for file in files]
            self.assertEqual(sorted(pathlib.Path(folder).iterdir()), files)
        self.assertEqual([role for role, _ in told], ["passive", "active"])
        self.assertEqual(told[0][1], told[1][1])

    def run_block(self, block, folder):
        """Runs what needs no service. A file that is shown by "cat" is made where it is not there.

        @return how many commands were run.
        """
        count = 0
        for command, shown in commands(block):
            if command.startswith("cat "):
                file = folder / command.removeprefix("cat ").lstrip("/")
                if file.exists():
                    self.assertEqual(text_of(file).splitlines(), shown, command)
                file.write_text("\n".join(shown) + "\n", encoding="utf-8")
            if not command.startswith(tuple(f"vukocronctl {words}" for words in WITHOUT_SERVICE)):
                continue
            count += 1
            # What is stored, is stored in this folder.
            command = command.replace("vukocronctl import", "vukocronctl --root . import")
            done = subprocess.run(["sh", "-c", command], cwd=folder, capture_output=True, text=True, check=False,
                                  env=ENVIRONMENT)
            with self.subTest(command):
                # A page may leave out what comes last, and says so then.
                self.assertEqual(done.stdout.replace(str(folder.resolve()), "").splitlines()[:len(shown)], shown, done.stderr)
        return count

    def test_the_control_tool_prints_what_the_pages_show(self):
        for page, least in ((SOURCE / "README.md", 2), (SOURCE / "docs/CLOCK.md", 1), (SOURCE / "docs/MOVING-IN.md", 4), (MANUAL, 3)):
            with tempfile.TemporaryDirectory(prefix="vuko-docs-") as folder:
                job = '{"name": "report", "user": "root", "period": "crontab", "crontab": "15 3,21 * * *", "cmd": "/bin/true"}'
                (pathlib.Path(folder) / "report.conf").write_text(job, encoding="utf-8")
                (pathlib.Path(folder) / "usr/vuko/etc/vukocron.d").mkdir(parents=True)
                (pathlib.Path(folder) / "docs").symlink_to(SOURCE / "docs")
                count = sum(self.run_block(block, pathlib.Path(folder)) for block in blocks(page))
            self.assertGreaterEqual(count, least, page.name)

    def test_the_picture_of_the_timeline_is_drawn_of_what_the_readme_shows(self):
        ((command, _),) = [pair for block in blocks(SOURCE / "README.md") for pair in commands(block)
                           if pair[0].startswith("vukocronctl timeline ")]
        done = subprocess.run(["sh", "-c", command + " --svg -"], cwd=SOURCE, capture_output=True, check=True, env=ENVIRONMENT)
        self.assertEqual(done.stdout, (SOURCE / "docs/pictures/timeline.svg").read_bytes())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
