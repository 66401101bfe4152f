"""Helpers of the tests in this folder. Each test takes the build folder as its argument."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCES = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(SOURCES / "protocol"))
from constants import constants  # noqa: E402

PROTOCOL = constants()
VERSION = re.search(r"project\(KeltoInstaller VERSION (\S+)", (SOURCES / "CMakeLists.txt").read_text()).group(1)
BUILD = pathlib.Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 else SOURCES / "build/dev"


def run(*words, environment=None, **options):
    """Runs a command; its status, and all that it printed."""
    done = subprocess.run([str(word) for word in words], env={**os.environ, "LC_ALL": "C.UTF-8", **(environment or {})},
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", **options)
    return done.returncode, done.stdout


def require(*commands):
    missing = [each for each in commands if not shutil.which(each)]
    if missing:
        print(f"SKIP: not installed: {', '.join(missing)}")
        sys.exit(77)


def require_header(name):
    """Skips the one test where <name> cannot be compiled."""
    status, _ = run("g++", "-std=c++20", "-fsyntax-only", "-x", "c++", "-", input=f"#include <{name}>\n")
    if status != 0:
        raise unittest.SkipTest(f"<{name}> is not installed")


class Folder(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kelto-packaging-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def install(self, prefix="/usr", root="root"):
        """Installs the build as a package does, into a folder that stands for the root folder; status and words."""
        return run("cmake", "--install", BUILD, "--prefix", prefix, environment={"DESTDIR": str(self.folder / root)})

    def uninstall(self, root="root"):
        return run("cmake", "-D", f"BUILD={BUILD}", "-P", SOURCES / "cmake/Uninstall.cmake",
                   environment={"DESTDIR": str(self.folder / root)})

    def contents(self, root="root"):
        top = self.folder / root
        return sorted(str(path.relative_to(top)) for path in top.rglob("*"))
