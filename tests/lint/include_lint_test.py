#!/usr/bin/env python3
"""The include lint finds what it is there to find: each case is a small tree with one broken rule, or none."""
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import include_lint  # noqa: E402

TABLE = """# Page

| folder | holds | may include |
|---|---|---|
| `app/` | the program | everything |
| `tool/` | a program of its own | `foundation/UTF8.h`, POSIX headers, `<one.h>` |
| `kit/` | strings | `platform/` |
| `kit/Localizer.h`, `kit/Localizer.cpp` | texts | `logging/Logger.h` |
| `logging/` | records | `kit/Bundle.h` |
| `foundation/` | text | the standard library |
| `platform/` | the seam | `foundation/` |
| `platform/linux/` | the seam on Linux | `platform/`, third-party headers |
| `tests/`, `fuzz/` | tests | everything |

| another | table |
|---|---|
| `other/` | is not read |
"""
# One include for every arrow of the table.
USED = {
    "tool/t.cpp": '#include "foundation/UTF8.h"\n#include <one.h>\n', "kit/k.h": '#include "platform/p.h"\n',
    "kit/Localizer.h": '#include "logging/Logger.h"\n', "kit/Localizer.cpp": '#include "logging/Logger.h"\n',
    "logging/l.cpp": '#include "kit/Bundle.h"\n', "platform/p.h": '#include "foundation/UTF8.h"\n',
    "platform/linux/l.cpp": '#include "platform/p.h"\n'}


class IncludeLint(unittest.TestCase):
    def problems(self, files, table=TABLE):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for name, text in {"ARCHITECTURE.md": table, **USED, **files}.items():
                path = root / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return include_lint.lint(root)[1]

    def assert_one(self, start, files, **more):
        found = self.problems(files, **more)
        self.assertEqual(1, len(found), found)
        self.assertTrue(found[0].startswith(start), found[0])

    def test_allowed_arrows_pass(self):
        self.assertEqual([], self.problems({"kit/a.cpp": '#include "kit/k.h"\n#include "platform/p.h"\n#include <string>\n'}))

    def test_an_arrow_upwards_is_found(self):
        self.assert_one("kit/a.cpp:1: ", {"kit/a.cpp": '#include "app/a.h"\n'})

    def test_everything_means_any_folder_and_library_but_no_unknown_folder(self):
        self.assertEqual([], self.problems({"tests/t.cpp": '#include "app/a.h"\n#include "platform/linux/l.h"\n#include <QImage>\n'}))
        self.assert_one("fuzz/t.cpp:1: ", {"fuzz/t.cpp": '#include "other/a.h"\n'})

    def test_an_arrow_to_a_file_does_not_reach_its_neighbours(self):
        self.assert_one("logging/m.cpp:1: ", {"logging/m.cpp": '#include "kit/Localizer.h"\n'})

    def test_an_arrow_to_a_folder_does_not_reach_a_folder_inside_with_its_own_row(self):
        self.assert_one("kit/a.cpp:1: ", {"kit/a.cpp": '#include "platform/linux/l.h"\n'})

    def test_only_the_files_of_a_row_have_its_arrows(self):
        self.assert_one("kit/a.cpp:1: ", {"kit/a.cpp": '#include "logging/Logger.h"\n'})

    def test_an_arrow_that_no_file_uses_is_found(self):
        self.assert_one("ARCHITECTURE.md: no file uses the arrow from kit to platform", {"kit/k.h": "\n"})

    def test_a_third_party_header_outside_its_folders_is_found(self):
        self.assertEqual([], self.problems({"platform/linux/b.cpp": "#include <systemd/sd-bus.h>\n"}))
        self.assert_one("kit/a.cpp:1: ", {"kit/a.cpp": "#include <systemd/sd-bus.h>\n"})
        self.assert_one("kit/a.cpp:1: ", {"kit/a.cpp": "#include <QImage>\n"})

    def test_the_tool_may_use_the_bare_system_but_no_library(self):
        self.assertEqual([], self.problems({"tool/a.cpp": "#include <sys/stat.h>\n"}))
        self.assert_one("tool/a.cpp:1: ", {"tool/a.cpp": "#include <systemd/sd-bus.h>\n"})

    def test_a_header_in_angle_brackets_is_for_its_row_alone(self):
        self.assertEqual([], self.problems({"tool/a.cpp": "#include <one.h>\n"}))
        self.assert_one("kit/a.cpp:1: ", {"kit/a.cpp": "#include <one.h>\n"})
        self.assert_one("ARCHITECTURE.md: no file uses the arrow from tool to <one.h>",
                        {"tool/t.cpp": '#include "foundation/UTF8.h"\n'})

    def test_a_question_for_the_operating_system_is_found(self):
        self.assert_one("kit/a.cpp:1: ", {"kit/a.cpp": "#ifdef __linux__\n#endif\n"})

    def test_a_loop_is_found(self):
        self.assert_one("loop: kit/a.h -> kit/b.h -> kit/a.h",
                        {"kit/a.h": '#include "kit/b.h"\n', "kit/b.h": '#include "kit/a.h"\n'})

    def test_a_page_without_the_table_is_found(self):
        self.assert_one("ARCHITECTURE.md has no table", {}, table="# Page\n")


if __name__ == "__main__":
    unittest.main()
