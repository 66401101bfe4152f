#!/usr/bin/env python3
"""Joins several test files into one that compiles as if they were apart.

Usage: join_tests.py OUTPUT FILE...
Most of the time of a test file goes into the headers and templates that its neighbours use as well. Each file gets a
namespace of its own around all that follows its includes, so that anonymous helpers of the same name do not meet. A file whose
tests stand in a namespace of the project keeps it, and its own namespace goes inside. #line lets messages and debuggers name
the real file.
"""
import re
import sys
from pathlib import Path

NAMED = re.compile(r"^namespace ([\w:]+) \{$")
BEFORE_BODY = re.compile(r"^\s*(//|#|$)")


def scope_of(path):
    return re.sub(r"\W", "_", path.stem) + "_file"


def with_scope_inside(lines, scope):
    """The named namespaces of the file, each with the file's own one inside."""
    for line in lines:
        named = NAMED.match(line)
        if named:
            yield f"{line} inline namespace {scope} {{"
        elif re.match(r"^\}  // namespace [\w:]+$", line):
            yield "} " + line
        else:
            yield line


def with_scope_around(lines, scope):
    start = next((number for number, line in enumerate(lines) if not BEFORE_BODY.match(line)), len(lines))
    yield from lines[:start]
    if start < len(lines):
        yield f"namespace {scope} {{ " + lines[start]
    yield from lines[start + 1:]
    if start < len(lines):
        yield f"}}  // namespace {scope}"


def joined(path):
    lines = path.read_text(encoding="utf-8").splitlines()
    wrap = with_scope_inside if any(NAMED.match(line) for line in lines) else with_scope_around
    return [f'#line 1 "{path}"', *wrap(lines, scope_of(path))]


def main():
    output, files = Path(sys.argv[1]), [Path(name) for name in sys.argv[2:]]
    output.parent.mkdir(parents=True, exist_ok=True)
    output.write_text("\n".join(line for path in files for line in joined(path)) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
