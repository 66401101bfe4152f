#!/usr/bin/env python3
"""The rules of cmake/Kelto.cmake for test folders: a mistake stops the configuration, and no test is left out silently."""
import subprocess
import tempfile
import unittest
from pathlib import Path

RULES = Path(__file__).resolve().parents[2] / "cmake/Kelto.cmake"


class BuildRules(unittest.TestCase):
    def configure(self, statements, *tests):
        """The status and the errors of CMake for a project with these statements and test files."""
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            (folder / "CMakeLists.txt").write_text(
                f'cmake_minimum_required(VERSION 3.25)\nproject(Rules NONE)\ninclude("{RULES}")\n'
                f"add_custom_target(known)\n{statements}\n")
            for test in tests:
                (folder / test).parent.mkdir(parents=True, exist_ok=True)
                (folder / test).touch()
            run = subprocess.run(["cmake", "-S", folder, "-B", folder / "build"], capture_output=True, text=True)
            return run.returncode, " ".join(run.stderr.split())

    def assert_stops(self, message, *arguments):
        status, said = self.configure(*arguments)
        self.assertNotEqual(0, status)
        self.assertIn(message, said)

    def test_a_misspelt_library_stops_the_configuration(self):
        self.assert_stops("kelto_tests(kit): there is no target mispelt", "kelto_tests(kit LINK known mispelt)", "kit/A_test.cpp")

    def test_a_misspelt_program_stops_the_configuration(self):
        self.assert_stops("kelto_tests(kit): there is no target mispelt", "kelto_tests(kit LINK known RUNS mispelt)",
                          "kit/A_test.cpp")

    def test_a_folder_without_tests_stops_the_configuration(self):
        self.assert_stops("kelto_tests(kat): the folder holds no tests", "kelto_tests(kat LINK known)", "kit/A_test.cpp")

    def test_a_test_that_nothing_builds_stops_the_configuration(self):
        self.assert_stops("No kelto_tests() builds", "kelto_check_that_all_tests_are_built()", "kit/A_test.cpp")

    def test_a_project_without_tests_is_configured(self):
        self.assertEqual((0, ""), self.configure("kelto_check_that_all_tests_are_built()"))


if __name__ == "__main__":
    unittest.main()
