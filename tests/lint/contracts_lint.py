#!/usr/bin/env python3
"""Checks that each interface of the seam has a contract suite, and that each suite runs on the fake and on Linux.

Usage: contracts_lint.py ROOT
An interface of the seam is an abstract class of platform/ or foundation/ that a class below platform/linux/ implements. The
first sentence of a header in tests/platform/contracts names those that its suites cover: "The contract of A and B." Prints
one line for each that is missing and exits with 1 when there is any.
"""
import re

import lint_report

CONTRACTS = "tests/platform/contracts"
# Drawn pixels can be checked on Linux only: the fake writes the calls down.
WITHOUT_CONTRACT = {"GraphicsContext"}
CLASS = re.compile(r"^ *(?:class|struct) (?P<name>\w+)(?: final)?(?: : (?P<bases>[^{;]+))? \{(?P<body>.*?)^ *\};", re.M | re.S)
COVERED = re.compile(r"\A(?://|#pragma once|\s)*The contracts? of (?:[^.:]*: )?(?P<names>[^.]+)\.")


def text_of(path):
    return path.read_text(encoding="utf-8")


def abstract_classes(root):
    headers = [*(root / "platform").glob("*.h"), *(root / "foundation").rglob("*.h")]
    classes = [found for path in headers for found in CLASS.finditer(text_of(path))]
    return {found["name"] for found in classes if re.search(r"\bvirtual\b[^;{]*= 0;", found["body"])}


def implemented_on_linux(root):
    sources = [path for pattern in ("*.h", "*.cpp") for path in (root / "platform/linux").rglob(pattern)]
    bases = [found["bases"] or "" for path in sources for found in CLASS.finditer(text_of(path))]
    return {name for text in bases for name in re.findall(r"(\w+)\s*(?:,|$)", text)}


def covered(root):
    found = [COVERED.match(text_of(path)) for path in sorted((root / CONTRACTS).glob("*.h"))]
    return {name for match in found if match for name in re.findall(r"\w+", match["names"]) if name != "and"}


def suites(root):
    return [name for path in sorted((root / CONTRACTS).glob("*.h"))
            for name in re.findall(r"^REGISTER_TYPED_TEST_SUITE_P\((\w+)", text_of(path), re.M)]


def runs(root):
    texts = [text_of(path) for path in (root / "tests/platform").rglob("*_test.cpp")]
    return {run for text in texts for run in re.findall(r"^INSTANTIATE_TYPED_TEST_SUITE_P\((\w+), (\w+)", text, re.M)}


def lint(root):
    interfaces = (abstract_classes(root) & implemented_on_linux(root)) - WITHOUT_CONTRACT
    found = [f"{name} has no contract in {CONTRACTS}" for name in sorted(interfaces - covered(root))]
    found += [f"{name}, which a contract names, is not an interface" for name in sorted(covered(root) - abstract_classes(root))]
    missing = [(place, suite) for suite in suites(root) for place in ("Fake", "Linux") if (place, suite) not in runs(root)]
    return interfaces, found + [f"{suite} does not run on {place}" for place, suite in missing]


if __name__ == "__main__":
    lint_report.end(lint, "interfaces")
