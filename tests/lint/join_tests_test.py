#!/usr/bin/env python3
"""Joined test files compile as if they were apart: each case is a pair of small files, which a compiler reads."""
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "cmake/join_tests.py"


class JoinTests(unittest.TestCase):
    def compile(self, *texts):
        """The status of the compiler, and what it says."""
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            files = [folder / f"Part{number}_test.cpp" for number, _ in enumerate(texts)]
            for path, text in zip(files, texts):
                path.write_text(text)
            subprocess.run([sys.executable, SCRIPT, folder / "joined.cpp", *files], check=True)
            run = subprocess.run(["c++", "-std=c++20", "-fsyntax-only", folder / "joined.cpp"], capture_output=True, text=True)
            return run.returncode, run.stderr

    def test_helpers_of_the_same_name_do_not_meet(self):
        text = "// A comment.\n#include <string>\nnamespace {\nconst std::string folder = {};\n}  // namespace\nauto copy() { return folder; }\n"
        self.assertEqual((0, ""), self.compile(text, text))

    def test_helpers_inside_a_namespace_of_the_project_do_not_meet(self):
        text = "namespace a::b {\nnamespace {\nint folder = {};\n}  // namespace\nint copy() { return folder; }\n}  // namespace a::b\n"
        self.assertEqual((0, ""), self.compile("namespace a::b {\nusing Number = int;\n}  // namespace a::b\n", text, text))

    def test_directives_for_one_file_end_with_it(self):
        using = "namespace first {\nint place;\n}  // namespace first\n"
        self.assertEqual((0, ""), self.compile(using, "using namespace first;\nint a = place;\n", "int place;\nint b = place;\n"))

    def test_an_error_names_the_real_file_and_line(self):
        status, said = self.compile("int a;\n", "int b;\n\nwrong\n")
        self.assertNotEqual(0, status)
        self.assertIn("Part1_test.cpp:3:", said)


if __name__ == "__main__":
    unittest.main()
