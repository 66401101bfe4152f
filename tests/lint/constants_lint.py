#!/usr/bin/env python3
"""Checks that constants at namespace and class scope, and constexpr ones anywhere, begin with a small letter.

Usage: constants_lint.py ROOT
Prints one line for each that does not and exits with 1 when there is any. Designed names stay: those that
begin with NS or DDLog, and the options of one header.
"""
import re

import lint_report

FOLDERS = ("app", "privileged", "posix", "platform", "logging", "kit", "ui", "protocol", "foundation", "sdk", "demo", "examples",
           "bench", "fuzz", "tests")
DESIGNED_HEADER = "platform/Unicode.h"
DESIGNED_NAME = re.compile(r"(NS|DDLog)[A-Z]")
TYPE = r"[A-Za-z_][\w:]*(?:<[^;={}()]*>)?(?:\s+const)?[\s*&]+"
NAME = r"(?P<name>[A-Z]\w*)\s*(?:\[[^\]]*\])*\s*(?:=|\{|;)"
CONSTANT = re.compile(rf"^(?P<indent>\s*)(?:(?:inline|static|extern)\s+)*(?P<kind>constexpr|constinit|const)\s+(?:const\s+)?"
                      rf"(?:unsigned\s+|long\s+)*{TYPE}{NAME}")


def problems_of(path, root):
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        found = CONSTANT.match(line)
        if not found or DESIGNED_NAME.match(found["name"]):
            continue
        if found["kind"] == "const" and len(found["indent"]) > 2:
            continue
        yield f"{path.relative_to(root)}:{number}: the constant {found['name']} begins with a capital letter"


def lint(root):
    files = [path for folder in FOLDERS for pattern in ("*.h", "*.cpp", "*.inc") for path in sorted((root / folder).rglob(pattern))]
    files = [path for path in files if str(path.relative_to(root)) != DESIGNED_HEADER]
    return files, [problem for path in files for problem in problems_of(path, root)]


if __name__ == "__main__":
    lint_report.end(lint)
