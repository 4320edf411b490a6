"""A change of the stored jobs asks a real service manager for one reload of the service, and never waits for it."""

from machine import Machine, poll
from store import MachineTest, call, folders, main

RELOADS = "/run/reloads"
RELOADABLE = """[Service]
ExecStart=/bin/sleep infinity
ExecReload=/bin/sh -c 'echo began >> {reloads}; {during}; echo reloaded >> {reloads}'
{more}
"""
UNRELOADABLE = """[Service]
ExecStart=/bin/sleep infinity
"""
NO_RELOAD = r"configmanager:52 failed to reload service vukocrond\. \[0x[0-9A-F]{4} servicemanager\.cpp:\d+\]"


class Reload(MachineTest):
    @classmethod
    def setUpClass(cls):
        cls.machine = cls.enterClassContext(Machine(folders=folders()))

    def setUp(self):
        self.have_service()

    def have_service(self, text=RELOADABLE, during="true", more="", start="restart"):
        """A service in the place of the real one, which has not been reloaded yet."""
        self.machine.add_unit("vukocrond.service", text.format(reloads=RELOADS, during=during, more=more))
        self.machine.run("systemctl", *start.split(), "vukocrond.service")
        self.machine.run("rm", "--force", RELOADS)

    def call(self, *words):
        return call(self.machine, *words)

    def state(self):
        return self.machine.run("systemctl", "show", "--property=ActiveState", "--value", "vukocrond").stdout.strip()

    def lines(self):
        return self.machine.read(RELOADS).splitlines()

    def reloads(self):
        """How often the service has been reloaded, once all that was asked for has been done."""
        self.machine.settle()
        return self.lines().count("reloaded")

    def assert_done(self, told):
        self.assertIs(told.result, True)
        self.assertEqual(told.messages, [])

    def test_each_save_is_one_reload(self):
        for expected, (kind, job) in enumerate([("builtin-dyn", "nightly"), ("pkg", "backup"), ("pkg", "backup")], 1):
            self.assert_done(self.call("save", kind, job))
            self.assertEqual(self.reloads(), expected)

    def test_a_removal_that_deleted_is_one_reload(self):
        self.assert_done(self.call("save", "builtin-dyn", "nightly"))
        self.assertEqual(self.reloads(), 1)
        self.assert_done(self.call("remove", "builtin-dyn", "nightly"))
        self.assertEqual(self.reloads(), 2)

    def test_a_removal_of_nothing_is_no_reload(self):
        self.assert_done(self.call("remove", "pkg", "nobody"))
        self.assertEqual(self.reloads(), 0)

    def test_a_bad_definition_is_no_reload(self):
        told = self.call("save", "pkg", "bad", '{"name": "bad", "user": "root", "period": "daily"}')
        self.assertIs(told.result, False)
        self.assertIn("configmanager:90 job[bad] format error.", told.messages[-1])
        self.assertEqual(self.reloads(), 0)

    def test_a_file_that_cannot_be_written_is_no_reload(self):
        told = self.call("save", "pkg", "no/such/folder")
        self.assertIs(told.result, False)
        self.assertEqual(told.messages,
                         ["configmanager:94 job[no/such/folder] save error. (No such file or directory)"])
        self.assertEqual(self.reloads(), 0)

    def test_the_package_store_asks_for_nothing(self):
        self.machine.run("mkdir", "--parents", "/usr/local/etc/vukocron_nonroot.d/editor")
        self.assert_done(self.call("pkgsave", "editor", "sync"))
        self.assertEqual(self.reloads(), 0)
        self.assert_done(self.call("pkgremove", "editor", "sync"))
        self.assertEqual(self.reloads(), 0)

    def test_a_save_does_not_wait_for_a_slow_reload(self):
        self.have_service(during="sleep 3")
        told = self.call("save", "pkg", "backup")
        self.assert_done(told)
        self.assertLess(told.seconds, 1)
        self.assertNotIn("reloaded", self.lines())
        self.assertEqual(self.reloads(), 1)

    def test_a_save_during_a_reload_is_followed_by_another_one(self):
        self.have_service(during="sleep 1")
        self.assert_done(self.call("save", "pkg", "backup"))
        poll(lambda: self.lines() == ["began"], "the reload has begun")
        self.assert_done(self.call("save", "pkg", "backup"))
        self.machine.settle()
        self.assertEqual(self.lines(), ["began", "reloaded"] * 2)

    def test_a_reload_that_fails_is_not_the_saver_s_concern(self):
        self.have_service(during="exit 1")
        self.assert_done(self.call("save", "pkg", "backup"))
        self.machine.settle()
        self.assertEqual(self.lines(), ["began"])

    def test_a_service_that_is_still_starting_is_reported_and_the_job_saved(self):
        self.have_service(more="ExecStartPost=/bin/sh -c 'until test -e /run/started; do sleep 0.02; done'",
                          start="--no-block restart")
        poll(lambda: self.state() == "activating", "the service is starting")
        self.assert_saved(NO_RELOAD)
        self.machine.write("/run/started", "")
        self.assertEqual(self.reloads(), 0)

    def test_a_save_while_the_service_stops_leaves_the_stop_alone(self):
        self.have_service(more="ExecStop=/bin/sleep 1")
        stop = self.machine.spawn("systemctl", "stop", "vukocrond.service")
        poll(lambda: self.state() == "deactivating", "the service is stopping")
        self.assert_saved_without_reload()
        self.assertEqual(stop.wait(), 0)
        self.assertEqual(self.state(), "inactive")

    def assert_saved(self, message):
        told = self.call("save", "pkg", "backup")
        self.assertIs(told.result, True)
        self.assertEqual(len(told.messages), 1, told.messages)
        self.assertRegex(told.messages[0], f"^{message}$")
        self.assertIn('"backup"', self.machine.read("/usr/local/etc/vukocron.d/backup.conf"))

    def assert_saved_without_reload(self):
        self.assert_saved(NO_RELOAD)
        self.assertEqual(self.reloads(), 0)

    def test_a_service_that_does_not_run_is_reported_and_the_job_saved(self):
        self.machine.run("systemctl", "stop", "vukocrond.service")
        self.assert_saved_without_reload()

    def test_a_service_that_is_not_installed_is_reported_and_the_job_saved(self):
        self.machine.remove_unit("vukocrond.service")
        self.assert_saved_without_reload()

    def test_a_service_that_cannot_reload_is_reported_and_the_job_saved(self):
        self.have_service(UNRELOADABLE)
        self.assert_saved_without_reload()

    def test_the_message_reaches_the_journal_as_written(self):
        self.machine.remove_unit("vukocrond.service")
        (message,) = self.call("save", "pkg", "backup").messages
        entries = self.machine.journal("SYSLOG_IDENTIFIER=storectl", "PRIORITY=3")
        self.assertIn(message, [entry["MESSAGE"] for entry in entries])

    def test_a_name_that_leads_elsewhere_is_refused(self):
        for name in ("", "../vukocrond", "/etc/passwd"):
            with self.subTest(name=name):
                self.assertIs(self.call("reload", name).result, False)


if __name__ == "__main__":
    main()
