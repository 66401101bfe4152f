#!/usr/bin/env python3
"""The include lint finds what it is there to find: each case is a small tree with one broken rule, or none."""
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import include_lint  # noqa: E402


class IncludeLint(unittest.TestCase):
    def problems(self, **files):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for name, text in files.items():
                path = root / name.replace("__", "/").replace("_DOT_", ".")
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return include_lint.lint(root)[1]

    def test_allowed_arrows_pass(self):
        self.assertEqual([], self.problems(
            app__a_DOT_cpp='#include "privileged/p.h"\n#include <string>\n',
            privileged__p_DOT_h='#include "platform/q.h"\n', platform__q_DOT_h='#include <vector>\n'))

    def test_an_arrow_upwards_is_found(self):
        self.assertIn('kit/k.cpp:1', self.problems(kit__k_DOT_cpp='#include "app/a.h"\n')[0])

    def test_logging_may_read_only_two_kit_files(self):
        self.assertEqual([], self.problems(logging__l_DOT_cpp='#include "kit/NSBundle+Kelto.h"\n'))
        self.assertEqual(1, len(self.problems(logging__l_DOT_cpp='#include "kit/KTLocalizer.h"\n')))

    def test_the_platform_above_does_not_see_linux(self):
        self.assertEqual(1, len(self.problems(app__a_DOT_cpp='#include "platform/linux/Bus.h"\n')))

    def test_a_third_party_header_outside_the_platform_is_found(self):
        self.assertEqual(1, len(self.problems(ui__u_DOT_cpp='#include <systemd/sd-bus.h>\n')))
        self.assertEqual(0, len(self.problems(platform__linux__u_DOT_cpp='#include <systemd/sd-bus.h>\n')))

    def test_the_tool_may_use_the_bare_system_but_no_library(self):
        self.assertEqual(0, len(self.problems(privileged__tool__t_DOT_cpp='#include <sys/stat.h>\n')))
        self.assertEqual(1, len(self.problems(privileged__tool__t_DOT_cpp='#include <systemd/sd-bus.h>\n')))
        self.assertEqual(1, len(self.problems(privileged__tool__t_DOT_cpp='#include "kit/KTLocalizer.h"\n')))

    def test_an_operating_system_test_outside_the_platform_is_found(self):
        self.assertEqual(1, len(self.problems(kit__k_DOT_cpp='#ifdef __linux__\n#endif\n')))

    def test_a_loop_is_found(self):
        found = self.problems(kit__a_DOT_h='#include "kit/b.h"\n', kit__b_DOT_h='#include "kit/a.h"\n')
        self.assertEqual(1, len(found))
        self.assertIn("loop: kit/a.h -> kit/b.h -> kit/a.h", found[0])


if __name__ == "__main__":
    unittest.main()
