#!/usr/bin/env python3
"""How the programs are linked and compiled, read from the programs themselves."""
import json
import pathlib
import re
import unittest

from support import BUILD, Folder, require, run

BUNDLE = BUILD / "bin/KeltoInstaller.app/Contents"
ROOT_PROGRAMS = [BUILD / "bin/authorizationd", BUILD / "bin/assistantTool"]
PROGRAMS = [*ROOT_PROGRAMS, BUILD / "bin/kelto-manifest", BUNDLE / "Linux/KeltoInstaller", BUNDLE / "Linux/kelto",
            BUNDLE / "Resources/defaults", BUNDLE / "Resources/assistantTool"]
LIBRARIES = [BUILD / "libkelto.so", BUILD / "libkelto-logging.so", BUILD / "sdk/libkelto-controller.so"]


def read(program, *what):
    status, said = run("readelf", "--wide", *what, program)
    if status:
        raise AssertionError(said)
    return said


def sources_of(path):
    """The file itself, or those that CMake has joined in it."""
    return re.findall(r'#include "([^"]+)"', path.read_text()) if path.parent.name == "Unity" else [str(path)]


class Hardening(unittest.TestCase):
    def test_programs_are_position_independent(self):
        for program in PROGRAMS:
            self.assertRegex(read(program, "--file-header"), r"Type:\s+DYN \(Position-Independent Executable", program)

    def test_programs_and_libraries_resolve_every_relocation_before_they_run(self):
        for program in PROGRAMS + LIBRARIES:
            self.assertRegex(read(program, "--dynamic"), r"\(FLAGS\)\s+.*BIND_NOW", program)
            self.assertIn("GNU_RELRO", read(program, "--program-headers"), program)

    def test_nothing_has_memory_that_is_both_written_and_run(self):
        for program in PROGRAMS + LIBRARIES:
            headers = read(program, "--program-headers")
            self.assertRegex(headers, r"GNU_STACK\s.*RW\s", program)
            self.assertNotRegex(headers, r"LOAD\s.*RWE", program)

    def test_programs_of_root_watch_their_stack(self):
        for program in ROOT_PROGRAMS:
            self.assertTrue("__stack_chk_fail" in read(program, "--dyn-syms"), program)

    def test_every_file_of_a_program_of_root_is_compiled_with_the_checks_that_leave_no_trace_in_it(self):
        entries = json.loads((BUILD / "compile_commands.json").read_text())
        files = {name: " ".join(entry.values()) for entry in entries for name in sources_of(pathlib.Path(entry["file"]))}
        of_root = [name for name in files if re.search(r"/(protocol|privileged/tool|platform/linux/authorizationd)/\w+\.cpp$", name)
                   and "/tests/" not in name]
        self.assertGreater(len(of_root), 30)
        for name in of_root:
            for flag in ("-fstack-clash-protection", "-D_FORTIFY_SOURCE=2", "-fstack-protector-strong", "-D_GLIBCXX_ASSERTIONS"):
                self.assertIn(flag, files[name].split(), name)

    def test_programs_of_root_check_what_they_ask_of_the_library(self):
        for program in ROOT_PROGRAMS:
            self.assertTrue("__glibcxx_assert_fail" in read(program, "--syms"), program)

    def test_no_program_has_copies_of_variables_of_the_toolkit(self):
        for program in PROGRAMS:
            self.assertEqual(re.findall(r"_COPY .* (\S+@Qt_6)", read(program, "--relocs")), [], program)


class OptimisedWhileLinking(Folder):
    def test_a_program_finds_the_variables_of_the_toolkit(self):
        """The toolkit reads and writes its own variables, so a program must not have copies of them."""
        source = self.folder / "main.cpp"
        source.write_text("#include <QCoreApplication>\n"
                          "int main(int count, char** words) {\n"
                          "  QCoreApplication application(count, words);\n"
                          "  return QCoreApplication::instance() == &application ? 0 : 1;\n"
                          "}\n")
        cpp, qt = run("pkg-config", "--cflags", "Qt6Core"), run("pkg-config", "--libs", "Qt6Core")
        self.assertEqual((cpp[0], qt[0]), (0, 0))
        program = self.folder / "program"
        self.assertEqual(run("g++", "-std=c++20", "-O2", "-fPIC", "-flto=auto", *cpp[1].split(), "-c", source, "-o",
                             self.folder / "main.o"), (0, ""))
        self.assertEqual(run("g++", "-O2", "-flto=auto", *self.options_of_installer(), self.folder / "main.o", "-o", program,
                             *qt[1].split()), (0, ""))
        self.assertEqual(run(program), (0, ""))

    def options_of_installer(self):
        """Those with which the installer is linked."""
        _, commands = run("ninja", "-C", BUILD, "-t", "commands", "bin/KeltoInstaller.app/Contents/Linux/KeltoInstaller")
        link = [words for words in map(str.split, commands.splitlines()) if "-pie" in words][-1]
        return [word for word in link if re.match("-(pie|f|m|Wl,-z)", word)]


if __name__ == "__main__":
    require("readelf", "g++", "ninja", "pkg-config")
    unittest.main()
