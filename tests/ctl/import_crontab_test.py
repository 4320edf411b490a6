#!/usr/bin/env -S python3 -B
"""Crontabs become definitions: what each form becomes, minute by minute and byte by byte, and that nothing is stored
when not all can be.

usage: import_crontab_test.py TOOL SERVICE
"""

import glob
import json
import os
import random
import resource
import subprocess
import sys
import tempfile
import unittest

import classic
import terminal

TOOL, SERVICE = sys.argv[1:3]
ENVIRONMENT = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "TZ": "UTC"}


def tool(*arguments, text="", root=None, **options):
    data = text if isinstance(text, bytes) else text.encode()
    command = [TOOL] + (["--root", root] if root else []) + ["import", "crontab", *arguments]
    done = subprocess.run(command, capture_output=True, input=data, timeout=60, check=False, env=ENVIRONMENT, **options)
    done.stdout, done.stderr = done.stdout.decode(), done.stderr.decode()
    return done


class Converted(unittest.TestCase):
    """Without a service and without storing."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def items(self, text, *arguments):
        done = tool("-", *(arguments or ["--user", "root"]), "--dry-run", "--json", text=text, root=self.folder.name)
        self.assertIn(done.returncode, (0, 1), done.stderr)
        return json.loads(done.stdout)["items"]

    def job(self, text, *arguments):
        items = [item for item in self.items(text, *arguments) if item["result"] != "setting"]
        self.assertEqual([item["result"] for item in items], ["converted"], items)
        return items[0]["jobs"][0]["definition"]

    def run_command(self, text, home="/", shell_environment=None):
        """What the command of a crontab's only line prints, with an environment that is not cron's."""
        environment = {"HOME": home, "LOGNAME": "root", **(shell_environment or {"PATH": "/nowhere", "SHELL": "/nowhere"})}
        return subprocess.run(self.job(text)["cmd_list"], env=environment, cwd=home, stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=20, check=False).stdout.decode()


class Times(Converted):
    def test_each_form_of_a_time(self):
        forms = {"17 * * * *": ["17 * * * *"], "*/15 * * * *": ["0,15,30,45 * * * *"], "0 */6 * * *": ["0 0,6,12,18 * * *"],
                 "0 9-17/4 * * mon-fri": ["0 9,13,17 * * 1,2,3,4,5"], "0 0 * * 7": ["0 0 * * 0"], "0 0 * * 5-7": ["0 0 * * 0,5,6"],
                 "0 0 1 Jan,jul *": ["0 0 1 1,7 *"], "0-59 * * * *": ["* * * * *"], "@hourly": ["0 * * * *"], "@daily": ["0 0 * * *"],
                 "@midnight": ["0 0 * * *"], "@weekly": ["0 0 * * 0"], "@monthly": ["0 0 1 * *"], "@yearly": ["0 0 1 1 *"],
                 "@annually": ["0 0 1 1 *"], "~ 3 * * *": ["0~59 3 * * *"], "10~20,40 ~6 * * *": ["40,10~20 0~6 * * *"],
                 "0 0 ~ * *": ["0 0 1~31 * *"], "0 0 * * ~": ["0 0 * * 0~6"], "0 0 * mar~ *": ["0 0 * 3~12 *"], "0 0 */2 * 1": ["0 0 1,3,5,7,9,11,13,15,17,19,21,23,25,27,29,31 * 1"],
                 "0 0 30 2 *": ["0 0 30 2 *"], "0 0 30 2 1": ["0 0 * 2 1"], "0 0 1-31 * 1": ["0 0 * * *"],
                 "0 0 1,15 * 5": ["0 0 1,15 * *", "0 0 2,3,4,5,6,7,8,9,10,11,12,13,14,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31 * 5"]}
        items = self.items("".join(f"{form} /bin/true\n" for form in forms))
        for form, item in zip(forms, items):
            with self.subTest(form):
                self.assertEqual([job["definition"]["crontab"] for job in item["jobs"]], forms[form], item)
        self.assertEqual(len(items), len(forms))

    def test_what_cannot_be_said_is_refused_with_its_reason(self):
        forms = {"@reboot /bin/true": "start at boot", "@every_second /bin/true": "no schedule", "60 * * * * /bin/true": 'minute "60"',
                 "5/15 * * * * /bin/true": 'write "5" or "5-59/15"', "* 22-2 * * * /bin/true": 'write "22-23,0-2"', "0 0 * * sat-sun /bin/true": 'write "6,0"',
                 "* * * * moon /bin/true": "day of week", "1,,2 * * * * /bin/true": "minute", "1, * * * * /bin/true": "minute", ",~ * * * * /bin/true": "minute", "~,,5 * * * * /bin/true": "minute",
                 "0 0 ~ * 1 /bin/true": "two jobs", "~ 0 1 * 1 /bin/true": "two jobs", "~/10 * * * * /bin/true": "minute",
                 "50~10 * * * * /bin/true": "minute", "0 0 * * 5~7 /bin/true": "day of week", "0 0 * *": "neither a setting nor",
                 "* * * * *": "no command", "0 0 * * * %input": "no command", "gibberish": "neither", "'A=1": "neither"}
        for form, item in zip(forms, self.items("".join(form + "\n" for form in forms))):
            with self.subTest(form):
                self.assertEqual((item["result"], item["jobs"]), ("cannot be expressed", []))
                self.assertIn(forms[form], item["reason"])

    def test_the_jobs_of_a_line_run_in_exactly_its_minutes_and_never_two_in_one(self):
        seed = int(os.environ.get("VUKO_SEED", random.SystemRandom().randrange(10**6)))
        print(f"VUKO_SEED={seed}")
        chance = random.Random(seed)
        lines = [classic.random_fields(chance) for _ in range(120)]
        in_two = 0
        for texts, item in zip(lines, self.items("".join(" ".join(texts) + " /bin/true\n" for texts in lines))):
            jobs = [[classic.here_values(text, field) for field, text in enumerate(job["definition"]["crontab"].split())]
                    for job in item["jobs"]]
            in_two += len(jobs) == 2
            for job in jobs:
                self.assertEqual(job[:2], [classic.classic_values(texts[field], field) for field in range(2)], item)
            matches = classic.classic_day_matcher(texts)
            for day in classic.DAYS:
                self.assertEqual(int(matches(day)), sum(classic.here_matches(job, day) for job in jobs), f"{item} {day}")
        self.assertGreater(in_two, 5)

    def test_the_random_values_the_two_days_and_the_clock_are_noted(self):
        for line, code in [("~ 3 * * *", "random-kept"), ("0 0 1 * 1", "days-by-or"), ("0 */2 * * *", "clock-change"),
                           ("*/5 2 * * *", "clock-change"), ("0-59 2 * * *", "clock-change")]:
            self.assertEqual([note["code"] for note in self.items(line + " /bin/true\n")[0]["notes"]], [code], line)
        for line in ["*/5 * * * *", "0 3 * * 1-5", "30 * 1 * *", "@hourly"]:
            self.assertEqual(self.items(line + " /bin/true\n")[0]["notes"], [], line)


class Commands(Converted):
    def test_percent_signs_and_backslashes_are_those_of_the_cron_of_debian(self):
        # What cron 3.0pl1-162 made of these lines.
        for command, printed in [(r"cat %l1%l2\%x\y%%end\\%z", "l1\nl2%x\\y\n\nend\\%z\n"), ("cat %a%", "a\n"), ("cat%", ""),
                                 ("cat %%", "\n"), (r"/usr/bin/printf '\%s' 'x\\y\z'", r"x\y\z"), (r"echo 100\%", "100%\n"),
                                 ("cat; echo after %in", "in\nafter\n"), ("echo $0 $#%in", "/bin/sh 0\n"),
                                 ("cat %it's \"q\" $HOME `x` -n", "it's \"q\" $HOME `x` -n\n")]:
            with self.subTest(command):
                self.assertEqual(self.run_command("* * * * * " + command + "\n"), printed)

    def test_settings_in_all_their_forms_reach_the_command(self):
        settings = "A = \"x y\"  \n'B'='q w'\nC=a b   \n\tD\t=\t'tail '\nE=$HOME \"z\"\nF=\n\"G\"=1\nC2=\"a=b\"\n# H=1\nLOGNAME=me\n"
        printed = self.run_command(settings + "* * * * * /usr/bin/env\n").splitlines()
        for line in ["A=x y", "B=q w", "C=a b", "D=tail ", 'E=$HOME "z"', "F=", "G=1", "C2=a=b", "LOGNAME=root",
                     "PATH=/usr/bin:/bin", "SHELL=/bin/sh", "HOME=/"]:
            self.assertIn(line, printed)
        self.assertNotIn("H=1", printed)

    def test_a_setting_holds_for_the_lines_after_it(self):
        items = self.items("A=1\n* * * * * /bin/a\nA=2\n* * * * * /bin/b\n")
        lists = [item["jobs"][0]["definition"]["cmd_list"] for item in items if item["jobs"]]
        self.assertEqual([command[1] for command in lists], ["A=1", "A=2"])

    def test_home_and_shell_and_path_are_honoured(self):
        settings = f"HOME={self.folder.name}\nSHELL=/bin/bash\nPATH=/bin\n"
        printed = self.run_command(settings + "* * * * * pwd; echo $HOME $SHELL $PATH; [[ a == a ]] && echo bash %x\n")
        self.assertEqual(printed, f"{self.folder.name}\n{self.folder.name} /bin/bash /bin\nbash\n")

    def test_what_no_shell_can_be_given_is_refused(self):
        for setting, reason in [("SHELL=bash", "no whole path"), ("A-B=1", "no name of a variable"), ("CRON_TZ=Asia/Tokyo", "zone Asia/Tokyo")]:
            items = self.items(setting + "\n* * * * * /bin/true\n")
            self.assertEqual(items[1]["result"], "cannot be expressed")
            self.assertIn(reason, items[1]["reason"])
        for zone in ("UTC", "Etc/UTC"): # the zone of these tests, by two of its names
            self.assertEqual(self.items(f"CRON_TZ={zone}\n* * * * * /bin/true\n")[1]["result"], "converted")

    def test_runs_may_overlap_as_they_do_there(self):
        self.assertEqual(self.job("* * * * * /bin/true\n")["overlap"], "allow")

    def test_names_say_what_is_run(self):
        names = {"/usr/local/bin/backup --quiet": "backup", "cd / && run-parts --report /etc/cron.hourly": "cron.hourly",
                 "test -x /usr/sbin/x || { cd / && run-parts /etc/cron.d.ly; }": "cron.d.ly", "A=1 B=2 /bin/tool x": "tool",
                 "[ -x /usr/lib/php/sessionclean ] && if [ ! -d /run/systemd/system ]; then /usr/lib/php/sessionclean; fi": "sessionclean",
                 "nice -n 19 ionice -c3 /bin/scrub": "scrub", "/usr/bin/python3 -B /opt/a/report.py": "report.py", "echo hallo": "echo",
                 "/opt/größe": "gr-e", "cd /x": "job", "sh -c 'x'": "sh", "(/bin/a)": "a", "command -v x > /dev/null && x -q": "x"}
        for item, (command, name) in zip(self.items("".join(f"0 0 * * * {command}\n" for command in names)), names.items()):
            self.assertEqual(item["jobs"][0]["id"].removeprefix("builtin-dyn/").rstrip("-0123456789"), name.rstrip("-0123456789"), command)


class Formats(Converted):
    def test_the_column_of_the_account(self):
        items = self.items("0 0 * * * root /bin/a\n@daily nobody /bin/b c\n0 0 * * * no-such-account /bin/c\n0 0 * * * root\n"
                           "0 0 * * * /bin/d e\n", "--system")
        definitions = [item["jobs"][0]["definition"] for item in items[:3]]
        self.assertEqual([(one["user"], one.get("package_username")) for one in definitions],
                         [("root", None), ("package", "nobody"), ("package", "no-such-account")])
        self.assertEqual(definitions[1]["cmd_list"][-1], "/bin/b c")
        self.assertEqual([note["code"] for note in items[2]["notes"]], ["account"])
        for item in items[3:]:
            self.assertIn("lacks the account or the command", item["reason"])

    def test_an_account_s_crontab(self):
        definition = self.job("0 0 * * * /bin/a\n", "--user", "nobody")
        self.assertEqual((definition["user"], definition["package_username"]), ("package", "nobody"))
        for line in ("0 0 * * * root /bin/a\n", "0 0 * * * * /bin/a\n"):
            self.assertEqual(self.items(line)[0]["notes"][0]["code"], "format")

    def test_is_asked_for_where_the_file_s_place_does_not_tell_it(self):
        done = tool("-", "--dry-run", text="@daily /bin/true\n")
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertIn("--user ACCOUNT, or --system", done.stderr)
        for arguments in [["-", "--system", "--user", "root"], ["-", "--user", "root", "--unit", "x"], []]:
            self.assertEqual(tool(*arguments, "--dry-run").returncode, 2, arguments)

    @unittest.skipUnless(os.path.exists("/etc/crontab"), "there is no /etc/crontab")
    def test_the_system_s_own_crontab_needs_no_word(self):
        done = tool("/etc/crontab", "--dry-run", "--json", root=self.folder.name)
        self.assertEqual({job["definition"]["user"] for item in json.loads(done.stdout)["items"] for job in item["jobs"]}, {"root"})

    def test_mail_is_told_and_comments_and_blank_lines_are_not(self):
        items = self.items("# a comment\n\n   \n  # another\nMAILTO=paul\nMAILTO=\n")
        self.assertEqual([(item["where"], item["result"], [note["code"] for note in item["notes"]]) for item in items],
                         [("standard input:5", "setting", ["mail"]), ("standard input:6", "setting", [])])

    def test_broken_files(self):
        self.assertEqual([note["code"] for note in self.items("0 0 * * * /bin/a")[0]["notes"]], ["no-newline"])
        self.assertEqual(self.items(""), [])
        for text, reason in [("0 0 * * * /bin/a\r\n", "carriage return"), (b"0 0 * * * /bin/\xe4\n", "no UTF-8"),
                             ("0 0 * * * " + "a" * 2**20 + "\n", "131071")]:
            items = self.items(text)
            self.assertEqual([item["result"] for item in items], ["cannot be expressed"])
            self.assertIn(reason, items[0]["reason"])
        done = tool("-", "--user", "root", text=b"# a\n0 0 * * * /bin/a\0b\n", root=self.folder.name)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("-:2: holds a NUL byte", done.stderr)
        for path, reason in [("/no/such", "No such file"), (self.folder.name, "Is a directory"), ("/dev/zero", "is larger than")]:
            done = tool(path, "--user", "root", root=self.folder.name)
            self.assertEqual(done.returncode, 1)
            self.assertIn(reason, done.stderr)


class Stored(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = self.folder.name
        self.jobs = self.root + "/usr/vuko/etc/vukocron.d"
        os.makedirs(self.jobs)

    def store(self, text, *arguments, **options):
        return tool("-", "--user", "root", *arguments, text=text, root=self.root, **options)

    def stored(self):
        definitions = {}
        for path in glob.glob(self.jobs + "/*.conf"):
            if os.path.isfile(path):
                with open(path, encoding="utf-8") as file:
                    definitions[os.path.basename(path)[:-5]] = json.load(file)
        return definitions

    def test_the_service_takes_what_is_stored(self):
        text = "A=1\n*/5 0 1 * 1 root /bin/a%x\n@daily nobody /bin/b\n"
        done = tool("-", "--system", "--prefix", "old-", text=text, root=self.root)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(sorted(self.stored()), ["old-a", "old-a-2", "old-b"])
        done = subprocess.run([SERVICE, "--root", self.root, "--check"], capture_output=True, text=True, timeout=30, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_importing_twice_doubles_nothing(self):
        text = "0 1 * * * /bin/a\n0 2 * * * /bin/a\n0 2 * * * /bin/a\n"
        self.assertEqual(self.store(text).returncode, 0)
        former = self.stored()
        done = self.store("0 3 * * * /bin/other\n" + text)
        self.assertRegex(done.stdout, r"all: note: the service cannot be reached .*; the jobs will be known when the service starts \[no-service\]\n")
        self.assertEqual((done.returncode, done.stdout.count(": existing: a")), (0, 3), done.stdout)
        self.assertEqual({name: former.get(name) for name in self.stored()}, {**former, "other": None})

    def test_an_enabled_or_disabled_job_is_the_same_one(self):
        self.assertEqual(self.store("0 1 * * * /bin/a\n", "--disabled").returncode, 0)
        self.assertIs(self.stored()["a"]["enabled"], False)
        self.assertIn(": existing: a", self.store("0 1 * * * /bin/a\n").stdout)

    def test_another_job_of_the_name_is_not_touched_unless_that_is_asked_for(self):
        self.store("0 1 * * * /bin/a\n")
        former = self.stored()
        done = self.store("0 2 * * * /bin/b\n0 2 * * * /bin/a\n")
        self.assertEqual(done.returncode, 1)
        self.assertIn("standard input:2: conflict: a", done.stdout)
        self.assertIn("result: nothing is stored", done.stdout)
        self.assertEqual(self.stored(), former)
        self.assertEqual(self.store("0 2 * * * /bin/a\n", "--replace").returncode, 0)
        self.assertEqual(self.stored()["a"]["crontab"], "0 2 * * *")

    def test_nothing_is_stored_when_a_line_cannot_be_expressed(self):
        text = "0 1 * * * /bin/a\n@reboot /bin/b\n0 1 * * * /bin/c\n"
        done = self.store(text)
        self.assertEqual((done.returncode, self.stored()), (1, {}))
        self.assertIn("standard input:2: cannot be expressed: ", done.stdout)
        done = self.store(text, "--skip-inexpressible")
        self.assertEqual((done.returncode, sorted(self.stored())), (0, ["a", "c"]))

    def test_a_dry_run_stores_nothing_and_says_the_same(self):
        done = self.store("0 1 * * * /bin/a\n", "--dry-run")
        self.assertEqual((done.returncode, self.stored()), (0, {}))
        self.assertIn("result: 1 job to be stored", done.stdout)
        text = "0 1 * * * /bin/a\n@reboot /bin/b\n"
        self.assertIn("result: nothing would be stored, 1 cannot be expressed: --skip", self.store(text, "--dry-run").stdout)
        done = self.store(text, "--dry-run", "--skip-inexpressible")
        self.assertRegex(done.stdout, "result: 1 job to be stored in .*, 1 cannot be expressed\n$")

    def test_a_write_that_fails_in_the_middle_takes_back_those_before_it(self):
        self.store("0 1 * * * /bin/b\n")
        former = self.stored()
        text = "0 2 * * * /bin/a\n0 2 * * * /bin/b\n0 2 * * * /bin/c # " + "x" * 8192 + "\n0 2 * * * /bin/d\n"
        done = self.store(text, "--replace", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096)),
                          restore_signals=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("File too large", done.stderr)
        self.assertEqual((self.stored(), done.stdout), (former, ""))

    def test_what_is_in_the_way_is_told_and_nothing_is_stored(self):
        os.mkdir(self.jobs + "/b.conf")
        done = self.store("0 2 * * * /bin/a\n0 2 * * * /bin/b\n0 2 * * * /bin/c\n")
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual(self.stored(), {})
        self.assertIn("b.conf", done.stdout + done.stderr)

    @unittest.skipUnless(os.geteuid() == 0, "needs an account to become")
    def test_an_account_stores_into_its_own_package(self):
        os.chmod(self.root, 0o755)
        package = self.root + "/usr/local/etc/vukocron_nonroot.d/photos"
        os.makedirs(package)
        os.chown(package, 65534, 65534)
        done = tool("-", "--user", "nobody", "--package", "photos", text="0 1 * * * /bin/a\n", root=self.root, user=65534)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(os.listdir(package), ["a.conf"])
        done = tool("-", "--user", "root", "--package", "photos", text="0 1 * * * /bin/a\n", root=self.root)
        self.assertIn('expected "package" in this folder', done.stdout)
        done = tool("-", "--user", "nobody", text="0 1 * * * /bin/a\n0 1 * * * /bin/b\n", root=self.root, user=65534)
        self.assertIn(f"1 job stored in {package}, 1 there already", done.stdout) # as the only one that it has
        self.assertEqual(tool("-", "--user", "bin", text="0 1 * * * /bin/a\n", root=self.root, user=2).returncode, 4)

    def test_a_person_sees_a_table_that_fits_and_the_notes_below_it(self):
        path = self.root + "/old.crontab"
        with open(path, "w", encoding="utf-8") as file:
            file.write("*/10 * * * * /usr/local/bin/poll --quiet --and --some --more --words\n@reboot /bin/b \x1b[31m\n~ 1 * * * /bin/c\n")
        command = [TOOL, "--no-pager", "--root", self.root, "import", "crontab", path, "--user", "root"]
        with terminal.Terminals() as terminals:
            for width in (80, 200):
                shown = terminals.run(command, width=width)
                self.assertEqual(shown.status, 1)
                self.assertRegex(shown.lines[0], "^FROM    RESULT  +JOB  +SCHEDULE +ORIGINAL$")
                self.assertRegex(shown.lines[1], "^line 1  converted .* poll ")
                self.assertEqual("--words" in shown.lines[1], width == 200)
                self.assertIn("line 2: cannot be expressed: a start at boot", shown.text)
                self.assertIn("line 3: note: the random value", shown.text)
                self.assertTrue(shown.has_colour)
            self.assertFalse(terminals.run(command, width=200, NO_COLOR="1").has_colour)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
