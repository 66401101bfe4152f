#!/usr/bin/env python3
"""The examples of the logging library with each compiler, with the shared and the static library."""
import unittest

from logging_examples import EXAMPLES, LoggingFolder
from support import SOURCES, require


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


if __name__ == "__main__":
    require("clang++", "g++")
    unittest.main()
