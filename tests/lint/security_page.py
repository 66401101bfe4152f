#!/usr/bin/env python3
"""Checks that every test that docs/security.md names exists.

Usage: security_page.py ROOT
"""
import re
import sys
from pathlib import Path


def known_tests(root):
    # A header holds tests that two programs run, each with parameters of its own.
    for path in [*(root / "tests").rglob("*_test.cpp"), *(root / "tests").rglob("*.h")]:
        yield from (".".join(name) for name in re.findall(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", path.read_text(), re.M))
    for path in (root / "tests/e2e").glob("*.py"):
        yield from (f"e2e/{name}" for name in re.findall(r"^@scenario\(.*\)\ndef (\w+)\(", path.read_text(), re.M))
    for name in re.findall(r"^kelto_fuzz_target\((\w+)", (root / "fuzz/CMakeLists.txt").read_text(), re.M):
        yield from (f"fuzz/{name}/corpus", f"fuzz/{name}/search")
    yield from re.findall(r"add_test\(NAME (fuzz/[\w/]+)\s", (root / "fuzz/CMakeLists.txt").read_text())
    yield from (f"lint/{name}" for name in re.findall(r"^kelto_lint\((\w+)", (root / "tests/CMakeLists.txt").read_text(), re.M))


def main():
    root = Path(sys.argv[1])
    named = re.findall(r"`(\w+\.[A-Z]\w+|(?:e2e|fuzz|lint)/[\w/]+)`", (root / "docs/security.md").read_text())
    missing = sorted(set(named) - set(known_tests(root)))
    for name in missing:
        print(f"docs/security.md names {name}, but there is no such test")
    print(f"{len(set(named))} tests are named")
    return 1 if missing or not named else 0


if __name__ == "__main__":
    sys.exit(main())
