#!/usr/bin/env -S python3 -B
"""What `check` and `explain` tell, and where they say that it stands.

usage: check_test.py TOOL
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest

TOOL = sys.argv[1]
PLAIN = {"name": "a", "user": "root", "period": "crontab", "crontab": "5 4 * * *", "cmd": "/bin/true"}


def tool(*arguments, text=None, terminal=False):
    command = [TOOL, *arguments]
    if terminal:
        command = ["script", "-qec", "stty cols 80; " + " ".join(command), "/dev/null"]
    done = subprocess.run(command, capture_output=True, input=None if text is None else text.encode(), timeout=60,
                          check=False, env={"PATH": "/usr/bin:/bin", "LC_ALL": "C", "NO_COLOR": "1"})
    return done.returncode, done.stdout.decode().replace("\r\n", "\n")


def checked(text, *arguments):
    """What is told of one text: (line, column, error) and (line, column, code)."""
    status, told = tool("check", "-", "--json", *arguments, text=text)
    file = json.loads(told)["files"][0]
    assert status == (0 if file["valid"] else 1) and len(file["errors"]) == len(file["positions"])
    errors = [(at and (at["line"], at["column"]), error) for at, error in zip(file["positions"], file["errors"])]
    return errors, [((told["line"], told["column"]), told["code"]) for told in file["warnings"]]


def codes(change):
    return [code for _, code in checked(json.dumps({**PLAIN, **change}))[1]]


class Positions(unittest.TestCase):
    def assert_error(self, text, line, column, part):
        errors, _ = checked(text)
        self.assertEqual([at for at, _ in errors], [(line, column)], errors)
        self.assertIn(part, errors[0][1])

    def test_of_a_value_that_is_wrong(self):
        self.assert_error('{"name": "a", "user": 7,\n "period": "d", "cmd": "/x"}', 1, 23, "found a number")
        self.assert_error('{"name": "a", "user": "root",\n "period": null, "cmd": "/x"}', 2, 12, "found null")

    def test_of_the_brace_where_a_member_is_missing(self):
        self.assert_error('\n  {"name": "a", "period": "d", "cmd": "/x"}', 2, 3, 'field "user": missing')

    def test_of_an_element_of_an_array(self):
        self.assert_error('{"name": "a", "user": "root", "period": "d",\n"cmd_list": ["/x",\n  5]}', 3, 3, "element 2")

    def test_of_an_item_in_the_five_fields(self):
        head = '{"name": "a", "user": "root", "cmd": "/x", "period": "c",\n"crontab": '
        self.assert_error(head + '"0 3,24 * * *"}', 2, 17, "hour: 24")
        self.assert_error(head + '" 5  1~2,30 * * *"}', 2, 21, "hour: 30")
        self.assert_error(head + '"1 2 3 4"}', 2, 12, "found 4")

    def test_of_an_item_behind_escapes(self):
        head = '{"name": "a", "user": "root", "cmd": "/x", "period": "c",\n"crontab": '
        self.assert_error(head + r'"\u0030\u0020\u0032\u0034 * * *"}', 2, 25, "hour: 24")
        errors, _ = checked(head + r'"0 \u00e9 \ud83d\ude00 13 *"}')
        self.assertEqual([at for at, _ in errors], [(2, 15), (2, 22), (2, 35)], errors)

    def test_counts_columns_as_a_screen_has_them(self):
        self.assert_error('{"name":\t"\u00e9\u65e5e\u0301", "user": 7, "period": "d", "cmd": "/x"}', 1, 33, "a number")

    def test_of_the_same_value_where_it_stands_again(self):
        errors, _ = checked(json.dumps({**PLAIN, "crontab": "24 24 24 24 24"}, indent=0))
        line = 5
        self.assertEqual([at for at, _ in errors], [(line, 16), (line, 22), (line, 25)])

    def test_in_each_of_several_definitions_and_kinds_of_lines(self):
        self.assert_error('[\r\n {"name": "a", "user": "root", "period": "d", "cmd": "/x"},\r {"name": "b"}\n, 7]'
                          .replace(' {"name": "b"}\n, 7', " 7"), 3, 2, "definition 2: expected an object")
        self.assert_error("[\n\n  1.5e]", 3, 3, "is not JSON: line 3, column 3")
        self.assert_error('["\u00e9\\"", "x",\n "\tx"]', 2, 3, "A bare control character")

    def test_of_each_warning(self):
        _, warnings = checked('{"name": "a b", "user": "root", "period": "crontab",\n "crontab": "*/5 0 1 * 5,5",\n'
                              ' "cmd": "run \'x", "crntab": 1}')
        self.assertEqual(warnings, [((2, 14), "tail-dropped"), ((2, 26), "repeated-item"), ((2, 24), "days-joined-by-and"),
                                    ((3, 10), "program-without-slash"), ((3, 14), "quotes"), ((1, 10), "unsafe-name"),
                                    ((3, 19), "unknown-member")])

    def test_of_what_is_no_json(self):
        for text, line, column, part in [("\ufeff{}", 1, 1, "A byte order mark"), ('{"a": 1,\n // b\n"c": 2}', 2, 2, "A comment"),
                                         ("[1,\r\n 02]", 2, 2, "A number of another form"), ("[]\0", 1, 3, "A control character"),
                                         ('{"a": 1,\n"a": 2}', 2, 1, "Duplicate key"), ("[1]\n x", 2, 2, "Extra")]:
            with self.subTest(text):
                self.assert_error(text, line, column, part)

    def test_for_people_as_compilers_tell_them(self):
        text = json.dumps({**PLAIN, "crontab": "61 * * * *"})
        self.assertEqual(tool("check", "-", text=text), (1, '-:1:64: error: field "crontab": minute: 61 is not in 0..59\n'))

    def test_are_shown_on_a_terminal(self):
        with tempfile.TemporaryDirectory() as folder:
            file = folder + "/a.json"
            with open(file, "w", encoding="utf-8") as out:
                out.write('{"name": "a", "user": "root",\n\t"period": "\u001bx"'.replace("\u001b", "") +
                          ', "cmd": "/' + "y" * 100 + '"}')
            lines = tool("check", file, terminal=True)[1].splitlines()
        self.assertEqual(lines[1:], ['    2 |         "period": "x", "cmd": "/' + "y" * 40, "      |                   ^~~"])
        self.assertEqual(len(lines[1]), 80)


class Errors(unittest.TestCase):
    def test_are_all_told_and_not_only_the_first(self):
        errors, _ = checked(json.dumps({"name": "a/b", "user": "package", "period": "c", "crontab": "60 0 0 * 1~x",
                                        "cmd_list": ["/x", 1, 2], "assure_execute": "x", "run_on_passive": "x",
                                        "enabled": 1, "overlap": 1, "timeout": -1, "description": 1}))
        fields = [error.split('"')[1] for _, error in errors]
        self.assertEqual(sorted(fields), sorted(["package_username"] + ["crontab"] * 3 + ["cmd_list"] * 2 +
                                                ["assure_execute", "run_on_passive", "name", "enabled", "overlap",
                                                 "timeout", "description"]))

    def test_of_an_empty_definition_are_the_members_that_it_has_to_have(self):
        errors, _ = checked("{}")
        self.assertEqual([error.split('"')[1] for _, error in errors], ["name", "user", "period", "cmd"])

    def test_of_arguments_in_an_object_leave_the_rest_to_be_looked_at(self):
        errors, _ = checked(json.dumps({**PLAIN, "cmd_list": {"a": []}, "timeout": -1}))
        self.assertEqual([error.split('"')[1] for _, error in errors], ["cmd_list", "timeout"])

    def test_of_a_document_that_is_too_much_for_the_service(self):
        self.assertIn("holds 1001 definitions, at most 1000", checked(json.dumps([PLAIN] * 1001))[0][-1][1])
        self.assertIn("is too large", checked(json.dumps({**PLAIN, "description": "x" * 300000}))[0][0][1])


class Warnings(unittest.TestCase):
    def test_of_what_is_taken_otherwise(self):
        for change, expected in [
                ({"crontab": "0 0 30~31 2 *"}, ["never"]), ({"crontab": "0 0 31 2,4 *"}, ["never"]),
                ({"crontab": "0 0 29~30 2 *"}, ["maybe-never"]), ({"crontab": "0 0 31 ~ *"}, ["maybe-never"]),
                ({"crontab": "0 0 31 1~2,3 *"}, []), ({"crontab": "0 0 ~ 2 *"}, []), ({"crontab": "0 0 29 2 *"}, []),
                ({"crontab": ", 0 1 * *"}, ["never"]), ({"crontab": "5,05,+5 4 * * *"}, ["repeated-item"] * 2),
                ({"crontab": "0 0 12 * 1,*"}, ["days-joined-by-and"]), ({"crontab": "0 0 1,* * 1,*"}, []),
                ({"crontab": "*\t3 * * * *"}, ["tail-dropped"]), ({"crontab": "0 0 * * *\n"}, []),
                ({"crontab": "0 0 * * 07"}, ["sunday"]),
                ({"user": "packages", "package_username": "x"}, ["user-class"]), ({"user": "admin"}, ["user-none"]),
                ({"cmd": ""}, ["empty-argument"]), ({"cmd": "/bin/a  b"}, ["empty-argument"]),
                ({"cmd": "/bin/a > /x"}, ["shell"]), ({"cmd": "/bin/a b>c 'x'"}, ["quotes"]),
                ({"assure_execute": -1}, ["assure-negative"]), ({"assure_execute": 1.5}, ["converted"]),
                ({"run_on_passive": 1}, ["converted"]), ({"assure_execute_action": "Run"}, ["action"]),
                ({"cmd_list": ["/bin/a b"]}, ["program-with-blank", "ignored-member"]),
                ({"period": "daily"}, ["ignored-member"]), ({"package_username": "x"}, ["ignored-member"]),
                ({"enable": True}, ["unknown-member"]), ({"_comment": "for people"}, [])]:
            with self.subTest(change=change):
                self.assertEqual(codes(change), expected)

    def test_of_one_text_are_no_more_than_anybody_reads(self):
        items = ",".join(f"*/{number}" for number in range(30000))
        self.assertEqual(codes({"crontab": items + " 0 1 * 1"}), ["tail-dropped"] * 100 + ["days-joined-by-and"])
        self.assertEqual(codes({f"x{number}": 1 for number in range(1000)}), ["unknown-member"] * 100)

    def test_tell_people_a_rewrite_once(self):
        definitions = [{**PLAIN, "name": name, "crontab": "*/30 */12 * * *"} for name in "ab"]
        told = tool("check", "-", text=json.dumps(definitions))[1].splitlines()
        self.assertEqual([line.split()[1] for line in told], ["warning:", "warning:", "note:"] * 2)
        self.assertIn('warning: definition 2 "b": field "crontab": what follows', told[3])
        told = tool("explain", "*/30 */12 * * *")[1].splitlines()
        self.assertEqual([line.split()[0] for line in told], ["Meaning:", "warning:", "warning:", "note:"] + ["Next:"] * 3)

    def test_suggest_the_member_that_is_meant(self):
        for key, meant in [("cmd-list", "cmd_list"), ("Crontab", "crontab"), ("cron", None), ("packageUsername", "package_username"),
                           ("descripton", "description"), ("schedule", None), ("timeOut", "timeout"), ("usr", "user")]:
            with self.subTest(key):
                told = json.loads(tool("check", "-", "--json", text=json.dumps({**PLAIN, key: 1}))[1])
                text = told["files"][0]["warnings"][0]["text"]
                self.assertEqual(text.endswith(f'is "{meant}" meant?') if meant else "meant" not in text, True, text)

    def test_have_a_rewrite_where_one_exists(self):
        for crontab, code, rewrite in [("@daily", "macro", "0 0 * * *"), (" @weekly ", "macro", "0 0 * * 0"), ("0\\t3 * * *", "tab", "0 3 * * *"),
                                       ("0 3 * * 7", "sunday", "0 3 * * 0"), ("0 0 1 * 1", "days-joined-by-and", None)]:
            told = json.loads(tool("explain", crontab.replace("\\t", "\t"), "--json")[1])["warnings"][-1]
            self.assertEqual((told["code"], told["rewrite"]), (code, rewrite))
        told = json.loads(tool("check", "-", "--json", text=json.dumps({**PLAIN, "period": "midnight"}))[1])
        self.assertEqual(told["files"][0]["warnings"][0]["rewrite"], "0 0 * * *")


class Files(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(tempfile.TemporaryDirectory())
        self.folder = self.root + "/usr/local/etc/vukocron.d"
        self.package = self.root + "/usr/local/etc/vukocron_nonroot.d/photos"
        for folder in (self.folder, self.package):
            os.makedirs(folder, mode=0o755)

    def put(self, path, definition, mode=0o644):
        with open(path, "w", encoding="utf-8") as file:
            json.dump(definition, file)
        os.chmod(path, mode)

    def told(self, *paths):
        """Name, validity and codes of each file."""
        files = json.loads(tool("--root", self.root, "check", "--json", *paths)[1])["files"]
        return [(file["file"].rpartition("/")[2], file["valid"], [told["code"] for told in file["warnings"]]) for file in files]

    def test_are_all_those_of_a_folder_that_the_service_reads(self):
        for name in ("b.conf", "a.conf", ".c.conf", "d.json"):
            self.put(f"{self.root}/{name}", {**PLAIN, "name": name})
        self.assertEqual(self.told(self.root), [("a.conf", True, []), ("b.conf", True, [])])
        self.assertEqual(self.told(self.folder), [("vukocron.d", True, ["no-definitions"])])

    def test_are_drafts_outside_the_folders_of_the_service(self):
        self.put(self.root + "/draft.json", PLAIN, 0o666)
        self.assertEqual(self.told(self.root + "/draft.json"), [("draft.json", True, [])])

    def test_that_the_service_refuses_for_themselves_hold_valid_definitions(self):
        self.put(self.folder + "/a.conf", PLAIN)
        self.put(self.folder + "/a.json", PLAIN)
        self.put(self.folder + "/open.conf", {**PLAIN, "name": "open"}, 0o666)
        os.symlink("a.conf", self.folder + "/link.conf")
        self.assertEqual(self.told(self.folder), [("a.conf", True, []), ("link.conf", True, ["repeated-name", "file-name",
                                                                                           "file-refused"]),
                                                  ("open.conf", True, ["file-refused"])])
        self.assertEqual(self.told(self.folder + "/a.json"), [("a.json", True, ["file-name", "not-read"])])

    def test_of_one_folder_have_each_name_once(self):
        self.put(self.folder + "/a.conf", [PLAIN, {**PLAIN, "name": "b"}, PLAIN])
        self.put(self.folder + "/b.conf", {**PLAIN, "name": "b"})
        self.put(self.folder + "/c.conf", {**PLAIN, "name": "c"}, 0o666)
        self.put(self.folder + "/d.conf", [{**PLAIN, "name": "c", "timeout": -1}, {**PLAIN, "name": "c"}])
        self.assertEqual(self.told(self.folder), [("a.conf", True, ["repeated-name"]), ("b.conf", True, ["repeated-name"]),
                                                  ("c.conf", True, ["file-refused"]), ("d.conf", False, [])])

    def test_that_are_named_twice_define_nothing_twice(self):
        self.put(self.root + "/a.conf", PLAIN)
        self.put(self.root + "/\x1bb.conf", PLAIN)
        files = [self.root + "/a.conf", self.root + "/./a.conf"]
        self.assertEqual([codes for _, _, codes in self.told(*files)], [[], []])
        told = tool("check", self.root)[1]
        self.assertIn('"a" is defined in ' + self.root + "/\\x1bb.conf already", told)
        self.assertNotIn("\x1b", told)

    def test_of_a_package_are_judged_by_the_rules_of_its_folder(self):
        self.put(self.package + "/a.conf", PLAIN)
        status, told = tool("--root", self.root, "check", self.root + "/usr/local/etc/vukocron_nonroot.d")
        self.assertEqual(status, 1)
        self.assertIn('photos/a.conf:1:23: error: field "user": expected "package" in this folder, found "root"', told)


    @unittest.skipUnless(os.geteuid() == 0, "needs an account that may not read")
    def test_that_one_may_not_read_are_told_by_the_exit_status(self):
        os.chmod(self.root, 0o755)
        self.put(self.root + "/a.conf", PLAIN, 0o600)
        done = subprocess.run([TOOL, "check", self.root + "/a.conf"], capture_output=True, text=True, check=False, user=65534)
        self.assertEqual((done.returncode, done.stdout.rpartition(": ")[2]), (4, "Permission denied\n"))


class Meaning(unittest.TestCase):
    def test_in_words(self):
        for crontab, meaning in [
                ("* * * * *", "every minute"), ("0,30 3,15 * * *", "at 03:00, 03:30, 15:00 and 15:30, every day"),
                ("7 * * * *", "at minute 7 of every hour"), ("* 3 * * 1,0", "every minute of hour 3, on Sunday and Monday"),
                ("0 0 13 * 5", "at 00:00, on day 13, if that is a Friday"),
                ("0 0 1,15 1 *", "at 00:00, on days 1 and 15 of January"), ("5,6 * 1 2 3", "at minutes 5 and 6 of every hour, on "
                                                                            "day 1 in February, if that is a Wednesday"),
                ("5,20~40 ~ * 2 *", "at minute 5 and one random minute from 20 to 40 of one random hour, every day in "
                 "February; what is random is drawn once and then kept"), (", * * * *", "never"), ("7 7 7 7 7", "")]:
            with self.subTest(crontab):
                self.assertEqual(json.loads(tool("explain", crontab, "--json")[1])["meaning"], meaning)

    def test_of_fields_without_quotes_is_a_matter_of_quotes(self):
        done = subprocess.run([TOOL, "explain", "5", "4", "a.conf", "b.conf"], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertIn("found 4 arguments: put quotes around the fields", done.stderr)

    def test_tells_that_what_is_random_was_drawn_for_the_answer(self):
        lines = tool("explain", "0 3~4 * * *")[1].splitlines()
        self.assertEqual([line.split(": ")[0] for line in lines], ["Meaning"] + ["Next, as drawn now"] * 3)

    def test_tells_that_nothing_comes(self):
        self.assertEqual(tool("explain", "0 0 30 2 *")[1].splitlines()[-1], "Next: not within 9 years")

    def test_points_at_what_is_wrong_on_a_terminal(self):
        self.assertEqual(tool("explain", "'0 24 * * *'", terminal=True)[1].splitlines()[1:],
                         ['error: field "crontab": hour: 24 is not in 0..23', "    1 | 0 24 * * *", "      |   ^~"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
