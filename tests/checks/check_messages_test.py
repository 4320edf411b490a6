#!/usr/bin/env -S python3 -B
"""Puts a small table beside small sources, makes them differ, and looks at what check_messages.py says."""

import unittest

from planted_tree import PlantedTree

SYSLOG_LINE = """
bool ReportFailedCondition(const char* szSource, int iNumber, const char* szCondition) {
    VUKO_LOG(LOG_ERR, iNumber, "Failed [%s], err=%m", szCondition);
}
"""

LOGGER = """
constexpr const char* szLogSource = "logger"; // "not this"
void Flush() {
    if (VUKO_FAILED(7, !fs || szMode ==
                           "a, (b")) {
        VUKO_LOG_PLAIN(LOG_DEBUG, 8, "gave "
                                     "up");
    }
    /* VUKO_LOG(LOG_ERR, 9, "only a comment"); */
}
"""

TABLE_STRUCT = """
struct FileMessages {
    const char* szSource;
    int iLoadError;
    int iSaveError;
};
"""

SHARED = """
void Load(const FileMessages& messages) {
    const char* const szLogSource = messages.szSource;
    VUKO_LOG(LOG_ERR, messages.iLoadError, "job[%s] load error.", szName);
    VUKO_LOG(LOG_ERR, messages.iSaveError, "job[%s] save error.", szName);
}
"""

STORE = """
constexpr const char* szLogSource = "store";
constexpr FileMessages MESSAGES = {szLogSource, 3, 4};
"""

LAUNCH = """
#include "crond/logsource.h"
template <typename... Pieces>
void LogExecution(const Pieces&... pieces) {}
void LogIdentityFailure(const char* szWhat, const std::string& strName) {
    LogExecution(szWhat, strName, "[", strerror(iErrno), "]");
}
void Run() {
    LogExecution("running job: ", strName);
    LogIdentityFailure("No user for ", strName);
    VUKO_LOG(LOG_ERR, 1, "no child");
}
"""

TABLE = """
| Source | Number | Priority | Text | Second form | When |
|---|---|---|---|---|---|
| logger | 7 | LOG_ERR | `Failed [!fs \\|\\| szMode == "a, (b"], err=%m` | yes | then |
| logger | 8 | LOG_DEBUG | `gave up` | no | then |

Some words.

| Source | Number | Priority | Text | Second form | When |
|---|---|---|---|---|---|
| job | 1 | LOG_ERR | `no child` | yes | then |
| store | 3 | LOG_ERR | `job[%s] load error.` | yes | then |
| store | 4 | LOG_ERR | `job[%s] save error.` | yes | then |

| Line | When |
|---|---|
| `running job: <job>` | then |
| `No user for <job>[<error>]` | then |
"""


class CheckMessages(PlantedTree):
    CHECKER = "check_messages.py"
    SOUND_TREE = {
        "base/syslog_line.h": "#define VUKO_LOG(iPriority, iNumber, szText, ...) syslog(szText)\n",
        "base/syslog_line.cpp": SYSLOG_LINE,
        "logger/logger.cpp": LOGGER,
        "crond/filemessages.h": TABLE_STRUCT,
        "crond/shared.cpp": SHARED,
        "crond/store.cpp": STORE,
        "crond/logsource.h": 'inline constexpr const char* szLogSource = "job";\n',
        "crond/launch.cpp": LAUNCH,
        "docs/MESSAGES.md": TABLE,
    }

    def test_a_table_that_tells_the_truth_has_no_findings(self):
        self.assertEqual(self.findings(), [])

    def test_a_changed_text_is_found(self):
        self.change("crond/launch.cpp", '"no child"', '"no child!"')
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:11: Text of job:1 is [no child], but [no child!] in crond/launch.cpp:11"])

    def test_a_changed_condition_is_found(self):
        self.change("logger/logger.cpp", "!fs ||", "!fs &&")
        self.assertEqual(self.findings(), [
            'docs/MESSAGES.md:4: Text of logger:7 is [Failed [!fs || szMode == "a, (b"], err=%m], '
            'but [Failed [!fs && szMode == "a, (b"], err=%m] in logger/logger.cpp:4'])

    def test_a_changed_text_of_all_conditions_is_found(self):
        self.change("base/syslog_line.cpp", "Failed [%s], err=%m", "Failed [%s]")
        self.assertEqual(len(self.findings()), 1)

    def test_a_changed_text_that_two_stores_share_is_found(self):
        self.change("crond/shared.cpp", "load error.", "load failed.")
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:12: Text of store:3 is [job[%s] load error.], "
            "but [job[%s] load failed.] in crond/shared.cpp:4"])

    def test_a_macro_in_a_text_goes_by_its_name(self):
        self.change("crond/launch.cpp", '"no child"', '"no " CHILD " here"')
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:11: Text of job:1 is [no child], but [no <CHILD> here] in crond/launch.cpp:11"])

    def test_a_changed_priority_is_found(self):
        self.change("crond/launch.cpp", "LOG_ERR", "LOG_INFO")
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:11: Priority of job:1 is [LOG_ERR], but [LOG_INFO] in crond/launch.cpp:11"])

    def test_a_lost_second_form_is_found(self):
        self.change("crond/launch.cpp", "VUKO_LOG(", "VUKO_LOG_PLAIN(")
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:11: Second form of job:1 is [yes], but [no] in crond/launch.cpp:11"])

    def test_a_changed_number_is_found_on_both_sides(self):
        self.change("crond/store.cpp", "{szLogSource, 3, 4}", "{szLogSource, 3, 5}")
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:13: store:4 is no message of the sources, or has a row already",
            "crond/shared.cpp:5: store:5 has no row in docs/MESSAGES.md"])

    def test_a_number_that_two_messages_share_is_found(self):
        self.change("crond/store.cpp", "{szLogSource, 3, 4}", "{szLogSource, 3, 3}")
        self.assertIn("crond/shared.cpp:5: store:3 is taken by crond/shared.cpp:4", self.findings())

    def test_a_message_without_a_row_is_found(self):
        self.change("docs/MESSAGES.md", "| job | 1 | LOG_ERR | `no child` | yes | then |\n", "")
        self.assertEqual(self.findings(), ["crond/launch.cpp:11: job:1 has no row in docs/MESSAGES.md"])

    def test_a_second_row_for_one_message_is_found(self):
        row = "| job | 1 | LOG_ERR | `no child` | yes | then |\n"
        self.change("docs/MESSAGES.md", row, row + row)
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:12: job:1 is no message of the sources, or has a row already"])

    def test_a_row_without_an_explanation_is_found(self):
        self.change("docs/MESSAGES.md", "`no child` | yes | then |", "`no child` | yes | |")
        self.assertEqual(self.findings(), ["docs/MESSAGES.md:11: job:1 is not explained"])

    def test_a_changed_line_of_the_execution_log_is_found_on_both_sides(self):
        self.change("crond/launch.cpp", '"running job: "', '"running: "')
        self.assertEqual(self.findings(), [
            "docs/MESSAGES.md:17: [running job: <job>] is no line of the sources, or has a row already",
            "crond/launch.cpp:9: [running: <job>] has no row in docs/MESSAGES.md"])

    def test_a_line_that_a_helper_writes_is_found_where_the_helper_is_called(self):
        self.change("crond/launch.cpp", '"No user for "', '"No user for"')
        self.assertIn("crond/launch.cpp:10: [No user for<job>[<error>]] has no row in docs/MESSAGES.md", self.findings())

    def test_a_syslog_call_past_the_macros_is_found(self):
        self.write("crond/direct.cpp", 'void Tell() {\n    ::syslog(LOG_ERR, "told");\n}\n')
        self.assertEqual(self.findings(), ["crond/direct.cpp:2: syslog() is called past base/syslog_line.h"])

    def test_a_message_that_cannot_be_read_is_found(self):
        self.change("crond/launch.cpp", '"no child"', "szText")
        self.assertIn("crond/launch.cpp:11: VUKO_LOG: source, number, priority and text must be plain to read",
                      self.findings())


if __name__ == "__main__":
    unittest.main()
