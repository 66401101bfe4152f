#!/usr/bin/env python3
"""The scripts where there is no apt: they name what is missing, and install nothing."""
import pathlib
import shutil
import unittest

from support import SOURCES, Folder, run

TOOLS = ("bash", "env", "dirname", "readlink", "awk", "cat", "id", "sed")
COMMANDS = ("g++", "cmake", "ninja", "git", "python3")


class WithoutApt(Folder):
    def setUp(self):
        super().setUp()
        for name in TOOLS:
            (self.folder / name).symlink_to(shutil.which(name))

    def add(self, name, script="exit 0"):
        program = self.folder / name
        program.write_text(f"#!{self.folder}/bash\n{script}\n")
        program.chmod(0o755)

    def run_here(self, script, *words):
        return run(SOURCES / script, *words, environment={"PATH": str(self.folder)})

    def test_missing_commands_are_named(self):
        status, said = self.run_here("scripts/install-packages.sh", SOURCES / "packages.txt", "build")
        self.assertEqual(1, status, said)
        self.assertIn("There is no apt here", said)
        for name in (*COMMANDS, "pkg-config"):
            self.assertIn(f"  the command {name}\n", said)
        self.assertNotIn("Xvfb", said)

    def test_missing_libraries_are_named(self):
        for name in COMMANDS:
            self.add(name)
        self.add("pkg-config", '[ "$2" != libsodium ]')
        status, said = self.run_here("scripts/install-packages.sh", SOURCES / "packages.txt", "build")
        self.assertEqual((1, 1), (status, said.count("the library")), said)
        self.assertIn("  the library libsodium, with its headers\n", said)
        self.assertNotIn("the command", said)

    def test_tests_and_demo_need_more_than_the_build(self):
        for name in (*COMMANDS, "pkg-config"):
            self.add(name)
        self.assertEqual((0, ""), self.run_here("scripts/install-packages.sh", SOURCES / "packages.txt", "build"))
        status, said = self.run_here("scripts/install-packages.sh")
        self.assertEqual(1, status, said)
        self.assertIn("  the command Xvfb\n", said)

    def test_packages_are_not_made_without_the_package_manager(self):
        status, said = self.run_here("package.sh", self.folder / "made")
        self.assertEqual(1, status, said)
        self.assertIn("there is no dpkg here", said)
        self.assertFalse(pathlib.Path(self.folder / "made").exists())

    def test_checks_name_a_test_that_they_leave_out_and_that_is_no_more(self):
        for name in (*COMMANDS, "pkg-config"):
            self.add(name)
        for name in ("grep", "nproc"):
            (self.folder / name).symlink_to(shutil.which(name))
        self.add("ctest", "echo '  Test  #1: sdk/abi'")
        (self.folder / "tree/scripts").mkdir(parents=True)
        for script in ("check.sh", "scripts/test-progress.awk"):
            shutil.copy(SOURCES / script, self.folder / "tree" / script)
        packages = self.folder / "tree/scripts/install-packages.sh"
        packages.write_text("#!/usr/bin/env bash\n")
        packages.chmod(0o755)
        status, said = self.run_here(self.folder / "tree/check.sh", "address")
        self.assertEqual(1, status, said)
        self.assertIn("leaves out the test ^packaging/, and there is none of that name", said)


if __name__ == "__main__":
    unittest.main()
