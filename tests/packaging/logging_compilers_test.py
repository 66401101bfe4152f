#!/usr/bin/env python3
"""The examples of the logging library with each compiler, with the shared and the static library."""
import unittest

from logging_examples import EXAMPLES, LoggingFolder
from support import SOURCES, require, run


class LoggingCompilers(LoggingFolder):
    def expect_static_examples(self, compiler):
        place = self.built_examples(compiler, "-DSTATIC=ON")
        del self.environment["LD_LIBRARY_PATH"]
        self.expect_examples(place)

    def test_examples_are_built_by_gcc_with_the_static_library(self):
        self.expect_static_examples("g++")

    def test_examples_are_built_by_clang_with_the_static_library(self):
        self.expect_static_examples("clang++")

    def test_examples_are_built_by_pkg_config(self):
        for compiler in ("g++", "clang++"):
            for name in EXAMPLES:
                self.compiled(compiler, SOURCES / f"examples/logging/{name}.cpp")

    def test_examples_are_built_by_pkg_config_with_the_static_library(self):
        """`pkg-config --static` names all that the archive needs."""
        flags = [flag.replace("-lkelto-logging", "-l:libkelto-logging.a")
                 for flag in self.flags("--static", "--cflags", "--libs")]
        self.assertIn("-l:libkelto-logging.a", flags)
        del self.environment["LD_LIBRARY_PATH"]
        for compiler in ("g++", "clang++"):
            place = self.folder / compiler
            place.mkdir()
            for name in EXAMPLES:
                status, said = run(compiler, "-std=c++20", "-Wall", SOURCES / f"examples/logging/{name}.cpp", "-o", place / name,
                                   *flags)
                self.assertEqual((0, ""), (status, said))
            _, needed = run("readelf", "-dW", place / "smallest")
            self.assertNotIn("kelto", needed)
            self.ran(place / "smallest")
        self.assertEqual([f"{self.folder}/{compiler}/smallest has 0 arguments" for compiler in ("g++", "clang++")],
                         self.lines_in(self.logs_of("smallest")))


if __name__ == "__main__":
    require("clang++", "g++")
    unittest.main()
