#!/usr/bin/env -S python3 -B
"""Plants includes in a tree of its own and looks at what check_includes.py makes of them."""

import unittest

from planted_tree import PlantedTree


class CheckIncludes(PlantedTree):
    CHECKER = "check_includes.py"
    SOUND_TREE = {
        "base/export.h": "#pragma once\n",
        "base/line.h": "#pragma once\n",
        "base/line.cpp": '#include "base/line.h"\n',
        "platform/file.h": '#include <cstdio>\n#include "base/export.h"\n',
        "platform/linux/inner.h": "#pragma once\n",
        "platform/linux/file.cpp": '#include "platform/file.h"\n#include "platform/linux/inner.h"\n',
        "logger/log.h": '#include "base/export.h"\n',
        "logger/log.cpp": '#include "logger/log.h"\n#include "base/line.h"\n',
        "crond/job.h": '#include "logger/log.h"\n',
        "crond/job/room.h": "#pragma once\n",
        "crond/job/room.cpp": '#include "crond/job.h"\n#include "crond/job/room.h"\n#include "platform/file.h"\n',
        "service/logtext.h": "#pragma once\n",
        "service/engine/engine.h": '#include "crond/job.h"\n#include "service/logtext.h"\n',
        "service/control/server.h": "#pragma once\n",
        "service/control/requests.h": '#include "service/control/server.h"\n#include "service/core.h"\n',
        "service/core.h": '#include "crond/job.h"\n#include "service/engine/engine.h"\n',
        "service/loop.h": '#include "service/core.h"\n#include "service/control/requests.h"\n',
        "service/main.cpp": '#include "service/loop.h"\n',
        "ctl/main.cpp": '#include "crond/job.h"\n',
        "tests/fake.h": "#pragma once\n",
        "tests/loop_test.cpp": '#include "tests/fake.h"\n#include "service/loop.h"\n#include "platform/linux/inner.h"\n',
        "build/generated.cpp": '#include "nowhere.h"\n',
    }

    def assert_refused(self, path, include, reason):
        """The include, planted in line 3 of the file, is the one finding."""
        self.write(path, f"#pragma once\n\n#include {include}\n")
        self.assertEqual(self.findings(), [f"{path}:3: {reason}"])

    def test_a_sound_tree_has_no_findings(self):
        self.assertEqual(self.findings(), [])

    def test_the_logger_may_not_look_up_at_the_jobs(self):
        self.assert_refused("logger/up.h", '"crond/job.h"', "logger/ may not include crond/job.h")

    def test_an_include_in_angle_brackets_is_judged_too(self):
        self.assert_refused("logger/up.h", "<crond/job.h>", "logger/ may not include crond/job.h")

    def test_the_base_stands_alone(self):
        self.assert_refused("base/up.h", '"platform/file.h"', "base/ may not include platform/file.h")

    def test_the_platform_knows_no_more_of_the_base_than_the_export_mark(self):
        self.assert_refused("platform/up.h", '"base/line.h"', "platform/ may not include base/line.h")

    def test_the_platform_on_linux_knows_nothing_of_the_logger(self):
        self.assert_refused("platform/linux/up.cpp", '"logger/log.h"', "platform/linux/ may not include logger/log.h")

    def test_a_platform_contract_may_not_show_what_stands_behind_it(self):
        self.assert_refused("platform/up.h", '"platform/linux/inner.h"',
                            "platform/ may not include platform/linux/inner.h")

    def test_the_jobs_reach_the_platform_by_its_contracts_only(self):
        self.assert_refused("crond/job/up.cpp", '"platform/linux/inner.h"',
                            "crond/ may not include platform/linux/inner.h")

    def test_nobody_includes_from_the_service(self):
        self.assert_refused("ctl/up.h", '"service/loop.h"', "ctl/ may not include service/loop.h")
        (self.root / "ctl/up.h").unlink()
        self.assert_refused("crond/up.h", '"service/loop.h"', "crond/ may not include service/loop.h")

    def test_the_engine_cannot_log_and_has_no_platform(self):
        self.assert_refused("service/engine/up.h", '"base/line.h"', "service/engine/ may not include base/line.h")
        self.assert_refused("service/engine/up.h", '"platform/file.h"',
                            "service/engine/ may not include platform/file.h")

    def test_the_engine_knows_nothing_of_what_is_built_on_it(self):
        self.assert_refused("service/engine/up.h", '"service/core.h"', "service/engine/ may not include service/core.h")

    def test_one_room_may_not_look_into_another(self):
        self.assert_refused("service/state/up.h", '"service/engine/engine.h"',
                            "service/state/ may not include service/engine/engine.h")

    def test_a_pair_of_files_may_stand_above_the_rest_of_its_folder(self):
        self.assert_refused("service/control/up.h", '"service/core.h"',
                            "service/control/ may not include service/core.h")
        (self.root / "service/control/up.h").unlink()
        self.assert_refused("service/control/requests.cpp", '"service/loop.h"',
                            "service/control/requests may not include service/loop.h")

    def test_the_service_may_not_use_a_test_double(self):
        self.assert_refused("service/up.h", '"tests/fake.h"', "service/ may not include tests/fake.h")

    def test_a_file_that_does_not_exist_is_named(self):
        self.assert_refused("service/up.h", '"service/gone.h"',
                            '"service/gone.h" is no file of this tree, counted from its root')

    def test_a_neighbour_is_named_from_the_root(self):
        self.assert_refused("service/up.h", '"loop.h"', '"loop.h" is no file of this tree, counted from its root')

    def test_a_way_around_by_dots_is_refused(self):
        self.assert_refused("service/up.h", '"service/../ctl/main.cpp"',
                            '"service/../ctl/main.cpp": say where it lies, counted from the root')

    def test_an_include_by_macro_is_refused(self):
        self.assert_refused("service/up.h", "HEADER", "an include by macro cannot be judged")

    def test_a_folder_without_a_floor_is_named(self):
        self.write("attic/old.cpp", "")
        self.assertEqual(self.findings(), ["attic/old.cpp:1: attic/ is on no floor: give it one in check_includes.py"])

    def test_a_comment_is_no_include(self):
        self.write("logger/note.h", '/*\n#include "crond/job.h"\n*/\n// #include "crond/job.h"\n')
        self.assertEqual(self.findings(), [])

    def test_the_end_of_a_comment_inside_a_literal_ends_nothing(self):
        self.write("logger/up.h", 'const char* szText = "/*";\n#include "crond/job.h"\nconst char* szEnd = "*/";\n')
        self.assertEqual(self.findings(), ["logger/up.h:2: logger/ may not include crond/job.h"])


if __name__ == "__main__":
    unittest.main()
