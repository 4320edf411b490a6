#!/usr/bin/env -S python3 -B
"""The commands that change definitions and steer jobs, through a service that runs below a folder of the test's own.

usage: change_test.py TOOL SERVICE
"""

import fcntl
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

import rooted
import terminal

TOOL, SERVICE = sys.argv[1:3]
NOBODY = 65534
PLAIN = {"name": "plain", "user": "root", "period": "crontab", "crontab": "30 23 * * 1", "cmd_list": ["/bin/true"]}
NEXT = r"next start: 20\d\d-\d\d-\d\dT\d\d:\d\d:00\+00:00 \(in [^)]+\)"


def setUpModule():
    if os.geteuid() != 0:
        raise unittest.SkipTest("needs accounts to become, and a service that shows all")
    global ROOT, TERMINALS
    ROOT = rooted.Root(TOOL, SERVICE)
    unittest.addModuleCleanup(ROOT.close)
    ROOT.start()
    TERMINALS = unittest.enterModuleContext(terminal.Terminals())


def named(name, **members):
    return {**PLAIN, "name": name, **members}


class Case(unittest.TestCase):
    maxDiff = None

    def done(self, *words, status=0, **options):
        ended = ROOT.run(*words, **options)
        self.assertEqual(ended.returncode, status, ended)
        return ended

    def told(self, *words, **options):
        return json.loads(self.done("--json", *words, **options).stdout)

    def known(self, job):
        """The definition by which the service knows a job now; None where it does not."""
        ended = ROOT.run("show", job, "--json")
        return json.loads(ended.stdout)["definition"] if ended.returncode == 0 else None


class Add(Case):
    def test_a_job_in_words_is_stored_known_and_told_with_its_next_start(self):
        ended = self.done("add", "--name", "words", "--crontab", "30 23 * * 1", "--assure", "48", "--timeout", "60", "--overlap",
                          "allow", "--run-on-passive", "--description", "says it", "--", "printf", "[a,b]", "++", "--json", "--", "x")
        self.assertRegex(ended.stdout, rf"^Added builtin-dyn/words; {NEXT}\.\n$")
        self.assertEqual(ended.stderr, "")
        wanted = {"name": "words", "user": "root", "period": "crontab", "crontab": "30 23 * * 1", "assure_execute": 48,
                  "assure_execute_action": "run", "timeout": 60, "overlap": "allow", "run_on_passive": True,
                  "description": "says it", "cmd_list": ["/usr/bin/printf", "[a,b]", "++", "--json", "--", "x"]}
        self.assertEqual((ROOT.stored("builtin-dyn/words"), self.known("builtin-dyn/words")), (wanted, wanted))
        self.assertEqual(stat.S_IMODE(ROOT.file("builtin-dyn/words").stat().st_mode), 0o600)

    def test_a_period_a_class_and_a_folder_may_be_said(self):
        told = self.told("add", "--name", "weekly", "--weekly", "--user", "system", "--disabled", "--pkg", "--", "/bin/true")
        self.assertEqual(told["jobs"], [{
            "id": "pkg/weekly", "file": str(ROOT.file("pkg/weekly")), "change": "added", "before": None, "next": None,
            "taken": True, "reason": None, "definition": {"name": "weekly", "user": "system", "period": "weekly",
                                                          "enabled": False, "cmd_list": ["/bin/true"]}}])

    def test_an_array_is_added_from_standard_input_each_in_a_file_of_its_own(self):
        told = self.told("add", "-", text=json.dumps([named("one"), named("two")]))
        self.assertEqual([(job["id"], job["taken"], isinstance(job["next"], int)) for job in told["jobs"]],
                         [("builtin-dyn/one", True, True), ("builtin-dyn/two", True, True)])
        self.assertEqual((ROOT.stored("builtin-dyn/one"), ROOT.stored("builtin-dyn/two")), (named("one"), named("two")))

    def test_of_an_array_with_a_fault_nothing_is_stored_and_each_fault_is_told(self):
        for array, words in [([named("none"), named("faulty", crontab="61 * * * *"), named("x/y")],
                              ['standard input:1:', 'definition 2 "faulty": field "crontab": minute: 61 is not in 0..59',
                               'definition 3 "x/y": field "name": "x/y" holds "/"']),
                             ([named("none"), named("none")], ['definition 2 "none": field "name": stands there twice']),
                             ([named("none"), named("none2", enabled="yes")], ["expected true or false, found a text"]),
                             ([], ["holds no definition"])]:
            with self.subTest(words=words):
                ended = self.done("add", "-", text=json.dumps(array), status=1)
                self.assertEqual(ended.stdout, "")
                for word in words:
                    self.assertIn(word, ended.stderr)
                self.assertIsNone(ROOT.stored("builtin-dyn/none"))

    def test_what_is_there_already_is_replaced_only_when_that_is_asked_for(self):
        self.done("add", "-", text=json.dumps(named("there")))
        ended = self.done("add", "-", text=json.dumps([named("beside"), named("there", crontab="1 2 * * *")]), status=1)
        self.assertIn("builtin-dyn/there is there already", ended.stderr)
        self.assertEqual((ROOT.stored("builtin-dyn/there"), ROOT.stored("builtin-dyn/beside")), (named("there"), None))
        ended = self.done("add", "-", "--replace", text=json.dumps(named("there", crontab="1 2 * * *", timeout=5)))
        self.assertRegex(ended.stdout, rf"^Replaced builtin-dyn/there; {NEXT}\.\n"
                         r'  crontab: "30 23 \* \* 1" -> "1 2 \* \* \*"\n  timeout: \(none\) -> 5\n$')

    def test_warns_of_what_may_surprise(self):
        ended = self.done("add", "-", text=json.dumps(named("surprise", crontab="*/15 3 * * *")))
        self.assertIn("[tail-dropped]", ended.stderr)
        self.assertIn('as in a classic crontab: "0,15,30,45 3 * * *"', ended.stderr)

    def test_what_is_too_large_for_the_service_is_taken_back(self):
        ended = self.done("add", "-", text=json.dumps(named("large", cmd_list=["/bin/true"] + ["x" * 99999] * 3)), status=1)
        self.assertIn("the service would refuse it", ended.stderr)
        self.assertIn("is too large", ended.stderr)
        self.assertIsNone(ROOT.stored("builtin-dyn/large"))

    def test_says_what_is_missing_or_too_much(self):
        name, command = ["--name", "usage"], ["--", "/bin/true"]
        for words, status, message in [
                ([], 2, "name a file"), ([*name, *command], 2, "say when"), (["--daily", *command], 2, "--name"),
                ([*name, "--daily"], 2, "after --"), ([*name, "--daily", "--hourly", *command], 2, "one of"),
                (["-", "--daily"], 2, "--daily"), ([*name, "--daily", "--user", "alice", *command], 2, "--user"),
                ([*name, "--daily", "--", "no-such-program"], 1, "is no program in PATH"),
                ([*name, "--daily", "--package", "absent", *command], 1, "install -d -m 755 -o ACCOUNT"),
                ([*name, "--daily", "/bin/true"], 2, "its command stands behind --"),
                (["usage", "--daily", *command], 2, "add: usage is taken for a file, which says all itself: no --daily with it"),
                ([*name, "--daily", "--", "/bin/echo a b"], 1, "give its arguments as words of their own"),
                (["/no/such/file"], 1, "cannot be read: No such file"), ([*name, "--daily", "--package", "a/b", *command], 1, "a/b")]:
            with self.subTest(words=words):
                ended = self.done("add", *words, status=status)
                self.assertEqual(ended.stdout, "")
                self.assertIn(message, ended.stderr)
        self.assertIsNone(ROOT.stored("builtin-dyn/usage"))

    def test_without_a_service_it_is_stored_and_said(self):
        alone = rooted.Root(TOOL, SERVICE)
        self.addCleanup(alone.close)
        shutil.rmtree(alone.path / "usr")
        ended = alone.run("add", "--name", "later", "--daily", "--", "/bin/true")
        self.assertEqual((ended.returncode, alone.stored("builtin-dyn/later")["period"]), (0, "daily"))
        made = [folder for folder in alone.file("builtin-dyn/later").parents if alone.path in folder.parents]
        self.assertEqual([stat.S_IMODE(folder.stat().st_mode) for folder in made], [0o755] * 4, made)
        self.assertIn("is vukocrond running?); the job will be known when the service starts", ended.stdout)
        self.assertIsNone(json.loads(alone.run("disable", "later", "--json").stdout)["jobs"][0]["taken"])

    def test_an_account_that_is_not_there_is_told(self):
        ended = self.done("add", "--name", "homeless", "--daily", "--user", "package", "--package-username", "no-such-one", "--", "/bin/true")
        self.assertRegex(ended.stdout, rf"^Added builtin-dyn/homeless; {NEXT}, but not before there is an account no-such-one\.\n$")

    def test_the_library_asks_no_service_manager(self):
        ended = self.done("add", "--name", "seam", "--daily", "--", "/bin/true", LD_DEBUG="bindings")
        bound = [line.split(" to ")[1] for line in ended.stderr.splitlines() if "VUKOSystemdReload" in line]
        self.assertEqual([pathlib.Path(line.split()[0]).name for line in bound], ["vukocronctl"])


class Edit(Case):
    def edit(self, job, editor, status=0, **options):
        return self.done("edit", job, status=status, EDITOR=editor, **options)

    def draft(self, ended):
        path = pathlib.Path(re.search(r"the draft is (\S+)", ended.stderr)[1])
        self.addCleanup(path.parent.rmdir)
        self.addCleanup(path.unlink)
        self.assertEqual((stat.S_IMODE(path.parent.stat().st_mode), path.parent.stat().st_uid), (0o700, os.geteuid()))
        return path

    def test_what_was_edited_is_checked_stored_and_told(self):
        self.done("add", "-", text=json.dumps(named("edited")))
        ended = self.edit("edited", "sed -i s/23/22/")
        self.assertRegex(ended.stdout, rf'^Changed builtin-dyn/edited; {NEXT}\.\n  crontab: "30 23 \* \* 1" -> "30 22 \* \* 1"\n$')
        self.assertEqual(self.known("edited"), named("edited", crontab="30 22 * * 1"))
        ended = self.edit("edited", "false", VISUAL="sed -i s/22/21/")
        self.assertEqual(ROOT.stored("builtin-dyn/edited"), named("edited", crontab="30 21 * * 1"))
        self.edit("edited", "false", VISUAL="false", VUKOCRONCTL_EDITOR="sed -i s/21/20/")
        before = ROOT.file("builtin-dyn/edited").stat()
        self.assertIn("Nothing is changed", self.edit("edited", "true").stderr)
        self.assertEqual(ROOT.file("builtin-dyn/edited").stat(), before)

    def test_a_fault_is_told_and_the_draft_kept(self):
        self.done("add", "-", text=json.dumps(named("faulty")))
        for editor, message in [("sed -i 's/30 23/61 23/'", "minute: 61 is not in 0..59"), ("sed -i s/]//", "faulty:6:13: error: is not JSON"),
                                ("sed -i s/faulty/other/", "go by its name")]:
            with self.subTest(editor):
                ended = self.edit("faulty", editor, status=1)
                self.assertIn(message, ended.stderr)
                self.assertIn('"vukocronctl add --replace FILE" stores it', ended.stderr)
                self.assertTrue(self.draft(ended).read_text())
                self.assertEqual(ROOT.stored("builtin-dyn/faulty"), named("faulty"))
        self.assertIn("the editor false failed, exit 1", self.edit("faulty", "false", status=1).stderr)

    def test_what_somebody_else_stored_meanwhile_is_not_lost(self):
        path = ROOT.define("builtin-dyn/raced", named("raced"))
        other = json.dumps(named("raced", timeout=7))
        ended = self.edit("raced", f"f() {{ sed -i s/23/22/ $1; echo {shlex.quote(other)} >{path}; }}; f", status=1)
        self.assertIn("was changed by somebody else meanwhile", ended.stderr)
        self.assertIn("30 22", self.draft(ended).read_text())
        self.assertEqual(ROOT.stored("builtin-dyn/raced"), named("raced", timeout=7))

    def test_a_file_that_is_refused_can_be_repaired_and_removed(self):
        for text in ['{"name": "broken", ', json.dumps(named("broken", crontab="61 * * * *"))]:
            path = ROOT.define("builtin-dyn/broken", text)
            self.assertRegex(self.done("disable", "broken", status=1).stderr,
                             rf'^vukocronctl: the service refuses {path}: .+: "vukocronctl edit builtin-dyn/broken" repairs it\n$')
            self.edit("broken", "f() { echo " + shlex.quote(json.dumps(named("broken"))) + " >$1; }; f")
            self.assertEqual(self.known("broken"), named("broken"))
        ROOT.define("builtin-dyn/broken", "{")
        self.done("remove", "broken")
        self.assertFalse(ROOT.file("builtin-dyn/broken").exists())

    def test_a_link_is_not_edited(self):
        place = ROOT.file("builtin-dyn/leads-away")
        place.symlink_to("/dev/null")
        self.addCleanup(place.unlink)
        self.assertIn("is a link: it can be removed, not edited", self.edit("leads-away", "true", status=1).stderr)

    def test_what_the_editor_prints_is_none_of_what_a_script_reads(self):
        self.done("add", "-", text=json.dumps(named("scripted")))
        ended = self.done("edit", "scripted", "--json", EDITOR="f() { echo hello; sed -i s/23/22/ $1; }; f")
        self.assertEqual((json.loads(ended.stdout)["jobs"][0]["change"], ended.stderr), ("changed", "hello\n"))

    def test_on_a_terminal_a_fault_can_be_mended_at_once(self):
        self.done("add", "-", text=json.dumps(named("mended")))
        editor = "f() { grep -q 61 $1 && sed -i s/61/22/ $1 || sed -i s/23/61/ $1; }; f"
        pane = TERMINALS.start(ROOT.command("edit", "mended"), width=100, EDITOR=editor, TZ="UTC")
        pane.until(lambda text: "Edit again? [Y/n]" in text)
        self.assertIn("hour: 61 is not in 0..23", pane.text())
        pane.keys("Enter")
        self.assertEqual(pane.end().status, 0)
        self.assertEqual(self.known("mended"), named("mended", crontab="30 22 * * 1"))


class Import(Case):
    def effect(self, text, *words, **options):
        note = self.told("import", "crontab", "-", *words, text=text, **options)["notes"][-1]
        self.assertEqual(note["code"], "next-start")
        return note["text"]

    def test_goes_by_the_zone_of_the_service_and_not_of_the_caller(self):
        ended = self.done("import", "crontab", "-", "--user", "root", "--dry-run", text="CRON_TZ=Asia/Tokyo\n1 2 * * * /bin/x\n",
                          TZ="Asia/Tokyo", status=1)
        self.assertIn("its times are those of the zone Asia/Tokyo (CRON_TZ)", ended.stdout)

    def test_tells_what_starts_first_of_what_the_service_has_taken(self):
        text = "30 23 31 12 * /bin/late\n30 23 * * * /bin/soon\n"
        self.assertRegex(self.effect(text, "--user", "root"), rf"^builtin-dyn/soon comes first; {NEXT}$")
        self.assertRegex(self.effect("30 23 * * * /bin/alone\n", "--user", "root"), rf"^builtin-dyn/alone; {NEXT}$")
        self.assertIn("none of them is started", self.effect(text, "--user", "root", "--prefix", "off-", "--disabled"))
        package = ROOT.package("moving", 2)
        self.addCleanup(package.rmdir)
        self.assertIn("pkg_nonroot/moving/a; next start: ", self.effect("1 2 * * * /bin/a\n", "--user", "bin", uid=2))
        self.done("remove", "a", uid=2)


class RemoveAndEnable(Case):
    def test_are_told_and_do_nothing_twice(self):
        self.done("add", "-", text=json.dumps([named("switched"), named("other-switch")]))
        ended = self.done("disable", "switched", "builtin-dyn/other-switch")
        self.assertEqual(ended.stdout.count("its schedule starts nothing while it is disabled"), 2)
        self.assertIs(ROOT.stored("builtin-dyn/switched")["enabled"], False)
        before = ROOT.file("builtin-dyn/switched").stat()
        self.assertIn("builtin-dyn/switched is disabled already", self.done("disable", "switched").stdout)
        self.assertEqual(ROOT.file("builtin-dyn/switched").stat(), before)
        self.assertEqual(self.done("enable", "other-switch", "builtin-dyn/other-switch").stdout.count("Enabled"), 1)
        self.assertRegex(self.done("enable", "switched").stdout, rf"^Enabled builtin-dyn/switched; {NEXT}\.")
        self.assertEqual(self.done("remove", "switched", "other-switch").stdout,
                         "Removed builtin-dyn/switched.\nRemoved builtin-dyn/other-switch.\n")
        self.assertEqual((ROOT.stored("builtin-dyn/switched"), self.known("switched")), (None, None))

    def test_take_a_name_as_it_is(self):
        names = ["-x", "[a,b]", "add"]
        self.done("add", "-", text=json.dumps([named(name) for name in names]))
        for command in ("disable", "remove"):
            told = self.told(command, "--", *names)
            self.assertEqual([job["id"] for job in told["jobs"]], ["builtin-dyn/" + name for name in names])
        for words in (["[a,b]"], ["simulate", "--from", "@0", "--to", "@1", "--max-delay", "[a,b]"]):
            self.assertRegex(self.done(*words, status=2).stderr, r'^[ -~]*\[a,b\][ -~]*\n')

    def test_a_list_and_a_simulation_spell_a_name_alike(self):
        self.done("add", "-", text=json.dumps(named("größe")))
        for words in (["list"], ["simulate", "--from", "2026-01-05T23:30", "--to", "2026-01-05T23:30"]):
            self.assertIn("builtin-dyn/größe ", self.done(*words).stdout)
        self.done("remove", "größe")

    def test_one_that_is_not_there_keeps_the_others_as_they_are(self):
        self.done("add", "-", text=json.dumps(named("stays")))
        for command in ("remove", "disable"):
            self.assertIn('no definition file holds a job "nothing"', self.done(command, "stays", "nothing", status=1).stderr)
        self.assertEqual(self.known("stays"), named("stays"))

    def test_a_file_of_several_under_any_name_keeps_the_others(self):
        ROOT.define("pkg/several", [named("first"), named("second"), named("third")])
        self.done("reload")
        self.assertIn("pkg/second", self.done("disable", "second").stdout)
        self.done("edit", "pkg/third", EDITOR="sed -i s/23/22/")
        self.done("add", "-", "--pkg", "--replace", text=json.dumps(named("first", timeout=9)))
        self.assertEqual(ROOT.stored("pkg/several"),
                         [named("first", timeout=9), named("second", enabled=False), named("third", crontab="30 22 * * 1")])
        ended = self.done("add", "-", "--pkg", "--replace", text=json.dumps(named("several")), status=1)
        self.assertIn("several.conf is where this job would be stored, and holds something else", ended.stderr)
        self.done("remove", "first", "third")
        self.assertEqual(ROOT.stored("pkg/several"), [named("second", enabled=False)])
        self.done("remove", "second")
        self.assertFalse(ROOT.file("pkg/several").exists())

    def test_of_changes_at_the_same_time_each_that_is_done_stays(self):
        names = [f"at-once{number}" for number in range(10)]
        ROOT.define("pkg/at-once", [named(name) for name in names])
        tools = [subprocess.Popen(ROOT.command("disable", name), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                                  env=rooted.ENVIRONMENT) for name in names]
        told = [(tool.communicate(timeout=60)[1], tool.returncode) for tool in tools]
        disabled = [job.get("enabled") is False for job in ROOT.stored("pkg/at-once")]
        self.assertEqual([status == 0 for _, status in told], disabled, told)
        self.assertIn(True, disabled)
        for error, status in told:
            self.assertIn("was changed by somebody else meanwhile" if status else "", error)
        self.done("remove", *names)

    def test_whoever_holds_the_lock_of_a_folder_keeps_nobody_from_changing_it(self):
        self.done("add", "-", text=json.dumps(named("locked")))
        folder = os.open(ROOT.file("builtin-dyn/locked").parent, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_SH)
        self.done("disable", "locked")
        self.assertIs(ROOT.stored("builtin-dyn/locked")["enabled"], False)

    def test_an_interruption_ends_it_before_all_writes_or_after_them(self):
        names = [f"many{number}" for number in range(60)]
        tool = subprocess.Popen(ROOT.command("add", "-"), stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True,
                                env=rooted.ENVIRONMENT)
        tool.stdin.write(json.dumps([named(name) for name in names]))
        tool.stdin.close()
        while tool.poll() is None and not any(ROOT.file(f"builtin-dyn/{name}").exists() for name in names):
            time.sleep(0)
        tool.send_signal(signal.SIGINT)
        tool.wait(60)
        self.assertEqual([name for name in names if not ROOT.file(f"builtin-dyn/{name}").exists()], [])
        self.done("remove", *names)

    def test_of_one_that_is_killed_all_is_there_or_nothing(self):
        names = [f"kill{number}" for number in range(40)]
        text = json.dumps([named(name) for name in names])
        folder = ROOT.file("builtin-dyn/x").parent
        tool = subprocess.Popen(ROOT.command("add", "-"), stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True,
                                env=rooted.ENVIRONMENT)
        tool.stdin.write(text)
        tool.stdin.close()
        while tool.poll() is None and not list(folder.glob(".vukocronctl-new-*")):
            time.sleep(0)
        tool.kill()
        tool.wait(60)
        found = ROOT.run("disable", "kill0").returncode == 0
        self.assertEqual(len(list(folder.glob("kill*"))), 40 if found else 0)
        if not found:
            self.done("add", "-", text=text)
        self.assertEqual((len(list(folder.glob("kill*"))), list(folder.glob(".vukocronctl-*"))), (40, []))
        # One that had decided: whoever looks for a job next brings it to its end.
        for name in names[:20]:
            (folder / f"{name}.conf").rename(folder / f".vukocronctl-new-{name}.conf")
        (folder / ".vukocronctl-decided").touch()
        self.done("remove", *names)
        self.assertEqual((list(folder.glob("kill*")), list(folder.glob(".vukocronctl-*"))), ([], []))

    def test_what_somebody_puts_there_meanwhile_stays_and_is_named(self):
        names = [f"taken{number}" for number in range(10, 50)]
        folder = ROOT.file("builtin-dyn/x").parent
        theirs = folder / "taken30.conf"
        for _ in range(20):
            tool = subprocess.Popen(ROOT.command("add", "-"), stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                    stderr=subprocess.PIPE, text=True, env=rooted.ENVIRONMENT)
            tool.stdin.write(json.dumps([named(name) for name in names]))
            tool.stdin.close()
            while tool.poll() is None and not list(folder.glob(".vukocronctl-new-*")):
                time.sleep(0)
            try:
                theirs.symlink_to("nowhere")
            except FileExistsError:  # it was too quick
                tool.wait(60)
                self.done("remove", *names)
            with tool:
                error = tool.stderr.read()
            if theirs.is_symlink():
                break
        self.assertEqual((tool.returncode, error), (1, f"vukocronctl: {theirs} cannot be written: File exists. Nothing is changed\n"))
        self.assertEqual((list(folder.glob("taken*")), list(folder.glob(".vukocronctl-*"))), ([theirs], []))
        theirs.unlink()

    def test_a_job_that_stands_twice_is_removed_wholly(self):
        ROOT.define("pkg/a-first", named("twice"))
        ROOT.define("pkg/b-second", [named("twice", timeout=3), named("companion")])
        self.done("remove", "pkg/twice")
        self.assertIsNone(self.known("pkg/twice"))
        self.assertEqual((ROOT.stored("pkg/a-first"), ROOT.stored("pkg/b-second")), (None, [named("companion")]))

    def test_a_name_in_two_folders_has_to_be_said_whole(self):
        ROOT.define("builtin-dyn/both", named("both"))
        ROOT.define("pkg/both", named("both"))
        self.assertIn("builtin-dyn/both, pkg/both", self.done("disable", "both", status=2).stderr)
        self.done("remove", "pkg/both")
        self.assertEqual(ROOT.stored("builtin-dyn/both"), named("both"))

    def test_a_job_that_came_with_the_system_is_left_alone(self):
        path = ROOT.define("builtin/shipped", named("shipped"))
        for words in (["edit"], ["remove"], ["disable"]):
            ended = self.done(*words, "shipped", status=1, EDITOR="sed -i s/23/22/")
            self.assertIn("comes with the system", ended.stderr)
        self.assertEqual(json.loads(path.read_text()), named("shipped"))

    def test_what_runs_goes_on_without_its_definition(self):
        self.done("add", "--name", "long", "--daily", "--", "/bin/sleep", "1")
        self.done("run", "long")
        self.assertRegex(self.done("remove", "long").stdout, r"^Removed builtin-dyn/long; its process \d+ goes on\.\n$")


class PackageAccount(Case):
    JOB = {"name": "index", "user": "package", "package_username": "nobody", "period": "hourly", "cmd_list": ["/usr/bin/true"]}

    @classmethod
    def setUpClass(cls):
        cls.folder = ROOT.package("photos", NOBODY)
        cls.foreign = ROOT.package("foreign", 1)

    def test_does_all_with_the_jobs_of_its_own_package(self):
        ended = self.done("add", "--name", "index", "--hourly", "--", "true", uid=NOBODY)
        self.assertRegex(ended.stdout, rf"^Added pkg_nonroot/photos/index; {NEXT}\.\n$")
        self.assertEqual(ROOT.stored("pkg_nonroot/photos/index"), self.JOB)
        ended = self.done("add", "-", "--replace", uid=NOBODY, text=json.dumps({**self.JOB, "package_username": "root", "timeout": 3}))
        self.assertIn("timeout: (none) -> 3", ended.stdout)
        self.assertIn("disabled", self.done("disable", "index", uid=NOBODY).stdout)
        self.done("edit", "index", uid=NOBODY, EDITOR="sed -i s/hourly/weekly/")
        self.assertEqual(self.known("index"), {**self.JOB, "timeout": 3, "enabled": False, "period": "weekly"})
        self.done("remove", "index", uid=NOBODY)
        self.assertEqual((self.known("index"), list(self.folder.iterdir())), (None, []))

    def test_makes_its_own_of_what_root_has_put_there(self):
        path = ROOT.define("pkg_nonroot/photos/brought", {**self.JOB, "name": "brought"})
        self.done("disable", "brought", uid=NOBODY)
        self.assertEqual((path.stat().st_uid, ROOT.stored("pkg_nonroot/photos/brought")["enabled"]), (NOBODY, False))
        self.done("remove", "brought", uid=NOBODY)

    def test_may_not_touch_what_is_others(self):
        ROOT.define("builtin-dyn/system", named("system"))
        ROOT.define("pkg_nonroot/foreign/theirs", {**self.JOB, "name": "theirs", "package_username": "daemon"})
        for words, message in [(["disable", "builtin-dyn/system"], "only root may change it (try sudo)"),
                               (["remove", "system"], "only root"), (["disable", "theirs"], "account daemon"),
                               (["add", "--name", "x", "--daily", "--package", "foreign", "--", "true"], "account daemon"),
                               (["add", "--name", "x", "--daily", "--pkg", "--", "true"], "only root")]:
            with self.subTest(words):
                ended = self.done(*words, uid=NOBODY, status=4)
                self.assertEqual(ended.stdout, "")
                self.assertIn(message, ended.stderr)
        self.assertIn("owns no package's folder", self.done("add", "--name", "x", "--daily", "--", "true", uid=2, status=4).stderr)
        self.done("add", "-", uid=NOBODY, status=1, text=json.dumps(named("rooted")))
        self.assertFalse((self.folder / "rooted.conf").exists())

    def test_says_which_package_where_it_has_several(self):
        second = ROOT.package("second", NOBODY)
        self.addCleanup(second.rmdir)
        ended = self.done("add", "--name", "which", "--daily", "--", "true", uid=NOBODY, status=2)
        self.assertIn("photos, second: say which by --package", ended.stderr)
        self.done("add", "--name", "which", "--daily", "--package", "second", "--", "true", uid=NOBODY)
        self.done("remove", "which", uid=NOBODY)

    def test_gets_what_root_adds_there_as_its_own(self):
        self.done("add", "--name", "given", "--daily", "--package", "photos", "--", "true")
        entry = (self.folder / "given.conf").stat()
        self.assertEqual((entry.st_uid, stat.S_IMODE(entry.st_mode)), (NOBODY, 0o600))
        self.done("disable", "given", uid=NOBODY)
        self.done("remove", "given")

    def test_is_told_of_folders_that_it_may_not_read(self):
        folder = ROOT.define("builtin-dyn/hidden", named("hidden")).parent
        self.addCleanup(folder.chmod, 0o755)
        folder.chmod(0o750)
        for job in ("hidden", "builtin-dyn/hidden"):
            self.assertIn(f"may not read {folder} (try sudo)", self.done("disable", job, uid=NOBODY, status=4).stderr)
        self.done("disable", "hidden")

    def test_a_link_that_leads_nowhere_is_removed(self):
        place = self.folder / "nowhere.conf"
        for options in ({}, {"uid": NOBODY}):
            place.symlink_to("/no/such/file")
            os.lchown(place, NOBODY, NOBODY)
            self.assertIn("Removed", self.done("remove", "nowhere", **options).stdout)
            self.assertFalse(os.path.lexists(place))

    def test_cannot_lead_root_astray(self):
        with tempfile.TemporaryDirectory() as outside:
            target = pathlib.Path(outside) / "target"
            target.write_text("root's")
            place = self.folder / "trap.conf"
            traps = {"a link": lambda: place.symlink_to(target), "a pipe": lambda: os.mkfifo(place),
                     "a second name": lambda: os.link(target, place),
                     "a file for all": lambda: (place.write_text("{}"), place.chmod(0o666))}
            for what, trap in traps.items():
                with self.subTest(what):
                    trap()
                    os.chown(place, NOBODY, NOBODY, follow_symlinks=False)
                    words = ["add", "--name", "trap", "--daily", "--package", "photos", "--", "true"]
                    self.assertIn("is there already", self.done(*words, status=1).stderr)
                    self.done(*words[:1], "--replace", *words[1:])
                    entry = place.lstat()
                    self.assertTrue(stat.S_ISREG(entry.st_mode))
                    self.assertEqual((entry.st_nlink, stat.S_IMODE(entry.st_mode)), (1, 0o600))
                    self.assertEqual(self.known("trap")["cmd_list"], ["/usr/bin/true"])
                    self.assertEqual(target.read_text(), "root's")
                    self.done("remove", "trap")
            link = self.folder.parent / "linked"
            link.symlink_to(outside)
            self.addCleanup(link.unlink)
            self.done("add", "--name", "x", "--daily", "--package", "linked", "--", "true", status=1)
            self.assertEqual(os.listdir(outside), ["target"])


class OwnService(unittest.TestCase):
    def test_whoever_runs_a_service_of_his_own_is_told_what_root_is(self):
        own = rooted.Root(TOOL, SERVICE)
        self.addCleanup(own.close)
        for folder in (own.path, *own.path.rglob("*")):
            os.chown(folder, NOBODY, NOBODY)
        own.start(NOBODY)
        ended = own.run("add", "--name", "mine", "--crontab", "30 23 * * 1", "--", "true", uid=NOBODY)
        self.assertRegex(ended.stdout, rf"^Added builtin-dyn/mine; {NEXT}\.\n$")
        ended = own.run("import", "crontab", "-", "--user", "root", uid=NOBODY, text="30 23 * * * /bin/soon\n")
        self.assertRegex(ended.stdout, rf"note: builtin-dyn/soon; {NEXT} \[next-start\]")


class Disk(Case):
    def in_namespace(self, text, *words):
        """Runs the tool where something is mounted over the folder of the system's jobs."""
        folder = ROOT.file("builtin-dyn/x").parent
        script = f"cd {shlex.quote(str(folder))} && {text} && {shlex.join(ROOT.command(*words))}; status=$?; cd . ; ls -A {folder}; cat {folder}/kept.conf; exit $status"
        return subprocess.run(["unshare", "-m", "sh", "-c", script], capture_output=True, text=True, timeout=30, check=False,
                              env=rooted.ENVIRONMENT, input=json.dumps([named("kept", timeout=1), named("new1"), named("new2"), named("new3")]))

    def test_a_full_disk_leaves_all_as_it_was(self):
        kept = json.dumps(named("kept"))
        folder = ROOT.file("builtin-dyn/x").parent
        ended = self.in_namespace(f"mount -t tmpfs -o nr_inodes=4,mode=755 none {folder} && echo {shlex.quote(kept)} >{folder}/kept.conf",
                                  "add", "-", "--replace")
        self.assertEqual(ended.returncode, 1, ended)
        self.assertIn("cannot be written: No space left on device. Nothing is changed", ended.stderr)
        names, _, text = ended.stdout.partition("\n")
        self.assertEqual((names, json.loads(text)), ("kept.conf", named("kept")))

    def test_a_folder_that_cannot_be_written_is_told(self):
        folder = ROOT.file("builtin-dyn/x").parent
        ended = self.in_namespace(f"mount --bind {folder} {folder} && mount -o remount,ro,bind {folder}", "add", "-")
        self.assertEqual(ended.returncode, 1)
        self.assertIn("cannot be written: Read-only file system. Nothing is changed", ended.stderr)
        package = ROOT.package("shut", NOBODY)
        package.chmod(0o555)
        ended = self.done("add", "--name", "x", "--daily", "--package", "shut", "--", "true", uid=NOBODY, status=4)
        self.assertIn("cannot be written: Permission denied", ended.stderr)
        package.rmdir()


class Steer(Case):
    @classmethod
    def setUpClass(cls):
        for name, command in [("quick", ["/bin/sh", "-c", "exit 7"]), ("killed", ["/bin/sh", "-c", "kill -9 $$"]),
                              ("sleeper", ["/bin/sleep", "2"])]:
            ROOT.define(f"builtin-dyn/{name}", named(name, cmd_list=command))
        assert ROOT.run("reload").returncode == 0

    def test_run_tells_where_to_look_or_waits_and_ends_as_the_job(self):
        self.assertIn("Started builtin-dyn/quick", self.done("run", "quick").stdout)
        ended = self.done("run", "killed", "--wait", status=128 + signal.SIGKILL)
        self.assertRegex(ended.stdout, r"^builtin-dyn/killed: signal 9 after \d+ms\n$")
        self.assertEqual(ended.stderr, "")

    def test_waiting_shows_its_time_and_can_be_ended(self):
        pane = TERMINALS.start(ROOT.command("run", "sleeper", "--wait"), width=14)
        pane.until(lambda text: text == "sleeper… 1s")
        pane.keys("C-c")
        pane.until(lambda text: text.replace("\n", "").endswith('the job goes on, see "vukocronctl show sleeper".'))
        self.assertNotIn("1s", pane.text())
        self.assertEqual(pane.end().status, 130)
        self.assertEqual(self.told("show", "sleeper")["state"], "running")

    def test_reroll_tells_the_values_and_the_next_start(self):
        ROOT.define("builtin-dyn/drawn", named("drawn", crontab="~ 3 * * *"))
        self.done("reload")
        ended = self.done("reroll", "drawn")
        self.assertRegex(ended.stdout, rf"^builtin-dyn/drawn: at 03:\d\d \(\d+ 3 -1 -1 -1\); {NEXT}\.\n$")
        self.assertIsInstance(self.told("reroll", "drawn")["next"], int)
        self.assertIn("sleeper: nothing of its schedule is random, at 23:30", self.done("reroll", "sleeper").stdout)

    def test_the_role_and_draining_tell_what_they_mean_and_the_way_back(self):
        self.addCleanup(self.done, "role", "active")
        self.addCleanup(self.done, "drain", "--off")
        self.assertIn('"vukocronctl role active" makes it active', self.done("role", "passive").stdout)
        ROOT.define("builtin-dyn/waiting", named("waiting"))
        self.assertIn("but not while this machine is passive", self.done("disable", "waiting").stdout
                      + self.done("enable", "waiting").stdout)
        self.assertIn('"vukocronctl drain --off" starts jobs again', self.done("drain").stdout)
        self.assertIn("but not while the service is drained", self.done("reroll", "waiting").stdout)

    def test_the_template_tells_whom_a_change_concerns(self):
        self.assertRegex(self.done("template").stdout, r"^Random fields: minute \d+, hour \d+, day \d+, month \d+, weekday \d\. "
                         r"Jobs of a random minute are spread over \d+ s\.\n$")
        self.assertIn("Jobs keep the values they have", self.done("template", "reroll").stdout)
        self.assertIn("from the next minute on", self.done("template", "set-delay", "77").stdout)
        self.assertIn("a number of seconds", self.done("template", "set-delay", status=2).stderr)
        self.assertIn("SECONDS are for set-delay", self.done("template", "show", "5", status=2).stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
