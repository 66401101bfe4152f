#!/usr/bin/env python3
"""The examples of the logging library with each compiler, with the shared and the static library."""
import unittest

from logging_examples import EXAMPLES, LoggingFolder
from support import SOURCES, require


class LoggingCompilers(LoggingFolder):
    def test_examples_are_built_by_a_package_with_the_static_library(self):
        for compiler in ("g++", "clang++"):
            with self.subTest(compiler):
                self.environment["XDG_STATE_HOME"] = str(self.folder / compiler)
                del self.environment["LD_LIBRARY_PATH"]
                self.expect_examples(self.built_examples(compiler, "--fresh", "-DSTATIC=ON"))
                self.environment["LD_LIBRARY_PATH"] = str(self.libraries)

    def test_examples_are_built_by_pkg_config(self):
        for compiler in ("g++", "clang++"):
            with self.subTest(compiler):
                for name in EXAMPLES:
                    self.compiled(compiler, SOURCES / f"examples/logging/{name}.cpp")


if __name__ == "__main__":
    require("clang++", "g++")
    unittest.main()
