#!/usr/bin/env -S python3 -B
"""The control tool as a person or a script meets it: what it prints, and what it ends with.

usage: ctl_test.py TOOL SERVICE
"""

import json
import os
import random
import subprocess
import sys
import tempfile
import time
import unittest

import classic

TOOL, SERVICE = sys.argv[1:3]
UNPRIVILEGED = 65534


def tool(*arguments, root=None, uid=None, text=None):
    command = [TOOL] + (["--root", root] if root else []) + list(arguments)
    return subprocess.run(command, capture_output=True, text=True, input=text, timeout=60, check=False, user=uid,
                          env={"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8"})


def starts(*arguments):
    done = tool("next", "--json", *arguments)
    assert done.returncode == 0, done.stderr
    return [(start["local"], start["reason"]) for start in json.loads(done.stdout)["jobs"][0]["next"]]


class Next(unittest.TestCase):
    def test_a_minute_that_the_zone_leaves_out_is_made_up_for(self):
        self.assertEqual(starts("--crontab", "30 2 * * *", "-n", "3", "--from", "2026-03-28T00:00", "--tz", "Europe/Berlin"),
                         [("2026-03-28T02:30:00+01:00", "due"), ("2026-03-29T03:00:00+02:00", "made-up"),
                          ("2026-03-30T02:30:00+02:00", "due")])

    def test_a_minute_that_comes_twice_is_run_once(self):
        self.assertEqual(starts("--crontab", "30 2 * * *", "-n", "2", "--from", "2026-10-25T00:00", "--tz", "Europe/Berlin"),
                         [("2026-10-25T02:30:00+02:00", "due"), ("2026-10-26T02:30:00+01:00", "due")])

    def test_the_literal_policy_leaves_out_and_repeats(self):
        self.assertEqual(starts("--crontab", "30 2 * * *", "-n", "2", "--from", "2026-03-28T12:00", "--tz",
                                "Europe/Berlin", "--policy", "literal")[0], ("2026-03-30T02:30:00+02:00", "due"))
        self.assertEqual(starts("--crontab", "30 2 * * *", "-n", "2", "--from", "2026-10-25T00:00", "--tz",
                                "Europe/Berlin", "--policy", "literal"),
                         [("2026-10-25T02:30:00+02:00", "due"), ("2026-10-25T02:30:00+01:00", "due")])

    def test_strictly_after_the_time(self):
        self.assertEqual(starts("--crontab", "0 0 * * *", "--from", "2026-01-01T00:00", "--tz", "UTC"),
                         [("2026-01-02T00:00:00+00:00", "due")])
        self.assertEqual(starts("--crontab", "0 0 * * *", "--from", "@1767225599", "--tz", "UTC"),
                         [("2026-01-01T00:00:00+00:00", "due")])

    def test_a_day_that_the_zone_leaves_out_was_never(self):
        self.assertEqual(starts("--crontab", "0 12 30 12 *", "--from", "2011-12-01T00:00", "--tz", "Pacific/Apia"),
                         [("2012-12-30T12:00:00+14:00", "due")])

    def test_nothing_within_nine_years(self):
        self.assertEqual(starts("--crontab", "0 0 30 2 *", "-n", "3", "--from", "2026-01-01T00:00", "--tz", "UTC"), [])
        self.assertEqual(starts("--crontab", "0 0 29 2 2", "-n", "3", "--from", "2026-01-01T00:00", "--tz", "UTC"),
                         [("2028-02-29T00:00:00+00:00", "due")])

    def test_names_the_zone_and_the_policy(self):
        told = json.loads(tool("next", "--json", "--crontab", "* * * * *", "--tz", "Asia/Kathmandu").stdout)
        self.assertEqual((told["zone"], told["policy"], told["jobs"][0]["crontab"]),
                         ("Asia/Kathmandu", "catchup", "* * * * *"))

    def test_a_definition_file_or_standard_input(self):
        text = json.dumps([{"name": "a", "user": "root", "period": "c", "crontab": "5 4 * * *", "cmd": "/bin/true"}])
        done = tool("next", "--file", "-", "--from", "2026-01-01T00:00", "--tz", "UTC", "--json", text=text)
        self.assertEqual(json.loads(done.stdout)["jobs"][0]["next"][0]["epoch"], 1767240300)

    def test_people_see_what_starts_first_at_the_top(self):
        text = json.dumps([{"name": name, "user": "root", "period": "c", "crontab": fields, "cmd": "/bin/true"}
                           for name, fields in [("never", "0 0 30 2 *"), ("late", "0 9 * * *"), ("early", "0 3 * * *")]])
        done = tool("next", "--file", "-", "-n", "2", "--from", "2026-01-01T00:00", "--tz", "UTC", text=text)
        self.assertEqual([line.split()[-1] for line in done.stdout.splitlines()],
                         ["JOB", "early", "late", "early", "late", "never"])

    def test_says_what_is_wrong_and_how_it_ends(self):
        for arguments, status, message in [
                (["next", "--crontab", "61 * * * *"], 1, '"61 * * * *": field "crontab": minute: 61 is not in 0..59'),
                (["next", "--crontab", "* * * * *", "--tz", "Mars/Olympus"], 2, "is no time zone"),
                (["next", "--crontab", "* * * * *", "--from", "yesterday"], 2, "is no time"),
                (["next", "--crontab", "* * * * *", "--from", "2026-02-30T00:00"], 2, "is no time"),
                (["next", "--crontab", "* * * * *", "--from", "0000-12-31T00:00"], 2, "is no time"),
                (["next", "--crontab", "* * * * *", "-n", "0"], 2, "-n"),
                (["next", "--crontab", "* * * * *", "--policy", "0"], 2, "--policy: 0 not in {literal,catchup}"),
                (["next", "--file", "/no/such/file"], 1, "/no/such/file: cannot be read: No such file or directory"),
                (["frobnicate"], 2, "vukocronctl: "), ([], 2, "vukocronctl: ")]:
            with self.subTest(arguments=arguments):
                done = tool(*arguments)
                self.assertEqual((done.returncode, done.stdout), (status, ""))
                self.assertIn(message, done.stderr)


    @unittest.skipUnless(os.geteuid() == 0, "needs an account that may not read")
    def test_what_one_may_not_read_is_told_by_the_exit_status(self):
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            path = folder + "/kept"
            with open(path, "w", encoding="utf-8") as file:
                os.chmod(path, 0o600)
                file.write("[]")
            span = ["--from", "@0", "--to", "@60"]
            for arguments in [["next", "--file", path], ["simulate", *span, path],
                              ["simulate", *span, "--events", path, "/dev/null"]]:
                done = tool(*arguments, uid=UNPRIVILEGED)
                self.assertEqual((done.returncode, done.stdout), (4, ""))
                self.assertIn(path + ": cannot be read: Permission denied", done.stderr)


class Simulate(unittest.TestCase):
    JOBS = [{"name": "hourly", "user": "root", "period": "c", "crontab": "0 * * * *", "cmd": "/bin/true"},
            {"name": "nightly", "user": "root", "period": "c", "crontab": "30 2 * * *", "cmd": "/bin/true"},
            {"name": "standby", "user": "root", "period": "c", "crontab": "15 * * * *", "cmd": "/bin/true",
             "run_on_passive": True},
            {"name": "kept-up", "user": "root", "period": "c", "crontab": "0 0 1 1 *", "cmd": "/bin/true",
             "assure_execute": 2, "assure_execute_action": "run"}]

    def simulate(self, events, first, last):
        with tempfile.TemporaryDirectory() as folder:
            jobs, file = folder + "/jobs.conf", folder + "/events"
            with open(jobs, "w", encoding="utf-8") as out:
                json.dump(self.JOBS, out)
            with open(file, "w", encoding="utf-8") as out:
                out.write(events)
            done = tool("simulate", "--from", first, "--to", last, "--tz", "UTC", "--events", file, "--json", jobs)
            self.assertEqual(done.returncode, 0, done.stderr)
            return json.loads(done.stdout)

    def test_starts_by_schedule_and_guarantee(self):
        told = self.simulate("", "2026-06-01T00:30", "2026-06-01T03:30")
        self.assertEqual([(start["local"][11:16], start["job"], start["reason"]) for start in told["starts"]],
                         [("01:00", "hourly", "due"), ("01:15", "standby", "due"), ("02:00", "hourly", "due"),
                          ("02:15", "standby", "due"), ("02:30", "nightly", "due"), ("02:31", "kept-up", "assure"),
                          ("03:00", "hourly", "due"), ("03:15", "standby", "due")])
        self.assertEqual(told["skips"], [])

    def test_the_passive_role(self):
        told = self.simulate("2026-06-01T01:00 passive\n2026-06-01T02:00 active # again\n", "2026-06-01T00:30",
                             "2026-06-01T02:10")
        self.assertEqual([start["job"] for start in told["starts"]], ["standby", "hourly"])
        self.assertEqual([(skip["job"], skip["reason"]) for skip in told["skips"]], [("hourly", "passive")])

    def test_minutes_passed_over(self):
        told = self.simulate("2026-06-01T02:10 clock +3600\n", "2026-06-01T02:05", "2026-06-01T03:14")
        self.assertEqual([(start["local"][11:16], start["job"], start["reason"]) for start in told["starts"]],
                         [("03:10", "nightly", "made-up")])
        self.assertEqual([(skip["job"], skip["reason"]) for skip in told["skips"]],
                         [("standby", "clock step"), ("hourly", "clock step")])
        told = self.simulate("2026-06-01T02:10 down 3600\n", "2026-06-01T02:05", "2026-06-01T03:14")
        self.assertEqual([(start["local"][11:16], start["job"], start["reason"]) for start in told["starts"]][:1],
                         [("03:10", "nightly", "made-up")])
        self.assertEqual([(skip["job"], skip["reason"]) for skip in told["skips"]],
                         [("standby", "service down"), ("hourly", "service down")])

    def test_names_the_line_of_an_event_that_is_none(self):
        with tempfile.NamedTemporaryFile("w", suffix=".conf") as jobs:
            json.dump(self.JOBS, jobs)
            jobs.flush()
            none = "expected TIME and one of"
            for line, reason in [("2026-06-01T01:00 clock 60", none), ("2026-06-01T01:00 down", none),
                                 ("2026-06-01T01:00 active now", none), ("2026-06-01T01:00 down 9223372036854775807", none),
                                 ("1 o'clock passive", none), ("noon passive", '"noon" is no time'),
                                 ("2026-05-31T23:59 passive", "2026-05-31T23:59 lies before --from")]:
                done = tool("simulate", "--from", "2026-06-01T00:00", "--to", "2026-06-01T02:00", "--events", "-", jobs.name,
                            text="\n" + line + "\n")
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn("-:2: " + reason, done.stderr)

    def test_takes_no_definition_that_the_service_refuses(self):
        for change, reason in [({"enabled": "no"}, 'field "enabled": expected true or false, found a text'),
                               ({"timeout": 2**31}, 'field "timeout": 2147483648 is not in 0..2147483647')]:
            text = json.dumps([self.JOBS[0], {**self.JOBS[0], **change}])
            done = tool("simulate", "--from", "@0", "--to", "@60", "-", text=text)
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertIn("-: definition 2: " + reason, done.stderr)

    def test_begins_when_the_wall_clock_says_so(self):
        text = json.dumps({**self.JOBS[0], "crontab": "* * * * *"})
        for zone, time_of_day, epoch in [
                ("Antarctica/Casey", "2010-03-05T01:00", 1267711200),  # comes twice, and neither is daylight saving time
                ("Pacific/Apia", "2011-12-30T12:00", 1325282400),  # a day that is left out
                ("Africa/Casablanca", "2026-03-22T02:30", 1774146600),  # left out where winter is the saving
                ("Europe/Berlin", "2026-03-29T02:30", 1774747800), ("UTC", "1969-12-31T23:59", -60)]:
            done = tool("simulate", "--from", time_of_day, "--to", time_of_day, "--tz", zone, "--json", "-", text=text)
            self.assertEqual([start["epoch"] for start in json.loads(done.stdout)["starts"]], [epoch], zone)
        self.assertEqual(tool("simulate", "--from", "@999999999999999", "--to", "@0", "-", text=text).returncode, 2)


class Review(unittest.TestCase):
    def codes(self, definition):
        done = tool("check", "-", "--json", text=json.dumps(definition))
        told = json.loads(done.stdout)["files"][0]
        self.assertEqual(done.returncode, 0 if told["valid"] else 1)
        return told["valid"], [(warning["code"], warning["field"]) for warning in told["warnings"]], told["errors"]

    def test_nothing_to_say_of_a_plain_definition(self):
        self.assertEqual(self.codes({"name": "a", "user": "root", "period": "daily", "cmd": "/bin/true"}), (True, [], []))

    def test_each_surprise_has_its_code(self):
        plain = {"name": "a", "user": "root", "period": "crontab", "crontab": "5 4 * * *", "cmd": "/bin/true"}
        for change, code, field in [
                ({"crontab": "*/15 * * * *"}, "tail-dropped", "crontab"), ({"crontab": "~/10 * * * *"}, "tail-dropped", "crontab"),
                ({"crontab": "0 0 1 * 1"}, "days-joined-by-and", "crontab"), ({"period": "midnight"}, "period-letter", "period"),
                ({"crontab": "0 0 30 2 *"}, "never", "crontab"), ({"cmd": "true"}, "program-without-slash", "cmd"),
                ({"cmd": "/bin/echo 'a b'"}, "quotes", "cmd"), ({"user": "mysystem"}, "user-class", "user"),
                ({"assure_execute": 600000}, "assure-wraps", "assure_execute"), ({"name": "a b"}, "unsafe-name", "name"),
                ({"crontab": "5,5 4 * * *"}, "repeated-item", "crontab")]:
            with self.subTest(change=change):
                self.assertEqual(self.codes({**plain, **change}), (True, [(code, field)], []))

    def test_each_fault_is_told_with_its_place(self):
        valid, _, errors = self.codes([{"name": "a", "user": "root", "period": "d", "cmd": "/bin/true"},
                                       {"name": "b", "user": "root", "period": "c", "crontab": "1-5 * * * *", "cmd": "/x"}])
        self.assertEqual((valid, errors), (False, ['definition 2 "b": field "crontab": minute: "1-5" is no number']))
        done = tool("check", "-", text='{"name": }')
        self.assertEqual(done.returncode, 1)
        self.assertIn("-:1:10: error: is not JSON: ", done.stdout)
        self.assertIn("cannot be read: No such file", tool("check", "/no/such").stdout)

    def test_explain_tells_the_meaning_and_the_next_starts(self):
        told = json.loads(tool("explain", "0 0 13 * 5", "--json").stdout)
        self.assertEqual((told["valid"], len(told["next"]), told["warnings"][0]["code"], told["warnings"][0]["rewrite"]),
                         (True, 3, "days-joined-by-and", None))
        self.assertIn("day 13", told["meaning"])
        done = tool("explain", "0 0 * * 7", "--json")
        told = json.loads(done.stdout)
        self.assertEqual((done.returncode, told["valid"], told["warnings"][0]["rewrite"]), (1, False, "0 0 * * 0"))


class Rewrites(unittest.TestCase):
    def test_a_rewrite_says_the_same_at_every_minute(self):
        seed = int(os.environ.get("VUKO_SEED", random.SystemRandom().randrange(10**6)))
        print(f"VUKO_SEED={seed}")
        chance = random.Random(seed)
        rewritten = refused = 0
        for _ in range(60):
            texts = classic.random_fields(chance)
            if chance.random() < 0.5:
                texts[chance.choice([2, 4])] = "*"
            told = json.loads(tool("explain", " ".join(texts), "--json").stdout)
            rewrites = {warning["rewrite"] for warning in told["warnings"]}
            self.assertLessEqual(len(rewrites), 1, told)
            if not rewrites or rewrites == {None}:
                refused += 1
                continue
            rewritten += 1
            new_values = [classic.here_values(text, field) for field, text in enumerate(rewrites.pop().split(" "))]
            self.assertEqual([classic.classic_values(texts[field], field) for field in range(2)], new_values[:2], told)
            matches = classic.classic_day_matcher(texts)
            for day in classic.DAYS:
                self.assertEqual(matches(day), classic.here_matches(new_values, day), f"{texts} {told} {day}")
        self.assertGreater(rewritten, 10)
        self.assertGreater(refused, 0)


class WithAService(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.root = cls.folder.name
        os.chmod(cls.root, 0o755)
        definitions = cls.root + "/usr/vuko/share/vukocron.d"
        os.makedirs(definitions)
        for name, command in [("good", "/bin/true"), ("bad", "/bin/false")]:
            with open(f"{definitions}/{name}.conf", "w", encoding="utf-8") as file:
                json.dump({"name": name, "user": "root", "period": "c", "crontab": "~ 3 1 1 *", "cmd": command}, file)
        with open(f"{definitions}/broken.conf", "w", encoding="utf-8") as file:
            file.write("{")
        cls.service = subprocess.Popen([SERVICE, "--root", cls.root], stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
        deadline = time.monotonic() + 30
        while tool("status", root=cls.root).returncode != 0:
            assert time.monotonic() < deadline and cls.service.poll() is None
            time.sleep(0.02)

    @classmethod
    def tearDownClass(cls):
        cls.service.terminate()
        assert cls.service.wait(30) == 0
        cls.folder.cleanup()

    def ask(self, *arguments, **options):
        done = tool(*arguments, "--json", root=self.root, **options)
        return done.returncode, json.loads(done.stdout) if done.stdout else done.stderr

    def test_run_ends_with_the_jobs_status(self):
        self.assertEqual(self.ask("run", "good", "--wait")[0], 0)
        status, told = self.ask("run", "builtin/bad", "--wait")
        self.assertEqual((status, told["end"]["kind"], told["end"]["code"]), (1, "exited", 1))
        status, told = self.ask("history", "bad")
        self.assertEqual((status, told["jobs"][0]["outcomes"][0]["outcome"], told["jobs"][0]["outcomes"][0]["label"]),
                         (0, "started", "manual"))

    def test_list_and_show(self):
        status, told = self.ask("list")
        self.assertEqual((status, [job["id"] for job in told["jobs"]]), (0, ["builtin/bad", "builtin/good"]))
        self.assertIsInstance(told["jobs"][0]["next"], int)
        status, told = self.ask("show", "good")
        self.assertEqual((status, told["definition"]["cmd"]), (0, "/bin/true"))
        self.assertEqual(tool("show", "nobody", root=self.root).returncode, 1)

    def test_why_tells_the_cause(self):
        self.assertEqual(self.ask("run", "good", "--wait")[0], 0)
        status, told = self.ask("why", "good")
        self.assertEqual((status, told["outcome"]["label"]), (0, "manual"))
        self.assertRegex(told["text"], r"^builtin/good ran for .* \(manual\), started at .*: exit 0\.$")
        told = self.ask("why", "good", "--at", "2026-06-01T12:00")[1]
        self.assertIn("builtin/good did not run at 2026-06-01T12:00: its schedule, ", told["text"])

    def test_status_tells_what_is_refused(self):
        status, told = self.ask("status")
        self.assertEqual((status, told["role"], len(told["refusals"])), (0, "active", 1))
        self.assertIn("broken.conf: is not JSON", told["refusals"][0]["text"])

    def test_reroll_and_reload_and_next(self):
        status, told = self.ask("reroll", "good")
        self.assertEqual(status, 0)
        values = told["schedule"]
        self.assertEqual(self.ask("reload"), (0, {"jobs": 2, "refused": 1}))
        self.assertEqual(self.ask("show", "good")[1]["schedule"], values)
        told = json.loads(tool("next", "good", "--json", "--from", "2026-06-01T00:00", root=self.root).stdout)
        self.assertEqual(told["jobs"][0]["next"][0]["local"][:14], "2027-01-01T03:")
        self.assertEqual(int(told["jobs"][0]["next"][0]["local"][14:16]), int(values.split()[0]))

    def test_the_template_and_its_delay(self):
        self.assertEqual(self.ask("template", "set-delay", "42")[1]["maxDelay"], 42)
        minutes = [int(job["schedule"].split()[0]) for job in self.ask("list")[1]["jobs"]]
        at_once = minutes[0] == minutes[1]
        for arguments, delay in [([], 21), (["--max-delay", "10"], 5)]:
            told = self.ask("simulate", "--from", "2027-01-01T00:00", "--to", "2027-01-02T00:00", *arguments)[1]
            self.assertEqual([start["delay"] for start in told["starts"]], [0, delay if at_once else 0])
        with open(self.root + "/usr/vuko/etc/vukocrond.st.config", encoding="utf-8") as file:
            self.assertEqual(json.load(file)["maxDelay"], 42)

    @unittest.skipUnless(os.geteuid() == 0, "needs an account to become")
    def test_an_account_sees_and_does_only_what_is_its_own(self):
        self.assertEqual(self.ask("list", uid=UNPRIVILEGED), (0, {"jobs": []}))
        self.assertEqual(tool("run", "good", root=self.root, uid=UNPRIVILEGED).returncode, 1)
        for arguments in [["reload"], ["role", "passive"], ["drain"], ["template", "reroll"]]:
            with self.subTest(arguments=arguments):
                done = tool(*arguments, root=self.root, uid=UNPRIVILEGED)
                self.assertEqual(done.returncode, 4)
                self.assertIn("only root may do that", done.stderr)

    def test_without_a_service(self):
        with tempfile.TemporaryDirectory() as nobody:
            done = tool("list", root=nobody)
            self.assertEqual((done.returncode, done.stdout), (3, ""))
            self.assertIn("is vukocrond running?", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
